// bundle_check as a process: on the demonstration bundles, and on hostile input.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QImage>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <functional>

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

}  // namespace

TEST(Process, FindsTheStagedBundlesClean)
{
    for (auto const* bundle : {FW_STAGED_BUNDLES}) {
        SCOPED_TRACE(bundle);
        auto const outcome = RunCheck({QString::fromUtf8(bundle)});
        EXPECT_EQ(outcome.status, 0) << outcome.output.constData();
        EXPECT_TRUE(outcome.output.endsWith("s\nclean\n")) << outcome.output.constData();
        EXPECT_TRUE(outcome.output.contains(": an update takes about "));
        EXPECT_EQ(outcome.errors, "");
    }
}

TEST(Process, ExitsWithOneForWarningsAndTwoForErrors)
{
    BundleFolder bundle;
    bundle.Set("colour", "red");
    auto const outcome = RunCheck({bundle.Root()});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output,
              "config.ini:14: warning: 'colour' is not a known key and is ignored.\n"
              "'Lumen' over uart: an update takes about 1 s\n"
              "1 warning\n");
    bundle.Remove("otp_size");
    ExpectError({bundle.Root()}, "1 error, 1 warning\n");
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

TEST(Process, DrawsTheWindowInEveryState)
{
    QTemporaryDir const folder;
    auto const pictures = folder.filePath(u"new/pictures"_s);
    BundleFolder bundle;
    bundle.UseUsb();
    auto const outcome = RunCheck({bundle.Root(), u"--pictures"_s, pictures});
    EXPECT_EQ(outcome.status, 0) << outcome.output.constData();
    QStringList expected;
    for (auto const* state :
         {"waiting", "ready", "erasing", "updating", "done", "failed", "refused"}) {
        for (auto const* rest : {"-72dpi.png", "-72dpi@2x.png", "-96dpi.png", "-96dpi@2x.png"}) {
            expected.append(QString::fromLatin1(state) + QString::fromLatin1(rest));
            QImage const picture(QDir(pictures).filePath(expected.last()));
            EXPECT_EQ(picture.size(),
                      QSize(665, 517) * (expected.last().contains(u"@2x"_s) ? 2 : 1))
                << expected.last().toStdString();
        }
    }
    expected.sort();
    EXPECT_EQ(QDir(pictures).entryList(QDir::Files, QDir::Name), expected);
}

TEST(Process, ReportsPicturesThatItCannotDrawOrWrite)
{
    BundleFolder bundle;
    auto const file = bundle.Path(u"Resources/config.ini"_s);
    ExpectError({bundle.Root(), u"--pictures"_s, file + u"/pictures"_s},
                "error: The pictures of the window cannot be written to '");
    QTemporaryDir const folder;
    for (auto const& change : {u"Resources/Sans-Bold.otf"_s, u"Resources/config.ini"_s}) {
        BundleFolder broken;
        broken.Write(change, QByteArray("OTTO\0", 5));
        ExpectError({broken.Root(), u"--pictures"_s, folder.path()},
                    "error: No pictures of the window were drawn; correct the other errors first.");
    }
    EXPECT_TRUE(QDir(folder.path()).isEmpty());
}

TEST(Process, AppliesTheRulesOfAPackage)
{
    BundleFolder bundle;
    EXPECT_EQ(RunCheck({bundle.Root(), u"--for-customers"_s}).status, 0);
    bundle.Set("fw_target_type", "service");
    EXPECT_NE(RunCheck({bundle.Root()}).status, 2);
    ExpectError({u"--for-customers"_s, bundle.Root()}, "'service' is not firmware for customers");
    ExpectError({u"--package-version"_s, u"77"_s, bundle.Root()}, "of the package, '77'");
}

