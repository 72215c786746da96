#include "tests/end_to_end/test_bundle.h"

#include <QFile>
#include <QSettings>
#include <filesystem>
#include <stdexcept>

#include "tests/support/files.h"

using namespace Qt::StringLiterals;

namespace {

// Links stay links.
void Copy(QString const& from, QString const& to)
{
    namespace fs = std::filesystem;
    fs::copy(from.toStdString(), to.toStdString(),
             fs::copy_options::recursive | fs::copy_options::copy_symlinks);
}

}  // namespace

TestBundle::TestBundle(QString const& staged_bundle) : root_(temporary_.filePath(u"bundle"_s))
{
    Copy(staged_bundle, root_.path());
}

TestBundle::TestBundle(QString const& staged_bundle, QString const& own_bundle,
                       QString const& directory)
    : root_(directory)
{
    auto const resources = own_bundle + u"/Contents/Resources"_s;
    if (!QFile::exists(resources + u"/config.ini"_s)) {
        throw std::runtime_error("there is no file " + resources.toStdString() + "/config.ini");
    }
    if (root_.exists() &&
        QDir(resources).canonicalPath().startsWith(root_.canonicalPath() + u'/')) {
        throw std::runtime_error("it is the copy that this would replace; name the original");
    }
    root_.removeRecursively();
    root_.mkpath(u"Contents"_s);
    Copy(staged_bundle + u"/Contents/MacOS"_s, root_.filePath(u"Contents/MacOS"_s));
    Copy(resources, Resources().path());
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
