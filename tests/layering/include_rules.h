// The rules about who may include what, as pure functions over source files. The rules are applied
// to this repository by layering_test.cpp.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

struct SourceFile {
    std::string path;                   // from the repository root, such as "app/main.cpp"
    std::vector<std::string> includes;  // as written, without quotes or brackets
    std::string text;
};

// The headers and sources in these folders of `root`, in the order of their paths.
std::vector<SourceFile> ReadSources(std::filesystem::path const& root,
                                    std::vector<std::string> const& folders);

std::vector<std::string> FindIncludes(std::string const& text);

// Each function returns one line for each offence: "hal/uart/uart.cpp includes app/backend.h".

// Includes of a folder above or beside one's own: app -> updater -> modules, mcuboot, hal ->
// runtime, app -> updater -> record, and app, bundle_check -> config. Nobody includes tests or
// simulator. The exceptions are a list in the source file.
std::vector<std::string> FindUpwardIncludes(std::vector<SourceFile> const& files);

// The headers of each circle, in the order in which they include each other.
std::vector<std::string> FindCircles(std::vector<SourceFile> const& files);

// Outside app/, Qt means Qt Core, but for the named files that own a serial port or draw the
// window. `is_core_header` says whether an include belongs to Qt Core.
std::vector<std::string> FindForbiddenQt(
    std::vector<SourceFile> const& files,
    std::function<bool(std::string const&)> const& is_core_header);

// Reads of settings outside config/.
std::vector<std::string> FindStraySettings(std::vector<SourceFile> const& files);
