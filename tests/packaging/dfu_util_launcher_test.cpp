// Tests the launcher that takes the place of dfu-util: which tool it runs, and with which
// arguments. The tool is a stand-in that supports the modifier "fast" or does not, or the real one.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <utility>

#include "tests/support/files.h"
#include "tests/support/stand_in_tool.h"

using namespace Qt::StringLiterals;

namespace {

auto const kLauncher = QString::fromUtf8(FW_DFU_UTIL_LAUNCHER);
auto const kSystemPath = u"/usr/bin:/bin"_s;
constexpr int kPatience = 15'000;  // milliseconds

struct Ended {
    QProcess::ExitStatus status;
    int exit_code;
    QByteArray output;
    QByteArray errors;
    qint64 process_id;
};

// The words of a text.
QStringList Split(QString const& text)
{
    return text.split(u' ');
}

QString const kDownload = u"-d 0483:df11 -a 0 -s 0X08000000:fast:leave -D fw.bin"_s;

Ended RunProgram(QString const& program, QString const& path, QStringList const& arguments,
                 QString const& working_directory = {})
{
    QProcess process;
    process.setWorkingDirectory(working_directory);
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"PATH"_s, path);
    process.setProcessEnvironment(environment);
    process.start(program, arguments);
    EXPECT_TRUE(process.waitForStarted(kPatience));
    auto const process_id = process.processId();
    EXPECT_TRUE(process.waitForFinished(kPatience));
    return {process.exitStatus(), process.exitCode(), process.readAllStandardOutput(),
            process.readAllStandardError(), process_id};
}

class DfuUtilLauncher : public testing::Test {
protected:
    // The help has the words and the order of dfu-util's own.
    void MakeTool(QByteArray const& further_modifier, QByteArray const& commands = "")
    {
        tool_.Does(
            "if [ \"$1\" = --help ]; then printf '%s\\n' "
            "'  -s --dfuse-address address<:...>\tDfuSe mode, address' "
            "'\t\tleave\t\tLeave DFU mode (jump to application)' " +
            further_modifier + " '\t\t<length>\tNot so fast'; exit 0; fi\n" + commands);
    }
    void MakeNewTool(QByteArray const& commands = "")
    {
        MakeTool("'\t\tfast\t\tAs fast as can be'", commands);
    }
    void MakeOldTool(QByteArray const& commands = "") { MakeTool("", commands); }

    Ended Launch(QStringList const& arguments)
    {
        return RunProgram(kLauncher, tool_.FilePath({}) + u':' + kSystemPath, arguments);
    }

    StandInTool tool_;
};

}  // namespace

TEST_F(DfuUtilLauncher, PassesEveryOtherArgumentOnUnchanged)
{
    MakeOldTool();
    QStringList const arguments{u"-d"_s, u"0483:df11"_s,        u""_s,   u"a b  c"_s,
                                u"*"_s,  u"$HOME `id` \"'\\"_s, u"-s"_s, u"0x1fff7000:4"_s,
                                u"-U"_s, u"/Geräte/x y"_s};

    EXPECT_EQ(Launch(arguments).errors, "");

    EXPECT_EQ(tool_.Arguments(), arguments);
}

TEST_F(DfuUtilLauncher, RunsTheToolOnceIfTheDownloadIsNotFast)
{
    MakeOldTool();
    Launch({u"-l"_s, u"-a0"_s});
    EXPECT_EQ(tool_.Arguments(), Split(u"-l -a0"_s));
}

TEST_F(DfuUtilLauncher, KeepsFastForAToolThatSupportsIt)
{
    MakeNewTool();
    EXPECT_EQ(Launch(Split(kDownload)).errors, "");
    EXPECT_EQ(tool_.Arguments(), Split(u"--help "_s + kDownload));
}

TEST_F(DfuUtilLauncher, DropsFastForAToolThatDoesNotSupportItAndReportsThat)
{
    MakeOldTool();
    auto const ended = Launch(Split(kDownload));
    EXPECT_EQ(tool_.Arguments(), Split(u"--help "_s + QString(kDownload).remove(u":fast"_s)));
    EXPECT_EQ(ended.output, "");
    EXPECT_TRUE(ended.errors.contains("does not know the modifier \"fast\""));
    EXPECT_EQ(ended.errors.count('\n'), 1);
}

