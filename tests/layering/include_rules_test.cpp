// The rules themselves, on made-up files: a rule that never finds anything proves nothing.
#include "tests/layering/include_rules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

bool IsCore(std::string const& include)
{
    return include == "QString" || include == "QtCore/QString";
}

using Offences = std::vector<std::string>;

}  // namespace

TEST(FindIncludes, SeesBothKindsHoweverTheyAreSpaced)
{
    EXPECT_THAT(FindIncludes("#include <QString>\n  #  include  \"app/backend.h\"\n// #include "
                             "\"no.h\"\nint x; #include <no>\n#include<map>"),
                ElementsAre("QString", "app/backend.h", "map"));
}

TEST(UpwardIncludes, AreThoseOfAFolderThatIsNotBelow)
{
    struct {
        std::string path;
        std::string include;
        bool allowed;
    } const rows[] = {
        {"updater/a.h", "app/b.h", false},
        {"modules/m/a.h", "updater/b.h", false},
        {"hal/uart/a.h", "updater/b.h", false},
        {"mcuboot/a.h", "app/b.h", false},
        {"runtime/a.h", "hal/uart/i_uart_driver.h", false},
        {"config/a.h", "runtime/b.h", false},
        {"bundle_check/a.h", "updater/b.h", false},
        {"bundle_check/a.h", "app/main_window.h", false},
        {"record/a.h", "runtime/b.h", false},
        {"hal/uart/i_uart_driver.h", "record/sink.h", false},
        {"modules/stm32_updater/stm32_uart_updater.h", "record/sink.h", false},
        {"mcuboot/a.h", "record/sink.h", false},
        // Neighbours.
        {"modules/m/a.h", "mcuboot/b.h", false},
        {"modules/m/a.h", "hal/uart/uart.h", false},
        {"hal/uart/a.h", "modules/m/b.h", false},
        {"mcuboot/a.h", "hal/uart/i_uart_driver.h", false},
        // What is no part of the product.
        {"app/a.h", "simulator/b.h", false},
        {"runtime/a.h", "tests/b.h", false},
        {"app/a.h", "benchmarks/b.h", false},
        // Downwards, within a folder, and out of the repository.
        {"app/a.h", "updater/b.h", true},
        {"app/a.h", "app/b.h", true},
        {"updater/a.h", "runtime/b.h", true},
        {"bundle_check/a.h", "config/b.h", true},
        {"runtime/a.h", "sys/types.h", true},
        // The exceptions, each beside what it does not allow.
        {"modules/m/a.h", "hal/uart/i_uart_driver.h", true},
        {"hal/uart/uart.cpp", "record/sink.h", true},
        {"modules/stm32_updater/stm32_dfu_util_updater.h", "record/sink.h", true},
        {"hal/uart/uart.cpp", "record/event.h", false},
        {"bundle_check/a.h", "updater/model_id.h", true},
        {"bundle_check/window_view.cpp", "app/main_window.h", true},
        {"make_otp/a.h", "updater/model_id.h", true},
        {"make_otp/a.h", "updater/otp_handler.h", true},
        {"make_otp/a.h", "updater/image_file.h", false},
        {"make_otp/a.h", "config/config_keys.h", false},
        {"for_firmware/a.h", "updater/model_id.h", false},
        {"for_firmware/a.h", "stdint.h", true},
        // The device's header is not the product's.
        {"updater/a.h", "for_firmware/unit_side.h", false},
        {"simulator/program/main.cpp", "modules/stm32_updater/limits.h", true},
        {"simulator/chips/a.cpp", "modules/stm32_updater/limits.h", false},
        {"simulator/programme/a.cpp", "mcuboot/limits.h", false},
        {"simulator/program/main.cpp", "mcuboot/limits.h", true},
        {"simulator/program/main.cpp", "mcuboot/smp_frame.h", false},
        {"simulator/program/a.cpp", "record/pcapng_reader.h", true},
        {"simulator/bootloaders/a.cpp", "record/pcapng_reader.h", false},
        {"simulator/program/main.cpp", "config/startup_config.h", false},
    };
    for (auto const& [path, include, allowed] : rows) {
        auto const offence = path + " includes " + include;
        EXPECT_EQ(FindUpwardIncludes({{path, {include}, ""}}),
                  allowed ? Offences{} : Offences{offence})
            << offence;
    }
}

TEST(Circles, AreFoundWhereverTheyBeginAndAreNotTwoWaysToOneHeader)
{
    EXPECT_THAT(FindCircles({{"a.h", {"b.h"}, ""},
                             {"b.h", {"string", "c.h", "d.h"}, ""},
                             {"c.h", {"d.h", "b.h"}, ""},
                             {"d.h", {}, ""}}),
                ElementsAre("b.h -> c.h -> b.h"));
    EXPECT_THAT(FindCircles({{"a.h", {"a.h"}, ""}}), ElementsAre("a.h -> a.h"));
}

TEST(ForbiddenQt, IsAllButCoreWithTheExceptionOfNamedFiles)
{
    struct {
        std::string path;
        std::string include;
        bool allowed;
    } const rows[] = {
        {"updater/a.h", "QWidget", false},
        {"updater/a.h", "QtGui/QFont", false},
        {"runtime/a.h", "QString", true},
        {"runtime/a.h", "QtCore/QString", true},
        {"runtime/a.h", "string", true},
        {"app/a.h", "QWidget", true},
        // The window that the checker draws.
        {"bundle_check/window_view.cpp", "QWidget", true},
        {"bundle_check/main.cpp", "QApplication", true},
        {"bundle_check/main.cpp", "QWidget", false},
        {"bundle_check/image_checks.cpp", "QWidget", false},
        {"bundle_check/value_checks.cpp", "QFontDatabase", false},
        // The serial port.
        {"hal/uart/uart.cpp", "QSerialPort", true},
        {"app/window_environment.cpp", "QSerialPortInfo", true},
        {"updater/serial_line.cpp", "QSerialPort", true},
        {"hal/uart/uart.h", "QSerialPort", false},
        {"app/main_window.cpp", "QSerialPortInfo", false},
        {"app/main_window.cpp", "QtSerialPort/QSerialPort", false},
    };
    for (auto const& [path, include, allowed] : rows) {
        auto const offence = path + " includes " + include;
        EXPECT_EQ(FindForbiddenQt({{path, {include}, ""}}, IsCore),
                  allowed ? Offences{} : Offences{offence})
            << offence;
    }
}

TEST(StraySettings, AreReadsOutsideTheConfigurationsFolder)
{
    std::string const read = "auto x = settings\n    .value(key);";
    EXPECT_THAT(FindStraySettings({{"app/main.cpp", {}, read}}),
                ElementsAre("app/main.cpp reads settings"));
    EXPECT_THAT(FindStraySettings({{"app/main.cpp", {}, "settings_->contains(key)"}}),
                testing::SizeIs(1));
    EXPECT_THAT(FindStraySettings({{"config/startup_config.cpp", {}, read}}), IsEmpty());
    EXPECT_THAT(FindStraySettings({{"app/main.cpp", {}, "ReadProducts(settings)"}}), IsEmpty());
}
