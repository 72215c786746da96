// bundle_check PATH: reports what is wrong with a bundle before a customer sees it, or prints the
// udev rules of its package.

#include <QApplication>
#include <QCommandLineParser>
#include <cstdio>
#include <exception>

#include "bundle_check/bundle_checker.h"
#include "bundle_check/udev_rules.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int kUnusable = 2;

constexpr char kDescription[] =
    "Reports what is wrong with a bundle before a customer sees it.\n"
    "Exits with 0 if the bundle is clean, 1 if there are warnings, 2 if there are errors.";

// Keeps Qt's messages about this computer and about damaged files out of the output: the report has
// all that is wrong with the bundle.
void PrintFatalOnly(QtMsgType type, QMessageLogContext const& /*context*/, QString const& text)
{
    if (type == QtFatalMsg) {
        std::fprintf(stderr, "bundle_check: %s\n", text.toLocal8Bit().constData());
    }
}

bool Print(QByteArray const& text)
{
    auto const written = std::fwrite(text.constData(), 1, static_cast<size_t>(text.size()), stdout);
    return written == static_cast<size_t>(text.size()) && std::fflush(stdout) == 0;
}

int Check(QString const& path, bundle_check::PackageRules const& rules, QString const& pictures,
          bool as_json)
{
    auto const report = bundle_check::CheckBundle(path, rules, pictures);
    auto const text =
        as_json ? bundle_check::FormatJson(report) : bundle_check::FormatText(report).toUtf8();
    return Print(text) ? bundle_check::GetExitStatus(report) : kUnusable;
}

int PrintUdevRules(QString const& path)
{
    bundle_check::Report report;
    if (auto const rules = bundle_check::MakeUdevRules(path, report.findings)) {
        return Print(rules->toUtf8()) ? 0 : kUnusable;
    }
    std::fputs(bundle_check::FormatText(report).toUtf8().constData(), stderr);
    return kUnusable;
}

int Run(QStringList const& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromLatin1(kDescription));
    QCommandLineOption const help({u"h"_s, u"help"_s}, u"Print this text."_s);
    QCommandLineOption const json(u"json"_s, u"Print the findings as JSON, for a build machine."_s);
    QCommandLineOption const pictures(
        u"pictures"_s, u"Also draw the window in every state to PNG files in this folder."_s,
        u"DIR"_s);
    QCommandLineOption const for_customers(
        u"for-customers"_s,
        u"The bundle is for customers: firmware that is not for customers is an error, as are "
        "keys, links out of the bundle and missing fonts."_s);
    QCommandLineOption const package_version(
        u"package-version"_s,
        u"The package, for customers or not, has this version: a different version of the firmware "
        "is an error, as are keys, links out of the bundle and missing fonts."_s,
        u"VERSION"_s);
    QCommandLineOption const slot(
        u"slot-size"_s,
        u"For MCUboot: an image larger than the unit's slot is an error. In decimal or with 0x."_s,
        u"BYTES"_s);
    QCommandLineOption const udev_rules(
        u"udev-rules"_s,
        u"Check nothing; print the udev rules for the units. PATH may also be a config.ini."_s);
    parser.addOptions({help, json, pictures, for_customers, package_version, slot, udev_rules});
    parser.addPositionalArgument(u"PATH"_s,
                                 u"The folder that contains Contents, an application bundle, or "
                                 "its Contents or Resources folder."_s);
    bool const understood = parser.parse(arguments);
    if (understood && parser.isSet(help)) {
        std::fputs(parser.helpText().toLocal8Bit().constData(), stdout);
        return 0;
    }
    auto const paths = parser.positionalArguments();
    if (!understood || paths.size() != 1 || paths[0].isEmpty()) {
        auto const fault = understood ? u"Give exactly one PATH."_s : parser.errorText();
        std::fputs((fault + u"\n\n"_s + parser.helpText()).toLocal8Bit().constData(), stderr);
        return kUnusable;
    }
    auto const slot_size = bundle_check::ReadByteCount(parser.value(slot));
    if (parser.isSet(slot) && !slot_size) {
        auto const fault =
            u"--slot-size: %1 is not a number of bytes; write it in decimal or with "
            "0x, like 262144 or 0x40000."_s.arg(bundle_check::Quote(parser.value(slot)));
        std::fputs((fault + u'\n').toLocal8Bit().constData(), stderr);
        return kUnusable;
    }
    if (parser.isSet(udev_rules)) {
        return PrintUdevRules(paths[0]);
    }
    return Check(
        paths[0],
        {parser.isSet(for_customers), parser.value(package_version), slot_size.value_or(0)},
        parser.value(pictures), parser.isSet(json));
}

}  // namespace

int main(int argc, char* argv[])
{
    // The window is drawn without a display, and with the same pixels whatever this computer
    // prefers.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    for (auto const* preference :
         {"QT_FONT_DPI", "QT_SCALE_FACTOR", "QT_SCREEN_SCALE_FACTORS", "QT_STYLE_OVERRIDE"}) {
        qunsetenv(preference);
    }
    qInstallMessageHandler(PrintFatalOnly);
    QApplication const application(argc, argv);
    try {
        return Run(QCoreApplication::arguments());
    } catch (std::exception const& exception) {
        std::fprintf(stderr, "bundle_check: %s\n", exception.what());
        return kUnusable;
    }
}
