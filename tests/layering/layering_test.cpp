// Applies the include rules to this repository's sources, and proves by compiling that the headers
// of protocols and configuration need neither widgets nor a serial port.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iterator>

#include "config/config_keys.h"
#include "tests/layering/include_rules.h"
// Written by CMake: every such header.
#include "every_protocol_header.h"

using testing::IsEmpty;

namespace {

std::vector<SourceFile> const& Sources()
{
    static auto const sources = ReadSources(FW_SOURCE_DIR, {"app", "config", "updater", "modules",
                                                            "mcuboot", "hal", "record", "runtime"});
    return sources;
}

bool IsCoreHeader(std::string const& include)
{
    constexpr std::string_view folder = "QtCore/";
    auto const name = include.starts_with(folder) ? include.substr(folder.size()) : include;
    return std::filesystem::exists(std::filesystem::path(FW_QT_CORE_DIR) / name);
}

}  // namespace

TEST(ProtocolHeaders, CompileWithoutWidgetsAndSerialPortInReach)
{
#if __has_include(<QWidget>) || __has_include(<QFont>)
    ADD_FAILURE() << "widgets are on the include path";
#endif
#if __has_include(<QSerialPort>)
    ADD_FAILURE() << "the serial port is on the include path";
#endif
    EXPECT_GE(kProtocolHeaders, 25);
}

TEST(Layering, LooksAtAllSources)
{
    auto const has = [](std::string const& path) {
        return std::ranges::find(Sources(), path, &SourceFile::path) != Sources().end();
    };

    EXPECT_TRUE(has("app/main.cpp"));
    EXPECT_TRUE(has("config/startup_config.cpp"));
    EXPECT_TRUE(has("updater/uart_firmware_updater.cpp"));
    EXPECT_TRUE(has("modules/stm32_updater/stm32_uart_updater.cpp"));
    EXPECT_TRUE(has("hal/uart/uart.cpp"));
    EXPECT_TRUE(has("record/event.cpp"));
    EXPECT_TRUE(has("runtime/dispatcher.cpp"));
    EXPECT_TRUE(IsCoreHeader("QString") && IsCoreHeader("QtCore/QString"));
    EXPECT_FALSE(IsCoreHeader("QWidget"));
}

TEST(Layering, TheProgramKeepsToTheRules)
{
    EXPECT_THAT(FindUpwardIncludes(Sources()), IsEmpty());
    EXPECT_THAT(FindForbiddenQt(Sources(), IsCoreHeader), IsEmpty());
    EXPECT_THAT(FindStraySettings(Sources()), IsEmpty());
}

TEST(Layering, NoHeadersIncludeEachOtherInACircle)
{
    EXPECT_THAT(FindCircles(ReadSources(
                    FW_SOURCE_DIR, {"app", "config", "updater", "modules", "mcuboot", "hal",
                                    "record", "runtime", "bundle_check", "session_view", "make_otp",
                                    "for_firmware", "simulator", "tests", "benchmarks", "fuzz"})),
                IsEmpty());
}

TEST(Layering, TheSimulatorAndTheBundleCheckerKeepToTheRules)
{
    EXPECT_THAT(FindUpwardIncludes(ReadSources(FW_SOURCE_DIR, {"simulator"})), IsEmpty());
    auto const checker = ReadSources(FW_SOURCE_DIR, {"bundle_check"});
    EXPECT_THAT(checker, testing::Not(IsEmpty()));
    EXPECT_THAT(FindUpwardIncludes(checker), IsEmpty());
    EXPECT_THAT(FindForbiddenQt(checker, IsCoreHeader), IsEmpty());
}

TEST(Layering, TheReaderOfRecordsKeepsToTheRules)
{
    auto const reader = ReadSources(FW_SOURCE_DIR, {"session_view"});
    EXPECT_THAT(reader, testing::Not(IsEmpty()));
    EXPECT_THAT(FindUpwardIncludes(reader), IsEmpty());
    EXPECT_THAT(FindForbiddenQt(reader, IsCoreHeader), IsEmpty());
}

TEST(Layering, TheToolAndTheHeaderForTheUnitsSideKeepToTheRules)
{
    for (auto const* folder : {"make_otp", "for_firmware"}) {
        auto const sources = ReadSources(FW_SOURCE_DIR, {folder});
        EXPECT_THAT(sources, testing::Not(IsEmpty())) << folder;
        EXPECT_THAT(FindUpwardIncludes(sources), IsEmpty());
        EXPECT_THAT(FindForbiddenQt(sources, IsCoreHeader), IsEmpty());
    }
}

TEST(Layering, TheHeaderForDeviceFirmwareIncludesOnlyWhatEveryCCompilerHas)
{
    EXPECT_THAT(ReadSources(FW_SOURCE_DIR, {"for_firmware"}).at(0).includes,
                testing::ElementsAre("stdbool.h", "stddef.h", "stdint.h"));
}

TEST(Layering, OnlyTheTableSpellsTheConfigurationsKeys)
{
    auto files = Sources();
    std::ranges::copy(ReadSources(FW_SOURCE_DIR, {"bundle_check"}), std::back_inserter(files));
    for (auto const& file : files) {
        for (auto const* key : config_keys::kAll) {
            auto const literal = '"' + QString(key->name).toStdString() + '"';
            EXPECT_EQ(file.text.find(literal) != std::string::npos,
                      file.path == "config/config_keys.h")
                << file.path << " and " << literal;
        }
    }
}
