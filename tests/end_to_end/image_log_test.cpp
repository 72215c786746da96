// What the log says about the firmware image: its size when the program starts, its digest when an
// update does.
#include <QCryptographicHash>

#include "tests/end_to_end/transport.h"

using namespace Qt::StringLiterals;

namespace {

using ImageLog = UartTransport;

TEST_F(ImageLog, HasTheDigestFromTheStartOfTheUpdateOn)
{
    auto const image = bundle_.ReadFirmware();
    auto const digest = QCryptographicHash::hash(image, QCryptographicHash::Sha256).toHex();
    Start();
    ExpectScreen(IsReady);
    auto const before = program_->ReadLog();
    EXPECT_TRUE(before.contains(", " + QByteArray::number(image.size()) + " bytes"));
    EXPECT_FALSE(before.contains("SHA-256")) << before.toStdString();

    UpdateToTheEnd();

    auto const after = program_->ReadLog().mid(before.size());
    EXPECT_TRUE(after.contains(" bytes, SHA-256 " + digest)) << after.toStdString();
}

}  // namespace
