#include "tests/layering/include_rules.h"

#include <QRegularExpression>
#include <QString>
#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <string_view>

namespace {

constexpr std::string_view kSerialPortOwners[] = {"hal/uart/uart.cpp", "hal/uart/port_watch.cpp",
                                                  "app/window_environment.cpp",
                                                  "updater/serial_line.cpp"};

// A file, or all files of a folder, and one header that the rules would otherwise keep from it.
struct Exception {
    std::string_view path;
    std::string_view include;
};

constexpr Exception kExceptions[] = {
    // The driver's interface, not the port behind it.
    {"modules/", "hal/uart/i_uart_driver.h"},
    // Where the bytes of a session pass. The rest of both folders is shared with the device
    // firmware, which keeps no record.
    {"hal/uart/uart.", "record/sink.h"},
    {"modules/stm32_updater/stm32_dfu_util_updater.", "record/sink.h"},
    // What the model check looks at; the header needs no linking.
    {"bundle_check/", "updater/model_id.h"},
    {"make_otp/", "updater/model_id.h"},
    {"make_otp/", "updater/otp_handler.h"},
    // The units themselves are written without a look at the product. Their program may state its
    // figures.
    {"simulator/program/", "modules/stm32_updater/limits.h"},
    {"simulator/program/", "mcuboot/limits.h"},
    // The program's own window, which the checker draws.
    {"bundle_check/main.cpp", "QApplication"},
    {"bundle_check/window_view.cpp", "app/main_window.h"},
    {"bundle_check/window_view.cpp", "updater/firmware_updater_base.h"},
    // Records of sessions know no transport, so a program can replay one.
    {"simulator/program/", "record/event.h"},
    {"simulator/program/", "record/pcapng_reader.h"},
};

// The only files outside app/ that may use fonts, pictures and widgets.
constexpr std::string_view kWindowFiles[] = {"app/", "bundle_check/window_"};

bool IsWindowFile(std::string const& path)
{
    return std::ranges::any_of(
        kWindowFiles, [&](std::string_view beginning) { return path.starts_with(beginning); });
}

bool IsException(std::string const& path, std::string const& include)
{
    return std::ranges::any_of(kExceptions, [&](Exception const& exception) {
        return path.starts_with(exception.path) && include == exception.include;
    });
}

std::string TopFolder(std::string const& path)
{
    return path.substr(0, path.find('/'));
}

// Which folders each folder may include from, itself apart.
std::map<std::string, std::set<std::string>> const kFoldersBelow{
    {"bundle_check", {"config", "modules", "mcuboot"}},
    {"config", {}},
    {"session_view", {"record", "modules", "mcuboot"}},
    {"make_otp", {}},
    {"for_firmware", {}},
    {"app", {"config", "updater", "modules", "mcuboot", "hal", "record", "runtime"}},
    {"updater", {"modules", "mcuboot", "hal", "record", "runtime"}},
    {"modules", {"runtime"}},
    {"mcuboot", {"runtime"}},
    {"hal", {"runtime"}},
    {"record", {}},
    {"runtime", {}},
    {"simulator", {}},
};

// From where nobody but their own files may include.
std::set<std::string> const kOtherFolders{"tests", "benchmarks", "fuzz"};

bool IsProjectInclude(std::string const& include)
{
    auto const folder = TopFolder(include);
    return kFoldersBelow.contains(folder) || kOtherFolders.contains(folder);
}

bool MayInclude(std::string const& path, std::string const& include)
{
    auto const below = kFoldersBelow.find(TopFolder(path));
    return below == kFoldersBelow.end() || below->first == TopFolder(include) ||
           below->second.contains(TopFolder(include)) || IsException(path, include);
}

// One line for each include that breaks a rule.
template <typename Rule>
std::vector<std::string> FindOffences(std::vector<SourceFile> const& files, Rule const& is_offence)
{
    std::vector<std::string> offences;
    for (auto const& file : files) {
        for (auto const& include : file.includes) {
            if (is_offence(file.path, include)) {
                offences.push_back(file.path + " includes " + include);
            }
        }
    }
    return offences;
}

bool IsQt(std::string const& include)
{
    static QRegularExpression const qt(QStringLiteral("^Q[A-Za-z0-9]+(/[A-Za-z0-9_.]+)?$"));
    return qt.match(QString::fromStdString(include)).hasMatch();
}

bool IsSerialPort(std::string const& include)
{
    return include.find("QSerialPort") != std::string::npos ||
           include.find("QtSerialPort") != std::string::npos;
}

using IncludeMap = std::map<std::string, std::vector<std::string>>;

// Walks depth first, `trail` being the way so far, and collects the trails that come back to where
// they were.
void Walk(IncludeMap const& includes, std::string const& path, std::vector<std::string>& trail,
          std::set<std::string>& done, std::vector<std::string>& circles)
{
    if (auto const seen = std::ranges::find(trail, path); seen != trail.end()) {
        std::string circle;
        for (auto step = seen; step != trail.end(); ++step) {
            circle += *step + " -> ";
        }
        circles.push_back(circle + path);
        return;
    }
    auto const found = includes.find(path);
    if (found == includes.end() || done.contains(path)) {
        return;
    }
    trail.push_back(path);
    for (auto const& include : found->second) {
        Walk(includes, include, trail, done, circles);
    }
    trail.pop_back();
    done.insert(path);
}

}  // namespace

