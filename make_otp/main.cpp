// make_otp writes the records of a unit's OTP area into a file, or prints those of a file.

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <cstdio>

#include "make_otp/otp_image.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int kNotAccepted = 1;
constexpr int kUnusable = 2;

// More than the OTP area of any supported chip.
constexpr qint64 kLongestFile = 64 * 1024;

constexpr char kDescription[] =
    "Writes what a unit's OTP area must hold into FILE, or with --read prints what FILE holds.\n"
    "Exits with 0, with 1 if a unit with this area would not be accepted or not be understood, "
    "and\n"
    "with 2 if nothing was written or FILE cannot be read.";

void Print(FILE* stream, QString const& text)
{
    std::fputs((text + u'\n').toLocal8Bit().constData(), stream);
}

int Fail(QString const& text)
{
    Print(stderr, u"make_otp: "_s + text);
    return kUnusable;
}

int Write(QString const& path, QString const& model_text, std::optional<QString> const& serial)
{
    auto const model = make_otp::ReadModel(model_text);
    if (!model) {
        return Fail(
            u"--model: '%1' is not a model identifier; give a decimal number from 0 to 255."_s.arg(
                model_text));
    }
    if (serial) {
        if (auto const fault = make_otp::FindFault(*serial); !fault.isEmpty()) {
            return Fail(u"--serial-number: "_s + fault);
        }
    }
    auto const image = make_otp::MakeImage(*model, serial.value_or(QString()));
    QFile file(path);
    // An error may show only when the last bytes leave the buffer.
    if (!file.open(QIODevice::WriteOnly) || file.write(image) != image.size() || !file.flush()) {
        return Fail(u"%1: %2"_s.arg(path, file.errorString()));
    }
    Print(stdout, u"%1: %2 bytes, to be programmed at the start of the OTP area"_s.arg(path).arg(
                      image.size()));
    return 0;
}

int Read(QString const& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return Fail(u"%1: %2"_s.arg(path, file.errorString()));
    }
    auto const area = file.read(kLongestFile + 1);
    if (file.error() != QFileDevice::NoError) {
        return Fail(u"%1: %2"_s.arg(path, file.errorString()));
    }
    if (area.size() > kLongestFile) {
        return Fail(u"%1: longer than any OTP area."_s.arg(path));
    }
    auto const description = make_otp::Describe(area);
    for (auto const& line : description.lines) {
        Print(stdout, line);
    }
    for (auto const& fault : description.faults) {
        Print(stderr, u"make_otp: "_s + fault);
    }
    return description.faults.isEmpty() ? 0 : kNotAccepted;
}

int Run(QStringList const& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromLatin1(kDescription));
    QCommandLineOption const help({u"h"_s, u"help"_s}, u"Print this text."_s);
    QCommandLineOption const model(u"model"_s, u"The unit's model identifier, 0 to 255."_s,
                                   u"NUMBER"_s);
    QCommandLineOption const serial(
        u"serial-number"_s,
        u"The unit's serial number, at most %1 characters."_s.arg(make_otp::kLongestSerialNumber),
        u"TEXT"_s);
    QCommandLineOption const read(u"read"_s, u"Write nothing; print the records of FILE."_s);
    parser.addOptions({help, model, serial, read});
    parser.addPositionalArgument(u"FILE"_s, u"The records, or a whole OTP area."_s);
    bool const understood = parser.parse(arguments);
    if (understood && parser.isSet(help)) {
        std::fputs(parser.helpText().toLocal8Bit().constData(), stdout);
        return 0;
    }
    auto const files = parser.positionalArguments();
    QString fault;
    if (!understood) {
        fault = parser.errorText();
    } else if (files.size() != 1 || files[0].isEmpty()) {
        fault = u"Give one FILE."_s;
    } else if (parser.isSet(read) == parser.isSet(model) ||
               (parser.isSet(read) && parser.isSet(serial))) {
        fault = u"Give either --read alone, or --model for a file to be written."_s;
    }
    if (!fault.isEmpty()) {
        Print(stderr, fault + u"\n\n"_s + parser.helpText());
        return kUnusable;
    }
    if (parser.isSet(read)) {
        return Read(files[0]);
    }
    return Write(files[0], parser.value(model),
                 parser.isSet(serial) ? std::optional(parser.value(serial)) : std::nullopt);
}

}  // namespace

int main(int argc, char* argv[])
{
    QCoreApplication const application(argc, argv);
    return Run(QCoreApplication::arguments());
}