TEST_F(DfuUtilLauncher, DropsFastWhereverTheAddressIsGivenAndNowhereElse)
{
    MakeOldTool();
    for (auto const& [given, passed_on] :
         {std::pair{u"-s0x0:fast:leave"_s, u"-s0x0:leave"_s},
          std::pair{u"--dfuse-address=0x0:leave:fast"_s, u"--dfuse-address=0x0:leave"_s},
          std::pair{u"--dfuse-address 0x0:fast"_s, u"--dfuse-address 0x0"_s},
          std::pair{u"-s 0x0:fast:fast:leave:fast"_s, u"-s 0x0:leave"_s},
          std::pair{u"-s 0x0:faster:breakfast:fast:leave -D /a:fast:b"_s,
                    u"-s 0x0:faster:breakfast:leave -D /a:fast:b"_s},
          std::pair{u"-D 0x0:fast"_s, u"-D 0x0:fast"_s},
          std::pair{u"-D fw:fast"_s, u"-D fw:fast"_s}, std::pair{u"-s :fast"_s, u"-s :fast"_s}}) {
        Launch(Split(given));
        auto const expected = Split(passed_on);
        EXPECT_EQ(tool_.Arguments().last(expected.size()), expected);
    }
}

TEST_F(DfuUtilLauncher, ReplacesItsOwnProcessByTheTool)
{
    MakeOldTool("echo printed; echo error >&2; exit 74\n");
    auto const ended = Launch({u"-s"_s, u"0x0:fast"_s});

    EXPECT_EQ(tool_.ProcessIds().last(), ended.process_id);
    EXPECT_EQ(ended.status, QProcess::NormalExit);
    EXPECT_EQ(ended.exit_code, 74);
    EXPECT_EQ(ended.output, "printed\n");
    EXPECT_TRUE(ended.errors.endsWith("\nerror\n"));
}

TEST_F(DfuUtilLauncher, EndsByTheSignalThatEndsTheTool)
{
    MakeOldTool("kill -s KILL $$\n");

    EXPECT_EQ(Launch({}).status, QProcess::CrashExit);
}

TEST_F(DfuUtilLauncher, SkipsEveryLauncherAndWhatCannotBeRun)
{
    MakeOldTool();
    QTemporaryDir folders;
    QDir const root(folders.path());
    ASSERT_TRUE(root.mkpath(u"bundle"_s) && root.mkpath(u"other_bundle"_s) &&
                root.mkpath(u"later_bundle"_s) && root.mkpath(u"file"_s) &&
                root.mkpath(u"folder/dfu-util"_s));
    auto const launcher = root.filePath(u"bundle/dfu-util"_s);
    auto const later = root.filePath(u"later_bundle/dfu-util"_s);
    ASSERT_TRUE(QFile::copy(kLauncher, launcher));
    ASSERT_TRUE(QFile::copy(kLauncher, root.filePath(u"other_bundle/dfu-util"_s)));
    ASSERT_TRUE(QFile::copy(kLauncher, later));
    WriteFile(later, ReadFile(kLauncher) + "\n# of another version\n");
    ASSERT_TRUE(QFile(root.filePath(u"file/dfu-util"_s)).open(QIODevice::WriteOnly));
    QString path;
    for (auto const& folder :
         {u"bundle"_s, u"other_bundle"_s, u"later_bundle"_s, u"file"_s, u"folder"_s}) {
        path += root.filePath(folder) + u':';
    }

    auto const ended =
        RunProgram(launcher, path + tool_.FilePath({}) + u':' + kSystemPath, {u"-l"_s});

    EXPECT_EQ(ended.errors, "");
    EXPECT_EQ(tool_.Arguments(), QStringList{u"-l"_s});
}

// Such a script calls the launcher again, which would find the script again.
TEST_F(DfuUtilLauncher, IsKilledIfTheToolIsAScriptThatCallsALauncher)
{
    tool_.Does("[ \"$(wc -l <\"$here/process_ids\")\" -lt 20 ] && exec " + kLauncher.toLocal8Bit() +
               " \"$@\"\n");

    for (auto const& arguments : {Split(u"-l -a0"_s), Split(kDownload)}) {
        auto const ended = Launch(arguments);

        EXPECT_EQ(ended.status, QProcess::CrashExit);
        EXPECT_TRUE(ended.errors.contains("called by the tool that " + kLauncher.toLocal8Bit()))
            << ended.errors.constData();
    }
    EXPECT_EQ(tool_.ProcessIds().size(), 3) << "the list, the question about fast, the download";
}

