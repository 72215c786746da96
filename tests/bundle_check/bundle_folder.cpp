#include "tests/bundle_check/bundle_folder.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <algorithm>

#include "bundle_check/bundle_checker.h"
#include "config/config_keys.h"
#include "tests/bundle_check/test_images.h"
#include "tests/support/files.h"

using namespace Qt::StringLiterals;

namespace {

testing::AssertionResult Describe(bool holds, QStringList const& findings)
{
    auto result = holds ? testing::AssertionSuccess() : testing::AssertionFailure();
    return result << "the findings are:\n" << findings.join(u'\n').toStdString();
}

}  // namespace

BundleFolder::BundleFolder()
    : lines_{{"firmware_filename", "firmware.bin"},
             {"start_address", "0x08000000"},
             {"programming_address", "0x08000000"},
             {"otp_address", "0x1FFF7000"},
             {"otp_size", "512"},
             {"boot_mode_address", "0x20014000"},
             {"fw_target_type", "customer"},
             {"product_list", "Lumen:10c4:ea60"},
             {"device_id_list", "7"},
             {"window_title", "Lumen updater"},
             {"instructions_text", "\"1. Plug in,\\n2. hold; reset,\\n3. let go.\""},
             {"product_text", "Lumen"},
             {"fw_version", "1.0"}}
{
    EXPECT_TRUE(directory_.isValid());
    WriteConfig();
    Write(u"Resources/firmware.bin"_s, MakeStm32Image(1024));
    static auto const picture = MakePicture(665, 517);
    Write(u"Resources/background.png"_s, picture);
    for (auto const& style : {u"Regular"_s, u"Bold"_s}) {
        Write(u"Resources/Sans-%1.otf"_s.arg(style), ReadDemonstrationFont(style));
    }
    Write(u"Resources/CP210xVCPDriver.app/Contents/MacOS/CP210xVCPDriver"_s, "driver", true);
}

void BundleFolder::UseUsb()
{
    Remove("start_address");
    Remove("boot_mode_address");
    Set("product_list", "Flash:0483:df11");
    Set("interface", "usb");
    Write(u"MacOS/dfu-util"_s, "#!/bin/sh\n# knows fast\necho dfu-util 0.12\n", true);
}

void BundleFolder::UseMcuboot()
{
    for (auto const* key :
         {"start_address", "programming_address", "otp_address", "otp_size", "boot_mode_address"}) {
        Remove(key);
    }
    Set("interface", "mcuboot_serial");
    Write(u"Resources/firmware.bin"_s, MakeMcubootParts(1024).Image());
}

void BundleFolder::Set(QByteArray const& key, QByteArray const& value)
{
    auto const line = std::ranges::find(lines_, key, &std::pair<QByteArray, QByteArray>::first);
    if (line == lines_.end()) {
        lines_.append({key, value});
    } else {
        line->second = value;
    }
    WriteConfig();
}

qsizetype BundleFolder::LineOf(QByteArray const& key) const
{
    auto const line = std::ranges::find(lines_, key, &std::pair<QByteArray, QByteArray>::first);
    return line - lines_.begin() + 1;
}

void BundleFolder::Remove(QByteArray const& key)
{
    auto const line = std::ranges::find(lines_, key, &std::pair<QByteArray, QByteArray>::first);
    ASSERT_NE(line, lines_.end()) << key.constData();
    *line = {};
    WriteConfig();
}

void BundleFolder::SetConfig(QByteArray const& text)
{
    Write(u"Resources/config.ini"_s, text);
}

void BundleFolder::Write(QString const& path, QByteArray const& content, bool executable)
{
    auto const full = Path(path);
    ASSERT_TRUE(QDir().mkpath(QFileInfo(full).path()));
    WriteFile(full, content);
    auto const readable = QFile::ReadOwner | QFile::WriteOwner;
    ASSERT_TRUE(QFile::setPermissions(full, executable ? readable | QFile::ExeOwner : readable));
}

