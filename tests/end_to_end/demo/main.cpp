// demo: the program behind ./run. See demo.h; ./run --help lists the options that it passes on.
// Exits with 0 when the unit holds what it must, with 1 when not, with 2 for a wrong option.

#include <QApplication>
#include <QCommandLineParser>
#include <cstdio>

#include "tests/end_to_end/demo/demo.h"

using namespace Qt::StringLiterals;

namespace {

DemoOptions ReadOptions(QCoreApplication const& application)
{
    QCommandLineParser parser;
    parser.addOptions({
        {u"transport"_s, u"uart, mcuboot or usb."_s, u"name"_s, u"uart"_s},
        {u"bundle"_s, u"A bundle of one's own."_s, u"folder"_s},
        {u"baud"_s, u"The line's pace in bits a second."_s, u"number"_s},
        {u"directory"_s, u"For files."_s, u"folder"_s, u"build/run"_s},
        {u"replay"_s, u"The record of a session, whose unit answers."_s, u"file"_s},
        {u"by-itself"_s, u"Presses the button and keeps pictures."_s},
        {u"keep-open"_s, u"Leaves the window open."_s},
    });
    if (!parser.parse(application.arguments()) || !parser.positionalArguments().isEmpty()) {
        auto const text =
            parser.errorText().isEmpty() ? u"unexpected argument"_s : parser.errorText();
        throw UsageError(text.toStdString());
    }
    DemoOptions options;
    options.transport = FindTransport(parser.value(u"transport"_s));
    options.bundle = parser.value(u"bundle"_s);
    options.directory = parser.value(u"directory"_s);
    options.replay = parser.value(u"replay"_s);
    options.by_itself = parser.isSet(u"by-itself"_s);
    options.keep_open = parser.isSet(u"keep-open"_s);
    if (parser.isSet(u"baud"_s)) {
        bool is_number = false;
        options.baud = parser.value(u"baud"_s).toUInt(&is_number);
        if (!is_number) {
            throw UsageError("not a number: " + parser.value(u"baud"_s).toStdString());
        }
    }
    return options;
}

}  // namespace

int main(int argc, char** argv)
{
    QApplication const application(argc, argv);
    DrawAsTheProgramDoes();
    try {
        return Demo(ReadOptions(application)).Run() ? 0 : 1;
    } catch (UsageError const& error) {
        std::fprintf(stderr, "run: %s; see ./run --help\n", error.what());
        return 2;
    } catch (std::exception const& error) {
        std::printf("FAILED: %s\n", error.what());
        return 1;
    }
}
