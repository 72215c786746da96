#include "tests/bundle_check/bundle_folder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <algorithm>

#include "bundle_check/report.h"

using namespace Qt::StringLiterals;

namespace {

QByteArray Big16(qsizetype number)
{
    return QByteArray().append(static_cast<char>(number >> 8)).append(static_cast<char>(number));
}

testing::AssertionResult Tell(bool holds, QStringList const& findings)
{
    auto result = holds ? testing::AssertionSuccess() : testing::AssertionFailure();
    return result << "the report says:\n" << findings.join(u'\n').toStdString();
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
             {"instructions_text", "\"Plug in, reset; press.\""},
             {"product_text", "Lumen"},
             {"fw_version", "1.0"}}
{
    EXPECT_TRUE(directory_.isValid());
    WriteConfig();
    Write(u"Resources/firmware.bin"_s, QByteArray(1024, '\xFF'));
    Write(u"Resources/background.png"_s, "\x89PNG\r\n\x1A\n");
    Write(u"Resources/Sans-Regular.otf"_s, MakeFont("Kelvane Sans", "Regular"));
    Write(u"Resources/Sans-Bold.otf"_s, MakeFont("Kelvane Sans", "Bold"));
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
    QFile file(full);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << full.toStdString();
    ASSERT_EQ(file.write(content), content.size());
    file.close();
    auto const readable = QFile::ReadOwner | QFile::WriteOwner;
    ASSERT_TRUE(file.setPermissions(executable ? readable | QFile::ExeOwner : readable));
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
    // The predictions and the sum.
    return lines.mid(0, lines.size() - report.predictions.size() - 1);
}

testing::AssertionResult Finds(BundleFolder const& bundle, char const* beginning)
{
    auto const findings = GetFindings(bundle.Root());
    auto const begins = [&](QString const& line) {
        return line.startsWith(QString::fromUtf8(beginning));
    };
    return Tell(std::ranges::any_of(findings, begins), findings);
}

testing::AssertionResult FindsOnly(BundleFolder const& bundle, char const* beginning)
{
    auto const findings = GetFindings(bundle.Root());
    return Tell(findings.size() == 1 && findings.first().startsWith(QString::fromUtf8(beginning)),
                findings);
}

testing::AssertionResult FindsNothing(BundleFolder const& bundle)
{
    auto const findings = GetFindings(bundle.Root());
    return Tell(findings.isEmpty(), findings);
}

QByteArray MakeFont(QList<FontRecord> const& records)
{
    QByteArray head = Big16(0) + Big16(records.size()) + Big16(6 + records.size() * 12);
    QByteArray texts;
    for (auto const& record : records) {
        head += Big16(record.platform) + Big16(0) + Big16(record.language) + Big16(record.name) +
                Big16(record.text.size()) + Big16(texts.size());
        texts += record.text;
    }
    auto const names = head + texts;
    auto const table = QByteArray("name") + QByteArray(4, 0) + Big16(0) + Big16(28) + Big16(0) +
                       Big16(names.size());
    return "OTTO" + Big16(1) + QByteArray(6, 0) + table + names;
}

QByteArray MakeFont(QByteArray const& family, QByteArray const& style)
{
    return MakeFont({{1, 0, 1, family}, {1, 0, 2, style}});
}
