#include "tests/bundle_check/image_findings.h"

#include <QFile>
#include <QList>
#include <algorithm>

#include "tests/bundle_check/test_images.h"

using namespace Qt::StringLiterals;

namespace {

// In the order of Unit.
constexpr char const* kUnitNames[] = {"g4", "u5", "other", "usb", "usb-u5", "mcuboot"};

QByteArray MakeBeginning(Unit unit, qint64 size)
{
    // Larger ones are not looked into.
    constexpr qint64 kMostContent = 4 * 1024 * 1024;
    constexpr qsizetype kOverhead = 64 + 40;  // header and TLV area
    return unit == Unit::Mcuboot && size < kMostContent ? MakeMcubootParts(size - kOverhead).Image()
                                                        : MakeStm32Image(8);
}

void ExpectImageFinding(ImageBundle const& bundle, QByteArray const& finding, bool is_only)
{
    auto const findings = bundle.Findings();
    auto const begins = [&](QString const& line) {
        return line.startsWith(QString::fromUtf8(finding));
    };
    bool const is_right = finding.isEmpty() ? findings.isEmpty()
                          : is_only         ? findings.size() == 1 && begins(findings.first())
                                            : std::ranges::any_of(findings, begins);
    EXPECT_TRUE(is_right) << "expected: " << finding.constData() << "\nfound:\n"
                          << findings.join(u'\n').toStdString();
}

}  // namespace

ImageBundle::ImageBundle(Unit unit, QByteArray const& image)
{
    if (unit == Unit::Mcuboot) {
        UseMcuboot();
    } else if (unit == Unit::Usb || unit == Unit::UsbU5) {
        UseUsb();
    }
    if (unit == Unit::U5 || unit == Unit::UsbU5) {
        Set("otp_address", "0x0BFA0000");
    } else if (unit == Unit::OtherChip) {
        Set("otp_address", "0x12340000");
    }
    Write(u"Resources/firmware.bin"_s, image);
}

ImageBundle::ImageBundle(Unit unit, qint64 size) : ImageBundle(unit, MakeBeginning(unit, size))
{
    EXPECT_TRUE(QFile::resize(Path(u"Resources/firmware.bin"_s), size));
}

QStringList ImageBundle::Findings() const
{
    auto const place = u"config.ini:1: "_s;
    auto findings = GetFindings(Root()).filter(place);
    findings.replaceInStrings(place, QString());
    return findings.replaceInStrings(u": firmware_filename: "_s, u": "_s);
}

void ExpectImageFindings(std::initializer_list<ImageCase> cases)
{
    for (auto const& [unit, image, finding] : cases) {
        SCOPED_TRACE(kUnitNames[static_cast<int>(unit)]);
        ExpectImageFinding(ImageBundle(unit, image), finding, true);
    }
}

void ExpectSizeFindings(QByteArray const& table)
{
    for (auto const& row : table.trimmed().split('\n')) {
        SCOPED_TRACE(row.constData());
        bool const is_only = !row.startsWith('+');
        auto const words = row.mid(is_only ? 0 : 1).split(' ');
        auto const* const name =
            std::ranges::find_if(kUnitNames, [&](char const* known) { return words[0] == known; });
        ASSERT_NE(name, std::end(kUnitNames));
        auto const finding = row.mid(row.indexOf(" => ") + 4);
        ImageBundle const bundle(static_cast<Unit>(name - kUnitNames), words[1].toLongLong());
        ExpectImageFinding(bundle, finding == "clean" ? "" : finding, is_only);
    }
}
