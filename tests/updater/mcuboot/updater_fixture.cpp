#include "tests/updater/mcuboot/updater_fixture.h"

#include <QFile>

#include "tests/mcuboot/unit_side.h"

using mcuboot::test::FromHex;
using mcuboot::test::MakeAnswer;

QByteArray RcAnswer(int rc)
{
    return MakeAnswer(FromHex("bf627263") + static_cast<char>(rc) + FromHex("ff"));
}

QByteArray OffAnswer(int32_t offset)
{
    QByteArray value;
    // CBOR writes a negative number as -1 - n under a type of its own.
    auto const magnitude = offset < 0 ? -1 - offset : offset;
    value.append(offset < 0 ? '\x3A' : '\x1A');
    for (auto const shift : {24, 16, 8, 0}) {
        value.append(static_cast<char>((magnitude >> shift) & 0xFF));
    }
    return MakeAnswer(FromHex("bf636f6666") + value + FromHex("ff"));
}

QByteArray OtpAnswer(QByteArray const& data)
{
    return MakeAnswer(FromHex("bf62726300 6464617461") + static_cast<char>(0x40 + data.size()) +
                      data + FromHex("ff"));
}

void UpdaterFixture::ConnectUpdater(bool verbose, QString const& fw_target_type)
{
    updater_ = std::make_unique<McubootSerialUpdater>(directory_.filePath(QStringLiteral("image")),
                                                      921600, verbose, fw_target_type, nullptr);
    unit_.Answers(RcAnswer(0));
    ASSERT_TRUE(updater_->connect(unit_.PortName()));
    lines_at_connect_ = log_.Lines().size();
}

QString UpdaterFixture::WriteImage(QByteArray const& image)
{
    auto const path = directory_.filePath(QStringLiteral("image"));
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    EXPECT_EQ(file.write(image), image.size());
    return path;
}

std::vector<std::string> UpdaterFixture::LinesSinceConnect() const
{
    auto const& lines = log_.Lines();
    return {lines.begin() + static_cast<std::ptrdiff_t>(lines_at_connect_), lines.end()};
}
