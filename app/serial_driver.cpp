#include "app/serial_driver.h"

#include <QRegularExpression>

bool IsDriverEnabled(QByteArray const& listing)
{
    static QRegularExpression const enabled(
        QStringLiteral(R"(com.silabs.cp210x.*\[activated enabled\])"));
    return enabled.globalMatch(QString::fromUtf8(listing)).hasNext();
}
