#include "tests/end_to_end/test_bundle.h"

#include <QFile>
#include <QSettings>
#include <filesystem>
#include <stdexcept>

namespace {

QByteArray ReadFile(QString const& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        throw std::runtime_error("cannot read " + path.toStdString());
    }
    return file.readAll();
}

void WriteFile(QString const& path, QByteArray const& content)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size()) {
        throw std::runtime_error("cannot write " + path.toStdString());
    }
}

}  // namespace

TestBundle::TestBundle(QString const& staged_bundle)
{
    namespace fs = std::filesystem;
    fs::copy(staged_bundle.toStdString(),
             directory_.filePath(QStringLiteral("bundle")).toStdString(),
             fs::copy_options::recursive);
}

QString TestBundle::Executable() const
{
    return directory_.filePath(QStringLiteral("bundle/Contents/MacOS/firmware_updater"));
}

QString TestBundle::DfuUtil() const
{
    return directory_.filePath(QStringLiteral("bundle/Contents/MacOS/dfu-util"));
}

QDir TestBundle::Resources() const
{
    return QDir(directory_.filePath(QStringLiteral("bundle/Contents/Resources")));
}

QString TestBundle::ConfigPath() const
{
    return Resources().filePath(QStringLiteral("config.ini"));
}

void TestBundle::SetKey(QString const& key, QString const& value)
{
    QByteArray changed;
    auto const name = key.toUtf8() + '=';
    for (auto const& line : ReadFile(ConfigPath()).split('\n')) {
        if (!line.startsWith(name)) {
            changed += line + '\n';
        }
    }
    WriteFile(ConfigPath(), changed + name + value.toUtf8() + '\n');
}

QString TestBundle::FirmwarePath() const
{
    QSettings const settings(ConfigPath(), QSettings::IniFormat);
    return Resources().filePath(settings.value("firmware_filename").toString());
}

void TestBundle::WriteFirmware(QByteArray const& image)
{
    WriteFile(FirmwarePath(), image);
}

QByteArray TestBundle::ReadFirmware() const
{
    return ReadFile(FirmwarePath());
}
