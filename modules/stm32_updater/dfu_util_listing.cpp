#include "modules/stm32_updater/dfu_util_listing.h"

#include <QByteArrayView>
#include <QProcess>
#include <QRegularExpression>

#include "modules/stm32_updater/child_process.h"
#include "modules/stm32_updater/dfu_util_arguments.h"

namespace stm32_updater {

QStringList ListDfuDevices(QString const& dfu_util_path, std::chrono::milliseconds timeout)
{
    // Declared before the process, which may still deliver output when it is destroyed.
    QByteArray listing;
    auto const dfu_util = MakeChildProcess();
    QObject::connect(dfu_util.get(), &QProcess::readyReadStandardOutput, dfu_util.get(),
                     [&tool = *dfu_util, &listing] {
                         listing += tool.readAllStandardOutput();
                         listing.truncate(static_cast<qsizetype>(kLongestDfuListing));
                     });
    dfu_util->start(dfu_util_path, GetListArguments(), QIODevice::ReadWrite);
    dfu_util->closeReadChannel(QProcess::StandardError);
    dfu_util->waitForFinished(static_cast<int>(timeout.count()));
    KillIfRunning(*dfu_util);
    return ParseDfuListing(listing);
}

QStringList ParseDfuListing(QByteArray const& output)
{
    static QRegularExpression const ids(QStringLiteral(R"(\[([0-9a-fA-F]{4}):([0-9a-fA-F]{4})\])"));
    QStringList devices;
    for (qsizetype begin = 0; begin < output.size();) {
        auto const newline = output.indexOf('\n', begin);
        auto const end = newline < 0 ? output.size() : newline;
        auto const line = QByteArrayView(output).sliced(begin, end - begin);
        if (line.contains('[')) {
            auto const match = ids.match(QString::fromUtf8(line));
            if (match.hasMatch()) {
                devices.append(match.captured(1) + QLatin1Char(':') + match.captured(2));
            }
        }
        begin = end + 1;
    }
    return devices;
}

}  // namespace stm32_updater