std::vector<SourceFile> ReadSources(std::filesystem::path const& root,
                                    std::vector<std::string> const& folders)
{
    std::vector<SourceFile> files;
    for (auto const& folder : folders) {
        if (!std::filesystem::is_directory(root / folder)) {
            continue;
        }
        for (auto const& entry : std::filesystem::recursive_directory_iterator(root / folder)) {
            auto const extension = entry.path().extension();
            if (extension != ".h" && extension != ".cpp") {
                continue;
            }
            std::ifstream stream(entry.path());
            std::string const text{std::istreambuf_iterator<char>(stream), {}};
            files.push_back({std::filesystem::relative(entry.path(), root).generic_string(),
                             FindIncludes(text), text});
        }
    }
    std::ranges::sort(files, {}, &SourceFile::path);
    return files;
}

std::vector<std::string> FindIncludes(std::string const& text)
{
    static QRegularExpression const pattern(
        QStringLiteral(R"(^[ \t]*#[ \t]*include[ \t]*[<"]([^>"\n]+)[>"])"),
        QRegularExpression::MultilineOption);
    std::vector<std::string> includes;
    auto matches = pattern.globalMatch(QString::fromStdString(text));
    while (matches.hasNext()) {
        includes.push_back(matches.next().captured(1).toStdString());
    }
    return includes;
}

std::vector<std::string> FindUpwardIncludes(std::vector<SourceFile> const& files)
{
    return FindOffences(files, [](std::string const& path, std::string const& include) {
        return IsProjectInclude(include) && !MayInclude(path, include);
    });
}

std::vector<std::string> FindCircles(std::vector<SourceFile> const& files)
{
    IncludeMap includes;
    for (auto const& file : files) {
        includes[file.path] = file.includes;
    }
    std::vector<std::string> circles;
    std::vector<std::string> trail;
    std::set<std::string> done;
    for (auto const& file : files) {
        Walk(includes, file.path, trail, done, circles);
    }
    return circles;
}

std::vector<std::string> FindForbiddenQt(
    std::vector<SourceFile> const& files,
    std::function<bool(std::string const&)> const& is_core_header)
{
    return FindOffences(files, [&](std::string const& path, std::string const& include) {
        bool const allowed =
            IsSerialPort(include)
                ? std::ranges::find(kSerialPortOwners, path) != std::end(kSerialPortOwners)
                : IsWindowFile(path) || is_core_header(include) || IsException(path, include);
        return IsQt(include) && !allowed;
    });
}

std::vector<std::string> FindStraySettings(std::vector<SourceFile> const& files)
{
    static QRegularExpression const read(
        QStringLiteral(R"(settings_?\s*(\.|->)\s*(value|contains|allKeys)\b)"),
        QRegularExpression::CaseInsensitiveOption);
    std::vector<std::string> offences;
    for (auto const& file : files) {
        if (!file.path.starts_with("config/") &&
            read.match(QString::fromStdString(file.text)).hasMatch()) {
            offences.push_back(file.path + " reads settings");
        }
    }
    return offences;
}
