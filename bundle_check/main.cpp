// bundle_check PATH [--json]: says what is wrong with a bundle before a customer sees it.

#include <QCoreApplication>
#include <QStringList>
#include <cstdio>
#include <exception>

#include "bundle_check/report.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int kUnusable = 2;

constexpr char kUsage[] =
    "usage: bundle_check PATH [--json]\n"
    "PATH: the folder that holds Contents, an application bundle, or its Contents or\n"
    "      Resources folder\n"
    "--json: the findings in a form for build machines\n"
    "Exits with 0 when the bundle is clean, 1 with warnings, 2 with errors.\n";

int Check(QString const& path, bool as_json)
{
    auto const report = bundle_check::CheckBundle(path);
    auto const text =
        as_json ? bundle_check::FormatJson(report) : bundle_check::FormatText(report).toUtf8();
    auto const written = std::fwrite(text.constData(), 1, static_cast<size_t>(text.size()), stdout);
    bool const complete = written == static_cast<size_t>(text.size()) && std::fflush(stdout) == 0;
    return complete ? bundle_check::GetExitStatus(report) : kUnusable;
}

}  // namespace

int main(int argc, char* argv[])
{
    QCoreApplication const application(argc, argv);
    auto arguments = QCoreApplication::arguments().mid(1);
    bool const as_json = arguments.removeAll(u"--json"_s) > 0;
    if (arguments.size() == 1 && arguments[0] == u"--help"_s) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (arguments.size() != 1 || arguments[0].isEmpty() || arguments[0].startsWith(u'-')) {
        std::fputs(kUsage, stderr);
        return kUnusable;
    }
    try {
        return Check(arguments[0], as_json);
    } catch (std::exception const& exception) {
        std::fprintf(stderr, "bundle_check: %s\n", exception.what());
        return kUnusable;
    }
}