TEST(Process, ComparesTheImageWithTheSlot)
{
    BundleFolder bundle;
    bundle.UseMcuboot();
    auto const size = QFile(bundle.Path(u"Resources/firmware.bin"_s)).size();
    auto const slot = u"--slot-size"_s;
    for (auto const& fitting : {QString::number(size), u"0x"_s + QString::number(size, 16)}) {
        EXPECT_EQ(RunCheck({slot, fitting, bundle.Root()}).status, 0) << fitting.toStdString();
    }
    ExpectError({slot, QString::number(size - 4), bundle.Root()},
                "config.ini:1: error: firmware_filename: The image has 1128 bytes, 4 more than the "
                "slot of 1124 bytes holds; make the firmware smaller, or correct the slot's size "
                "(--slot-size, or FW_PRODUCT_SLOT_SIZE in product.cmake).");
    for (auto const& wrong : {u"64K"_s, u"0"_s, u"-1"_s, u"010000"_s, u""_s, u"0x"_s, u"1e5"_s,
                              u" 4096"_s, u"4096\n"_s, u"0x1000000000000000000"_s}) {
        auto const outcome = RunCheck({slot, wrong, bundle.Root()});
        EXPECT_EQ(outcome.status, 2) << wrong.toStdString();
        EXPECT_EQ(outcome.output, "") << wrong.toStdString();
        EXPECT_TRUE(outcome.errors.startsWith("--slot-size: '")) << outcome.errors.constData();
    }
}

TEST(Process, WarnsOfASlotWhereThereIsNone)
{
    BundleFolder const bundle;
    auto const outcome = RunCheck({u"--slot-size=4096"_s, bundle.Root()});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_TRUE(outcome.output.startsWith(
        "config.ini: warning: interface: Only MCUboot has a slot, and the interface is uart; leave "
        "out --slot-size and FW_PRODUCT_SLOT_SIZE, or write interface=mcuboot_serial.\n"))
        << outcome.output.constData();
}

TEST(Process, PrintsUdevRules)
{
    BundleFolder const bundle;
    auto const outcome = RunCheck({u"--udev-rules"_s, bundle.Root()});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_TRUE(outcome.output.endsWith("LABEL=\"firmware_updater_end\"\n"))
        << outcome.output.constData();
    EXPECT_EQ(outcome.errors, "");
    auto const failed = RunCheck({u"--udev-rules"_s, u"/nowhere"_s});
    EXPECT_EQ(failed.status, 2);
    EXPECT_EQ(failed.output, "");
    EXPECT_TRUE(failed.errors.contains("'/nowhere' does not exist")) << failed.errors.constData();
}

TEST(Process, PrintsItsUsage)
{
    for (auto const& arguments :
         {QStringList{}, QStringList{u"--json"_s}, QStringList{u"a"_s, u"b"_s},
          QStringList{u"a"_s, u"--pictures"_s}, QStringList{u"--xml"_s, u"a"_s},
          QStringList{u"-v"_s}, QStringList{QString()}}) {
        auto const outcome = RunCheck(arguments);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.output, "");
        EXPECT_TRUE(outcome.errors.contains("\nUsage: ")) << outcome.errors.constData();
        EXPECT_TRUE(outcome.errors.contains(" [options] PATH\n")) << outcome.errors.constData();
    }
    auto const help = RunCheck({u"--help"_s});
    EXPECT_EQ(help.status, 0);
    EXPECT_TRUE(help.output.startsWith("Usage: ")) << help.output.constData();
    for (auto const* option : {"--json", "--slot-size <BYTES>"}) {
        EXPECT_TRUE(help.output.contains(option)) << help.output.constData();
    }
    EXPECT_EQ(help.errors, "");
}

TEST(HostileInput, InsteadOfABundle)
{
    QTemporaryDir const folder;
    ASSERT_TRUE(QFile::link(u"loop"_s, folder.filePath(u"loop"_s)));
    std::pair<QString, char const*> const cases[] = {
        {u"/no/such/folder"_s, "'/no/such/folder' does not exist; give the folder of a bundle."},
        {QStringLiteral(FW_BUNDLE_CHECK), " is a file; give the folder of a bundle."},
        {u"/dev/zero"_s, "'/dev/zero' is not a regular file; give the folder of a bundle."},
        {folder.filePath(u"loop"_s), " is a symbolic link to a file that does not exist; "},
        {folder.path(), " is not a bundle; give a folder that contains Contents or Resources."},
    };
    for (auto const& [path, text] : cases) {
        ExpectError({path}, text);
    }
    ASSERT_TRUE(QDir(folder.path()).mkpath(u"Contents"_s));
    ExpectError({folder.path()}, "The bundle has no folder '");
    ASSERT_TRUE(QDir(folder.path()).mkpath(u"Contents/Resources"_s));
    ExpectError({folder.path()},
                "config.ini does not exist, but the program takes all its settings from it; "
                "put the product's config.ini there.");
}

