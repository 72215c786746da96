// bundle_check as a process: on the demonstration bundles, and on hostile input.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

#include "tests/bundle_check/bundle_folder.h"

using namespace Qt::StringLiterals;

namespace {

struct Outcome {
    int status = -1;  // -1: it did not end by itself
    QByteArray output;
    QByteArray errors;
};

Outcome RunCheck(QStringList const& arguments)
{
    constexpr int kLimitMs = 120'000;
    QProcess process;
    process.start(QStringLiteral(FW_BUNDLE_CHECK), arguments);
    bool const ended = process.waitForFinished(kLimitMs);
    EXPECT_TRUE(ended) << "no end after " << kLimitMs << " ms";
    process.kill();
    bool const normal = ended && process.exitStatus() == QProcess::NormalExit;
    return {normal ? process.exitCode() : -1, process.readAllStandardOutput(),
            process.readAllStandardError()};
}

void ExpectError(QStringList const& arguments, QByteArray const& text)
{
    auto const outcome = RunCheck(arguments);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_TRUE(outcome.output.contains(text)) << outcome.output.constData();
    EXPECT_EQ(outcome.errors, "");
}

// A bundle in which something else takes the place of config.ini.
class NoConfig : public BundleFolder {
public:
    NoConfig() { Delete(u"Resources/config.ini"_s); }
    QString Config() const { return Path(u"Resources/config.ini"_s); }
};

}  // namespace

class StagedBundle : public testing::TestWithParam<char const*> {};

TEST_P(StagedBundle, IsClean)
{
    auto const outcome = RunCheck({QString::fromUtf8(GetParam())});
    EXPECT_EQ(outcome.status, 0) << outcome.output.constData();
    EXPECT_TRUE(outcome.output.endsWith("s\nclean\n")) << outcome.output.constData();
    EXPECT_TRUE(outcome.output.contains(": an update takes about ")) << outcome.output.constData();
    EXPECT_EQ(outcome.errors, "");
}

INSTANTIATE_TEST_SUITE_P(Demonstration, StagedBundle, testing::Values(FW_STAGED_BUNDLES));

TEST(Process, EndsWithOneForWarnings)
{
    BundleFolder bundle;
    bundle.Set("colour", "red");
    auto const outcome = RunCheck({bundle.Root()});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output,
              "config.ini:14: warning: 'colour' is not a known key and is ignored.\n"
              "'Lumen' over uart: an update takes about 1 s\n"
              "1 warning\n");
}

TEST(Process, EndsWithTwoForErrors)
{
    BundleFolder bundle;
    bundle.Remove("otp_size");
    ExpectError({bundle.Root()}, "1 error\n");
}

TEST(Process, WritesJsonWhenAsked)
{
    BundleFolder const bundle;
    for (auto const& arguments :
         {QStringList{bundle.Root(), u"--json"_s}, QStringList{u"--json"_s, bundle.Root()}}) {
        auto const outcome = RunCheck(arguments);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(QJsonDocument::fromJson(outcome.output)[u"status"_s].toString(), u"clean"_s);
    }
}

TEST(Process, PrintsItsUsage)
{
    for (auto const& arguments :
         {QStringList{}, QStringList{u"--json"_s}, QStringList{u"a"_s, u"b"_s},
          QStringList{u"--xml"_s, u"a"_s}, QStringList{u"-v"_s}, QStringList{QString()}}) {
        auto const outcome = RunCheck(arguments);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.output, "");
        EXPECT_TRUE(outcome.errors.contains("\nUsage: ")) << outcome.errors.constData();
        EXPECT_TRUE(outcome.errors.contains(" [options] PATH\n")) << outcome.errors.constData();
    }
    auto const help = RunCheck({u"--help"_s});
    EXPECT_EQ(help.status, 0);
    EXPECT_TRUE(help.output.startsWith("Usage: ")) << help.output.constData();
    EXPECT_TRUE(help.output.contains("--json")) << help.output.constData();
    EXPECT_EQ(help.errors, "");
}

TEST(HostileInput, PathThatIsNotAFolder)
{
    ExpectError({u"/no/such/folder"_s},
                "'/no/such/folder' does not exist; give the folder of a bundle.");
    ExpectError({QStringLiteral(FW_BUNDLE_CHECK)}, " is a file; give the folder of a bundle.");
    ExpectError({u"/dev/zero"_s},
                "'/dev/zero' is not a regular file; give the folder of a bundle.");
}

TEST(HostileInput, FolderThatIsNotABundle)
{
    QTemporaryDir const folder;
    ExpectError({folder.path()}, " is not a bundle; give a folder that contains");
    ASSERT_TRUE(QDir(folder.path()).mkpath(u"Contents"_s));
    ExpectError({folder.path()}, "The bundle has no folder ");
    ASSERT_TRUE(QDir(folder.path()).mkpath(u"Contents/Resources"_s));
    ExpectError({folder.path()}, "config.ini does not exist;");
}