TEST_F(DfuUtilLauncher, NeverRunsAnythingFromTheCurrentFolder)
{
    StandInTool current;
    current.Does("");
    for (auto const& tool : {u"sed"_s, u"grep"_s}) {
        ASSERT_TRUE(QFile::copy(current.Path(), current.FilePath(tool)));
    }
    MakeOldTool();
    ASSERT_TRUE(QDir(current.FilePath({})).mkdir(u"below"_s));
    ASSERT_TRUE(QFile::copy(current.Path(), current.FilePath(u"below/dfu-util"_s)));

    for (auto const& entries : {u""_s, u"."_s, u"below:./:"_s}) {
        auto const path = entries + u':' + tool_.FilePath({}) + u':' + kSystemPath + u':' + entries;
        RunProgram(kLauncher, path, Split(kDownload), current.FilePath({}));
        auto const all = tool_.Arguments();
        EXPECT_EQ(all.mid(all.size() - 8), Split(QString(kDownload).remove(u":fast"_s)))
            << entries.toStdString();
        auto const alone = RunProgram(kLauncher, entries, {u"-l"_s}, current.FilePath({}));
        EXPECT_EQ(alone.status, QProcess::CrashExit) << entries.toStdString();
    }
    EXPECT_EQ(current.Arguments(), QStringList()) << "of what lies in the current folder";
}

// The updater counts every other end as a success.
TEST_F(DfuUtilLauncher, IsKilledIfThereIsNoTool)
{
    QTemporaryDir programs;
    for (auto const* program : {"grep", "sed"}) {
        auto const name = QString::fromLatin1(program);
        ASSERT_TRUE(QFile::link(u"/usr/bin/"_s + name, programs.filePath(name)));
    }
    for (auto const& path : {programs.path(), u"/nowhere"_s, QString()}) {
        auto const ended = RunProgram(kLauncher, path, {u"-l"_s});

        EXPECT_EQ(ended.status, QProcess::CrashExit);
        EXPECT_TRUE(ended.errors.contains("no dfu-util in PATH")) << ended.errors.constData();
    }
}

TEST_F(DfuUtilLauncher, ReportsWhetherAToolAcceptsFast)
{
    MakeNewTool();
    auto const accepted = RunProgram(kLauncher, kSystemPath, {u"--accepts-fast"_s, tool_.Path()});
    MakeOldTool();
    auto const refused = RunProgram(kLauncher, kSystemPath, {u"--accepts-fast"_s, tool_.Path()});

    EXPECT_EQ(accepted.exit_code, 0);
    EXPECT_TRUE(accepted.output.contains(" accepts ")) << accepted.output.constData();
    EXPECT_EQ(refused.exit_code, 1);
    EXPECT_TRUE(refused.output.contains(" does not accept ")) << refused.output.constData();
    EXPECT_EQ(tool_.Arguments(), QStringList({u"--help"_s, u"--help"_s}));
}

TEST_F(DfuUtilLauncher, ReportsOnTheInstalledToolIfNoneIsNamed)
{
    MakeNewTool();
    auto const ended = Launch({u"--accepts-fast"_s});
    EXPECT_EQ(ended.exit_code, 0);
    EXPECT_TRUE(ended.output.startsWith(tool_.Path().toLocal8Bit()));
}

TEST_F(DfuUtilLauncher, RejectsAToolThatCannotBeRun)
{
    auto const ended =
        RunProgram(kLauncher, kSystemPath, Split(u"--accepts-fast /nowhere/dfu-util"_s));
    EXPECT_EQ(ended.status, QProcess::NormalExit);
    EXPECT_EQ(ended.exit_code, 1);
    EXPECT_FALSE(ended.errors.isEmpty());
}

TEST_F(DfuUtilLauncher, RejectsTheRealToolThatIsKnownNotToSupportFast)
{
    auto const version = RunProgram(kLauncher, kSystemPath, {u"--version"_s});
    ASSERT_EQ(version.exit_code, 0);
    if (!version.output.startsWith("dfu-util 0.11\n")) {
        GTEST_SKIP() << "another version: " << version.output.constData();
    }
    EXPECT_EQ(RunProgram(kLauncher, kSystemPath, {u"--accepts-fast"_s}).exit_code, 1);
}

// No such unit is attached anywhere, because nobody has these IDs.
TEST_F(DfuUtilLauncher, DropsFastForTheRealTool)
{
    tool_.Write(u"fw.bin"_s, "image");

    auto const ended = RunProgram(
        kLauncher, kSystemPath,
        Split(u"-d fffe:fffe -a 0 -s 0X08000000:fast:leave -D "_s + tool_.FilePath(u"fw.bin"_s)));

    EXPECT_TRUE(ended.output.startsWith("dfu-util ")) << ended.errors.constData();
    EXPECT_TRUE(ended.errors.startsWith("dfu-util-launcher: /usr/bin/dfu-util does not know"));
    EXPECT_FALSE(ended.errors.contains("Invalid dfuse modifier")) << ended.errors.constData();
}