TEST(HostileInput, InsteadOfTheConfiguration)
{
    auto const link_to = [](char const* target) {
        return [target](QString const& path) {
            return QFile::link(QString::fromLatin1(target), path);
        };
    };
    std::pair<std::function<bool(QString const&)>, char const*> const cases[] = {
        {[](QString const& path) { return QDir().mkpath(path); }, "config.ini is a folder,"},
        {[](QString const& path) { return mkfifo(path.toLocal8Bit().constData(), 0600) == 0; },
         "config.ini is not a regular file,"},
        {link_to("/dev/zero"), "config.ini is not a regular file,"},
        {link_to("config.ini"), "config.ini is a symbolic link to a file that does not exist,"},
        // Its permissions allow reading but the system does not, not even for root.
        {link_to("/proc/self/mem"), "config.ini cannot be read,"},
        {[](QString const& path) { return QFile::copy(u"/bin/true"_s, path); },
         "config.ini is not a text file; write it as UTF-8 text."},
    };
    for (auto const& [put, text] : cases) {
        BundleFolder bundle;
        bundle.Delete(u"Resources/config.ini"_s);
        ASSERT_TRUE(put(bundle.Path(u"Resources/config.ini"_s))) << text;
        ExpectError({bundle.Root()}, text);
    }
}

TEST(HostileInput, InsideTheConfiguration)
{
    std::pair<QByteArray, char const*> const cases[] = {
        {QByteArray("\xFF\xFE"
                    "a\0=\0001\0",
                    8),
         "config.ini is encoded as UTF-16; save it as UTF-8."},
        {"", "config.ini contains no KEY=VALUE line; write one setting on each line."},
        // QSettings would try to reserve memory for 2^32 elements.
        {"product_text=@Variant(\\0\\0\\0\\x9\\xff\\xff\\xff\\xff)\n",
         "The value contains '@NAME('"},
    };
    for (auto const& [content, text] : cases) {
        BundleFolder bundle;
        bundle.SetConfig(content);
        ExpectError({bundle.Root()}, text);
    }
}

TEST(HostileInput, PipesAndGigabytesInsteadOfFiles)
{
    auto const files = {u"Resources/firmware.bin"_s, u"Resources/background.png"_s,
                        u"Resources/Sans-Bold.otf"_s, u"MacOS/dfu-util"_s};
    BundleFolder bundle;
    bundle.UseUsb();
    for (auto const& path : files) {
        ASSERT_TRUE(QFile::resize(bundle.Path(path), qint64{1} << 30));
        EXPECT_NE(RunCheck({bundle.Root()}).status, -1) << path.toStdString();
    }
    for (auto const& path : files) {
        bundle.Delete(path);
        ASSERT_EQ(mkfifo(bundle.Path(path).toLocal8Bit().constData(), 0700), 0);
    }
    ExpectError({bundle.Root()}, "firmware.bin' is not a regular file; put");
    ASSERT_TRUE(QFile::resize(bundle.Path(u"Resources/config.ini"_s), qint64{1} << 30));
    ExpectError({bundle.Root()}, "config.ini is larger than 1048576 bytes");
}

// The decoder would print errors of its own.
TEST(HostileInput, DamagedPictures)
{
    auto const picture = MakePicture(665, 517);
    for (auto const& content : {QByteArray(), picture.left(8), picture.left(100),
                                picture.chopped(14), QByteArray(picture).replace(60, 1, "?")}) {
        BundleFolder bundle;
        bundle.Write(u"Resources/background.png"_s, content);
        ExpectError({bundle.Root()}, "so the window has no picture; save ");
    }
}

TEST(HostileInput, LongAndManyLines)
{
    BundleFolder bundle;
    QByteArray const megabyte(1'000'000, 'x');
    for (auto const& text :
         {megabyte, megabyte + "=1\n", "product_text=" + megabyte + "\n", "[" + megabyte + "]\na=1",
          "product_list=" + QByteArray(300'000, ',') + "\n", "product_text=\"" + megabyte,
          "device_id_list=" + QByteArray("1,").repeated(500'000),
          "product_list=" + QByteArray("a:1:1,").repeated(150'000),
          QByteArray("a=\n").repeated(100'000)}) {
        bundle.SetConfig(text);
        auto const outcome = RunCheck({bundle.Root()});
        EXPECT_EQ(outcome.status, 2) << text.left(20).constData();
        EXPECT_LT(outcome.output.size(), 100'000);
        EXPECT_TRUE(outcome.output.contains(" more are not shown\n") || !text.startsWith("a=\n"));
    }
}
