// session_view FILE... [--summary]: shows the records of sessions as text.

#include <QCommandLineParser>
#include <QCoreApplication>
#include <algorithm>
#include <cstdio>

#include "session_view/view.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int kDamaged = 1;
constexpr int kUnusable = 2;

constexpr char kDescription[] =
    "Shows what happened in a session of the updater: each request with its answer and its time.\n"
    "Exits with 0, with 1 if a file is damaged, with 2 if one cannot be read at all.";

void Print(QString const& text, FILE* stream)
{
    auto const bytes = text.toLocal8Bit();
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stream);
}

// Returns the exit status.
int Show(QString const& path, bool as_summary)
{
    auto const recording = record::ReadPcapngFile(path);
    if (recording.packets.isEmpty() && !recording.error.isEmpty()) {
        Print(u"session_view: %1: %2\n"_s.arg(path, recording.error), stderr);
        return kUnusable;
    }
    Print(as_summary ? session_view::FormatSummary(recording)
                     : session_view::FormatConversation(recording),
          stdout);
    return recording.error.isEmpty() ? 0 : kDamaged;
}

}  // namespace

int main(int argc, char* argv[])
{
    QCoreApplication const application(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromLatin1(kDescription));
    QCommandLineOption const help({u"h"_s, u"help"_s}, u"Print this text."_s);
    QCommandLineOption const summary(
        u"summary"_s, u"Show only phases, slowest answers and the cause of a failure."_s);
    parser.addOptions({help, summary});
    parser.addPositionalArgument(u"FILE"_s, u"A record, as a customer sends it."_s, u"FILE..."_s);
    bool const understood = parser.parse(QCoreApplication::arguments());
    if (understood && parser.isSet(help)) {
        Print(parser.helpText(), stdout);
        return 0;
    }
    auto const paths = parser.positionalArguments();
    if (!understood || paths.isEmpty()) {
        auto const fault = understood ? u"Give at least one FILE."_s : parser.errorText();
        Print(fault + u"\n\n"_s + parser.helpText(), stderr);
        return kUnusable;
    }
    int status = 0;
    for (auto const& path : paths) {
        if (paths.size() > 1) {
            Print(u"==== %1\n"_s.arg(path), stdout);
        }
        status = std::max(status, Show(path, parser.isSet(summary)));
    }
    return status;
}