TEST(HostileInput, SymbolicLinksInACircle)
{
    QTemporaryDir const folder;
    ASSERT_TRUE(QFile::link(u"loop"_s, folder.filePath(u"loop"_s)));
    ExpectError({folder.filePath(u"loop"_s)},
                " is a symbolic link to a file that does not exist; ");

    NoConfig const bundle;
    ASSERT_TRUE(QFile::link(u"config.ini"_s, bundle.Config()));
    ExpectError({bundle.Root()}, "config.ini is a symbolic link to a file that does not exist;");
}

TEST(HostileInput, FolderInsteadOfTheConfiguration)
{
    NoConfig const bundle;
    ASSERT_TRUE(QDir().mkpath(bundle.Config()));
    ExpectError({bundle.Root()}, "config.ini is a folder;");
}

TEST(HostileInput, PipesInsteadOfFiles)
{
    NoConfig const bundle;
    ASSERT_EQ(mkfifo(bundle.Config().toLocal8Bit().constData(), 0600), 0);
    ExpectError({bundle.Root()}, "config.ini is not a regular file;");

    BundleFolder others;
    others.UseUsb();
    for (auto const& path : {u"Resources/firmware.bin"_s, u"Resources/background.png"_s,
                             u"Resources/Sans-Bold.otf"_s, u"MacOS/dfu-util"_s}) {
        others.Delete(path);
        ASSERT_EQ(mkfifo(others.Path(path).toLocal8Bit().constData(), 0700), 0);
    }
    ExpectError({others.Root()}, "firmware.bin' is not a regular file.");
}

TEST(HostileInput, DeviceInsteadOfTheConfiguration)
{
    NoConfig const bundle;
    ASSERT_TRUE(QFile::link(u"/dev/zero"_s, bundle.Config()));
    ExpectError({bundle.Root()}, "config.ini is not a regular file;");
}

TEST(HostileInput, FileThatCannotBeRead)
{
    // Its permissions allow it but the system does not, even for root, whom permissions do not
    // stop.
    NoConfig const bundle;
    ASSERT_TRUE(QFile::link(u"/proc/self/mem"_s, bundle.Config()));
    ExpectError({bundle.Root()}, "config.ini cannot be read;");
}

TEST(HostileInput, BinaryInsteadOfTheConfiguration)
{
    NoConfig const bundle;
    ASSERT_TRUE(QFile::copy(QStringLiteral("/bin/true"), bundle.Config()));
    ExpectError({bundle.Root()}, "config.ini is not a text file.");
}

TEST(HostileInput, Utf16InsteadOfTheConfiguration)
{
    BundleFolder bundle;
    bundle.SetConfig(
        QByteArray("\xFF\xFE"
                   "a\0=\0001\0",
                   8));
    ExpectError({bundle.Root()}, "config.ini is encoded as UTF-16");
}

TEST(HostileInput, EmptyConfiguration)
{
    BundleFolder bundle;
    bundle.SetConfig("");
    ExpectError({bundle.Root()}, "config.ini contains no KEY=VALUE line.");
}

TEST(HostileInput, GigabyteInsteadOfEachFile)
{
    constexpr qint64 kGigabyte = qint64{1} << 30;
    BundleFolder bundle;
    bundle.UseUsb();
    for (auto const& path :
         {u"Resources/firmware.bin"_s, u"Resources/background.png"_s, u"Resources/Sans-Bold.otf"_s,
          u"MacOS/dfu-util"_s, u"Resources/config.ini"_s}) {
        ASSERT_TRUE(QFile::resize(bundle.Path(path), kGigabyte));
        EXPECT_NE(RunCheck({bundle.Root()}).status, -1) << path.toStdString();
    }
    ExpectError({bundle.Root()}, "config.ini is larger than 1048576 bytes");
}

TEST(HostileInput, MegabyteLongLines)
{
    BundleFolder bundle;
    QByteArray const megabyte(1'000'000, 'x');
    for (auto const& text :
         {megabyte, megabyte + "=1\n", "product_text=" + megabyte + "\n", "[" + megabyte + "]\na=1",
          "product_list=" + QByteArray(1'000'000, ',') + "\n", "product_text=\"" + megabyte,
          "device_id_list=" + QByteArray("1,").repeated(500'000),
          "product_list=" + QByteArray("a:1:1,").repeated(150'000)}) {
        bundle.SetConfig(text);
        auto const outcome = RunCheck({bundle.Root()});
        EXPECT_EQ(outcome.status, 2) << text.left(20).constData();
        EXPECT_LT(outcome.output.size(), 100'000);
    }
}

TEST(HostileInput, ManyLines)
{
    BundleFolder bundle;
    bundle.SetConfig(QByteArray("a=\n").repeated(300'000));
    auto const outcome = RunCheck({bundle.Root()});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_TRUE(outcome.output.contains(" more are not shown\n"));
}

TEST(HostileInput, ValueThatWouldExhaustTheMemory)
{
    BundleFolder bundle;
    bundle.Set("product_text", "@Variant(\\0\\0\\0\\x9\\xff\\xff\\xff\\xff)");
    ExpectError({bundle.Root()}, "The value contains '@NAME('");
}