void BundleFolder::Delete(QString const& path)
{
    ASSERT_TRUE(QFile::remove(Path(path))) << path.toStdString();
}

QString BundleFolder::Path(QString const& path) const
{
    return directory_.filePath(u"Contents/"_s + path);
}

void BundleFolder::WriteConfig()
{
    QByteArray text;
    for (auto const& [key, value] : lines_) {
        text += key.isEmpty() ? "; \n" : key + '=' + value + '\n';
    }
    SetConfig(text);
}

QStringList GetFindings(QString const& path)
{
    auto const report = bundle_check::CheckBundle(path);
    auto lines = bundle_check::FormatText(report).trimmed().split(u'\n');
    // Without the predictions and the summary.
    return lines.mid(0, lines.size() - report.predictions.size() - 1);
}

testing::AssertionResult Finds(BundleFolder const& bundle, char const* beginning)
{
    auto const findings = GetFindings(bundle.Root());
    auto const begins = [&](QString const& line) {
        return line.startsWith(QString::fromUtf8(beginning));
    };
    return Describe(std::ranges::any_of(findings, begins), findings);
}

testing::AssertionResult FindsOnly(BundleFolder const& bundle, char const* beginning)
{
    auto const findings = GetFindings(bundle.Root());
    return Describe(
        findings.size() == 1 && findings.first().startsWith(QString::fromUtf8(beginning)),
        findings);
}

testing::AssertionResult FindsNothing(BundleFolder const& bundle)
{
    auto const findings = GetFindings(bundle.Root());
    return Describe(findings.isEmpty(), findings);
}

void ExpectFindings(QByteArray const& table, void (BundleFolder::*use)())
{
    for (auto const& row : table.trimmed().split('\n')) {
        auto const arrow = row.indexOf(" => ");
        ASSERT_GT(arrow, 0) << row.data();
        auto const key = row.left(row.indexOf('='));
        auto const finding = row.mid(arrow + 4);
        BundleFolder bundle;
        if (use != nullptr) {
            (bundle.*use)();
        }
        bundle.Set(key, row.left(arrow).mid(key.size() + 1).trimmed());
        auto const text = finding.indexOf(": ") + 2;
        auto const name = config_keys::Find(QString::fromUtf8(key)) == nullptr ? "" : key + ": ";
        auto const beginning = "config.ini:" + QByteArray::number(bundle.LineOf(key)) + ": " +
                               finding.left(text) + name + finding.mid(text);
        EXPECT_TRUE(finding == "clean" ? FindsNothing(bundle) : FindsOnly(bundle, beginning))
            << row.data();
    }
}

void ExpectFindings(std::initializer_list<ChangedLines> rows, void (BundleFolder::*use)())
{
    for (auto const& [lines, finding, is_only] : rows) {
        BundleFolder bundle;
        if (use != nullptr) {
            (bundle.*use)();
        }
        for (auto const& [key, value] : lines) {
            value == nullptr ? bundle.Remove(key) : bundle.Set(key, value);
        }
        EXPECT_TRUE(*finding == '\0' ? FindsNothing(bundle)
                    : is_only        ? FindsOnly(bundle, finding)
                                     : Finds(bundle, finding))
            << lines.front().first.data() << ": " << finding;
    }
}

QByteArray ReadDemonstrationFont(QString const& style)
{
    return ReadFile(QStringLiteral(FW_DEMONSTRATION_RESOURCES "/KelvaneSans-%1.otf").arg(style));
}

QByteArray MakePicture(int width, int height, QColor const& colour, char const* format)
{
    QImage picture(width, height,
                   colour.alpha() < 255 ? QImage::Format_ARGB32 : QImage::Format_RGB32);
    picture.fill(colour);
    QBuffer bytes;
    EXPECT_TRUE(picture.save(&bytes, format));
    return bytes.data();
}
