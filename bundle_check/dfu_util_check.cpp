#include "bundle_check/dfu_util_check.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QSysInfo>
#include <optional>

#include "bundle_check/bounded_file.h"

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
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(program, {argument});
    Run run;
    run.started = process.waitForStarted(static_cast<int>(deadline.remainingTime()));
    while (run.started && run.output.size() < kMostOutput &&
           process.waitForReadyRead(static_cast<int>(deadline.remainingTime()))) {
        run.output += process.readAll();
    }
    // One that has written so much is not waited for: what it goes on to write would be kept.
    run.finished = process.state() == QProcess::NotRunning ||
                   (run.output.size() < kMostOutput &&
                    process.waitForFinished(static_cast<int>(deadline.remainingTime())));
    run.output = (run.output + process.readAll()).left(kMostOutput);
    run.crashed = run.finished && process.exitStatus() == QProcess::CrashExit;
    process.kill();
    process.waitForFinished();
    return run;
}

// A program for the other system cannot be asked here, which is no fault of the bundle's.
bool IsForeignProgram(QString const& path)
{
    auto const head = ReadHead(path, 4).value_or(QByteArray());
    bool const is_elf = head ==
                        "\x7F"
                        "ELF";
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

// As a whole word: the C library in a program may speak of a "fastbin".
bool SpeaksOfFast(QString const& path)
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

// The modifiers stand at the beginning of a line each.
bool ListsFast(QByteArray const& usage)
{
    static QRegularExpression const modifier(u"^[ \\t]*fast(\\s|$)"_s,
                                             QRegularExpression::MultilineOption);
    return modifier.match(QString::fromUtf8(usage)).hasMatch();
}

// The minor number of a released version 0.x, which is all that there has been.
std::optional<int> ReadRelease(QByteArray const& output)
{
    static QRegularExpression const version(u"^dfu-util 0\\.(\\d{1,4})\\s*$"_s,
                                            QRegularExpression::MultilineOption);
    auto const match = version.match(QString::fromUtf8(output));
    return match.hasMatch() ? std::optional(match.captured(1).toInt()) : std::nullopt;
}

// Of a tool that does not seem to know "fast".
void TellMissingFast(Run const& version, Findings& findings)
{
    constexpr int kLastWithoutFast = 11;
    auto const release = ReadRelease(version.output);
    auto const consequence =
        u"it would refuse every update, and the window would call it done all the same"_s;
    if (release && *release <= kLastWithoutFast) {
        findings.Fail({},
                      u"dfu-util 0.%1 does not know the modifier \"fast\": %2."_s.arg(*release).arg(
                          consequence));
    } else {
        findings.Warn({},
                      u"Nothing tells that dfu-util knows the modifier \"fast\". If it does not, "
                      "%1. Try it on a unit."_s.arg(consequence));
    }
}

}  // namespace

void CheckDfuUtil(QString const& path, Findings& findings, std::chrono::milliseconds limit)
{
    auto const fault = TellFileFault(path);
    if (!fault.isEmpty()) {
        findings.Fail(
            {}, u"The tool dfu-util beside the program %1: over USB no unit is ever found."_s.arg(
                    fault));
        return;
    }
    if (!QFileInfo(path).isExecutable()) {
        findings.Fail(
            {},
            u"The tool dfu-util beside the program is not executable: over USB no unit is ever "
            "found."_s);
        return;
    }
    if (IsForeignProgram(path)) {
        findings.Note({}, u"dfu-util is a program for another system, and was not run."_s);
        if (!SpeaksOfFast(path)) {
            TellMissingFast({}, findings);
        }
        return;
    }
    auto const version = RunFor(path, u"-V"_s, limit);
    if (version.crashed) {
        findings.Fail({}, u"dfu-util crashes, or is killed, when asked for its version."_s);
        return;
    }
    if (!version.started || !version.finished) {
        findings.Fail({}, (version.started ? u"dfu-util does not end when asked for its version."_s
                                           : u"dfu-util cannot be run."_s));
        return;
    }
    if (!version.output.contains("dfu-util")) {
        findings.Warn({},
                      u"The tool beside the program does not name itself dfu-util when asked "
                      "for its version."_s);
    }
    // A script may see to the word itself, whatever the tool that it becomes can do.
    if (!ListsFast(RunFor(path, u"-h"_s, limit).output) &&
        !(IsScript(path) && SpeaksOfFast(path))) {
        TellMissingFast(version, findings);
    }
}

}  // namespace bundle_check
