// The dfu-util beside the program.
#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QSysInfo>
#include <optional>

#include "bundle_check/checks.h"
#include "bundle_check/files.h"
#include "modules/stm32_updater/child_process.h"

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

struct Run {
    bool started = false;
    bool finished = false;
    bool crashed = false;
    QByteArray output;  // both channels
};

Run RunFor(QString const& program, QString const& argument, std::chrono::milliseconds limit)
{
    constexpr qsizetype kMostOutput = 64 * 1024;
    QDeadlineTimer const deadline(limit);
    auto const process = stm32_updater::MakeChildProcess();
    process->setProcessChannelMode(QProcess::MergedChannels);
    process->setStandardInputFile(QProcess::nullDevice());
    process->start(program, {argument});
    Run run;
    run.started = process->waitForStarted(static_cast<int>(deadline.remainingTime()));
    while (run.started && run.output.size() < kMostOutput &&
           process->waitForReadyRead(static_cast<int>(deadline.remainingTime()))) {
        run.output += process->readAll();
    }
    // No wait for a tool that has written this much: all further output would be kept.
    run.finished = process->state() == QProcess::NotRunning ||
                   (run.output.size() < kMostOutput &&
                    process->waitForFinished(static_cast<int>(deadline.remainingTime())));
    run.output = (run.output + process->readAll()).left(kMostOutput);
    run.crashed = run.finished && process->exitStatus() == QProcess::CrashExit;
    return run;
}

// A program for the other system cannot be run here; that is not an error of the bundle.
bool IsForeignProgram(QString const& path)
{
    auto const head = ReadHead(path, 4).value_or(QByteArray());
    bool const is_elf = head == kElfHead;
    bool const is_macos =
        head == "\xCF\xFA\xED\xFE" || head == "\xCA\xFE\xBA\xBE" || head == "\xCE\xFA\xED\xFE";
    return QSysInfo::productType() == QLatin1String("macos") ? is_elf : is_macos;
}

bool IsScript(QString const& path)
{
    return ReadHead(path, 2) == QByteArray("#!");
}

bool IsPartOfWord(char byte)
{
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
           (byte >= '0' && byte <= '9') || byte == '_';
}

// Looks for the whole word: the C library in a program may mention a "fastbin".
bool MentionsFast(QString const& path)
{
    constexpr qint64 kMostBytes = 32 * 1024 * 1024;
    static QByteArray const word("fast");
    auto const bytes = ReadHead(path, kMostBytes).value_or(QByteArray());
    for (auto at = bytes.indexOf(word); at >= 0; at = bytes.indexOf(word, at + 1)) {
        auto const end = at + word.size();
        if ((at == 0 || !IsPartOfWord(bytes[at - 1])) &&
            (end == bytes.size() || !IsPartOfWord(bytes[end]))) {
            return true;
        }
    }
    return false;
}

// The usage lists each modifier at the beginning of a line.
bool ListsFast(QByteArray const& usage)
{
    static QRegularExpression const modifier(u"^[ \\t]*fast(\\s|$)"_s,
                                             QRegularExpression::MultilineOption);
    return modifier.match(QString::fromUtf8(usage)).hasMatch();
}

// The minor number of a released version; all have been 0.x.
std::optional<int> ReadRelease(QByteArray const& output)
{
    static QRegularExpression const version(u"^dfu-util 0\\.(\\d{1,4})\\s*$"_s,
                                            QRegularExpression::MultilineOption);
    auto const match = version.match(QString::fromUtf8(output));
    return match.hasMatch() ? std::optional(match.captured(1).toInt()) : std::nullopt;
}

void ReportMissingFast(Run const& version, Findings& findings)
{
    constexpr int kLastWithoutFast = 11;
    auto const release = ReadRelease(version.output);
    if (release && *release <= kLastWithoutFast) {
        findings.Fail({},
                      u"dfu-util 0.%1 does not support the modifier 'fast': it refuses every "
                      "update, and the window still shows DONE. Use a newer one."_s.arg(*release));
    } else {
        findings.Warn(
            {},
            u"Could not confirm that this dfu-util supports the modifier 'fast'. Without it "
            "every update fails, and the window still shows DONE. Test it on a unit."_s);
    }
}

}  // namespace

void CheckDfuUtil(QString const& path, Findings& findings, std::chrono::milliseconds limit)
{
    auto const fault = DescribeProgramFault(path);
    if (!QFileInfo(path).dir().exists()) {
        findings.Warn({},
                      u"There is no program beside the Resources folder yet; over USB a bundle "
                      "needs dfu-util beside the program, so check it again when it is "
                      "complete."_s);
        return;
    }
    if (!fault.isEmpty()) {
        findings.Fail(
            {},
            u"The tool dfu-util beside the program %1, so no unit is ever found; put an executable "
            "dfu-util there."_s.arg(fault));
        return;
    }
    if (IsForeignProgram(path)) {
        findings.Note(
            {},
            u"dfu-util is a program for another system and was not run; check the bundle on that "
            "system as well."_s);
        if (!MentionsFast(path)) {
            ReportMissingFast({}, findings);
        }
        return;
    }
    auto const version = RunFor(path, u"-V"_s, limit);
    if (version.crashed || !version.started || !version.finished) {
        findings.Fail({},
                      u"dfu-util %1; replace it with a dfu-util that runs on this system."_s.arg(
                          version.crashed   ? u"crashes or is killed when asked for its version"_s
                          : version.started ? u"does not exit when asked for its version"_s
                                            : u"cannot be run"_s));
        return;
    }
    if (!version.output.contains("dfu-util")) {
        findings.Warn({},
                      u"The file dfu-util beside the program does not seem to be dfu-util: its "
                      "version output lacks that name. Replace it."_s);
    }
    // A script may handle the word itself, whatever the tool that it starts supports.
    if (!ListsFast(RunFor(path, u"-h"_s, limit).output) &&
        !(IsScript(path) && MentionsFast(path))) {
        ReportMissingFast(version, findings);
    }
}

}  // namespace bundle_check
