#include "tests/record/wireshark.h"

#include <QProcess>
#include <QRegularExpression>

#include "record/pcapng_reader.h"

using namespace Qt::StringLiterals;

namespace {

// tshark 4.4 escapes backslashes, 4.0 does not: no comparison may depend on their number.
QString WithSingleBackslashes(QString const& comment)
{
    static QRegularExpression const several(u"\\\\+"_s);
    return QString(comment).replace(several, u"\\"_s);
}

QStringList RunTool(QString const& tool, QStringList const& arguments)
{
    QProcess process;
    process.start(tool, arguments);
    if (!process.waitForFinished(60'000) || process.exitStatus() != QProcess::NormalExit) {
        return {tool + u" does not run"_s};
    }
    auto lines =
        QString::fromUtf8(process.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
    for (auto const& line :
         QString::fromUtf8(process.readAllStandardError()).split(u'\n', Qt::SkipEmptyParts)) {
        // As root it always says so.
        if (!line.startsWith(u"Running as user")) {
            lines.append(u"warning: "_s + line);
        }
    }
    if (process.exitCode() != 0) {
        lines.append(tool + u": exit status %1"_s.arg(process.exitCode()));
    }
    return lines;
}

}  // namespace

QStringList ReadWithTshark(QString const& path)
{
    // Link type USER0 is for private use, so tshark must be told that it means bytes.
    QStringList const options{
        u"-n"_s, u"-r"_s, path, u"-o"_s,
        u"uat:user_dlts:\"User 0 (DLT=147)\",\"data\",\"0\",\"\",\"0\",\"\""_s};
    auto lines = RunTool(
        u"tshark"_s,
        options + QStringList{u"-T"_s, u"fields"_s, u"-e"_s, u"frame.interface_name"_s, u"-e"_s,
                              u"frame.time_epoch"_s, u"-e"_s, u"frame.packet_flags_direction"_s,
                              u"-e"_s, u"frame.comment"_s, u"-e"_s, u"data.data"_s});
    for (auto& line : lines) {
        line = WithSingleBackslashes(line);
    }
    auto const doubtful =
        RunTool(u"tshark"_s, options + QStringList{u"-Y"_s,
                                                   u"_ws.malformed or "
                                                   "_ws.expert.severity >= \"Warning\""_s});
    for (auto const& packet : doubtful) {
        lines.append(u"warning: "_s + packet);
    }
    return lines;
}

QStringList ReadWithoutTshark(QString const& path)
{
    auto const recording = record::ReadPcapngFile(path);
    QStringList lines;
    for (auto const& packet : recording.packets) {
        constexpr uint64_t kPerSecond = 1'000'000'000;
        lines.append(QStringList{
            recording.interfaces[packet.interface].name,
            u"%1.%2"_s.arg(packet.time / kPerSecond)
                .arg(packet.time % kPerSecond, 9, 10, QLatin1Char('0')),
            u"0x%1"_s.arg(static_cast<uint32_t>(packet.direction), 8, 16, QLatin1Char('0')),
            WithSingleBackslashes(packet.comments.join(u',')),
            QString::fromLatin1(packet.bytes.toHex())}
                         .join(u'\t'));
    }
    if (!recording.error.isEmpty()) {
        lines.append(u"error: "_s + recording.error);
    }
    return lines;
}

QStringList ReadWithCapinfos(QString const& path)
{
    auto lines = RunTool(u"capinfos"_s, {u"-M"_s, path});
    for (auto& line : lines) {
        line = line.simplified();
    }
    return lines;
}
