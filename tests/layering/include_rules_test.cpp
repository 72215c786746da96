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

std::vector<std::string> Upward(std::string const& path, std::string const& include)
{
    return FindUpwardIncludes({{path, {include}, ""}});
}

std::vector<std::string> Qt(std::string const& path, std::string const& include)
{
    return FindForbiddenQt({{path, {include}, ""}}, IsCore);
}

}  // namespace

TEST(FindIncludes, SeesBothKindsHoweverTheyAreSpaced)
{
    EXPECT_THAT(FindIncludes("#include <QString>\n  #  include  \"app/backend.h\"\n// #include "
                             "\"no.h\"\nint x; #include <no>\n#include<map>"),
                ElementsAre("QString", "app/backend.h", "map"));
}

TEST(UpwardIncludes, AreFoundInEveryFolder)
{
    EXPECT_THAT(Upward("updater/a.h", "app/b.h"), ElementsAre("updater/a.h includes app/b.h"));
    EXPECT_THAT(Upward("modules/m/a.h", "updater/b.h"), testing::SizeIs(1));
    EXPECT_THAT(Upward("hal/uart/a.h", "updater/b.h"), testing::SizeIs(1));
    EXPECT_THAT(Upward("mcuboot/a.h", "app/b.h"), testing::SizeIs(1));
    EXPECT_THAT(Upward("runtime/a.h", "hal/uart/i_uart_driver.h"), testing::SizeIs(1));
    EXPECT_THAT(Upward("app/a.h", "simulator/b.h"), testing::SizeIs(1));
    EXPECT_THAT(Upward("runtime/a.h", "tests/b.h"), testing::SizeIs(1));
    EXPECT_THAT(Upward("config/a.h", "runtime/b.h"), testing::SizeIs(1));
    EXPECT_THAT(Upward("bundle_check/a.h", "updater/b.h"), testing::SizeIs(1));
    EXPECT_THAT(Upward("app/a.h", "benchmarks/b.h"), testing::SizeIs(1));
}

TEST(UpwardIncludes, CountBetweenNeighboursToo)
{
    EXPECT_THAT(Upward("modules/m/a.h", "mcuboot/b.h"), testing::SizeIs(1));
    EXPECT_THAT(Upward("modules/m/a.h", "hal/uart/uart.h"), testing::SizeIs(1));
    EXPECT_THAT(Upward("hal/uart/a.h", "modules/m/b.h"), testing::SizeIs(1));
    EXPECT_THAT(Upward("mcuboot/a.h", "hal/uart/i_uart_driver.h"), testing::SizeIs(1));
}

TEST(UpwardIncludes, AreNotThoseThatPointDown)
{
    EXPECT_THAT(Upward("app/a.h", "updater/b.h"), IsEmpty());
    EXPECT_THAT(Upward("app/a.h", "app/b.h"), IsEmpty());
    EXPECT_THAT(Upward("updater/a.h", "runtime/b.h"), IsEmpty());
    EXPECT_THAT(Upward("modules/m/a.h", "hal/uart/i_uart_driver.h"), IsEmpty());
    EXPECT_THAT(Upward("runtime/a.h", "sys/types.h"), IsEmpty());
    EXPECT_THAT(Upward("bundle_check/a.h", "config/b.h"), IsEmpty());
    EXPECT_THAT(Upward("bundle_check/a.h", "updater/model_id.h"), IsEmpty());
}

TEST(UpwardIncludes, OfTheSimulatorAreItsProgramsLookAtTheLimitsAndNoMore)
{
    for (std::string const limits : {"modules/stm32_updater/limits.h", "mcuboot/limits.h"}) {
        EXPECT_THAT(Upward("simulator/program/main.cpp", limits), IsEmpty());
        EXPECT_THAT(Upward("simulator/chips/a.cpp", limits), testing::SizeIs(1));
        EXPECT_THAT(Upward("simulator/programme/a.cpp", limits), testing::SizeIs(1));
    }
    EXPECT_THAT(Upward("simulator/program/main.cpp", "mcuboot/smp_frame.h"), testing::SizeIs(1));
    EXPECT_THAT(Upward("simulator/program/main.cpp", "config/startup_config.h"),
                testing::SizeIs(1));
}

TEST(Circles, AreFoundWhereverTheyBegin)
{
    EXPECT_THAT(FindCircles({{"a.h", {"b.h"}, ""},
                             {"b.h", {"string", "c.h"}, ""},
                             {"c.h", {"d.h", "b.h"}, ""},
                             {"d.h", {}, ""}}),
                ElementsAre("b.h -> c.h -> b.h"));
    EXPECT_THAT(FindCircles({{"a.h", {"a.h"}, ""}}), ElementsAre("a.h -> a.h"));
}

TEST(Circles, AreNotTwoWaysToOneHeader)
{
    EXPECT_THAT(FindCircles({{"a.h", {"b.h", "c.h"}, ""},
                             {"b.h", {"d.h"}, ""},
                             {"c.h", {"d.h"}, ""},
                             {"d.h", {}, ""}}),
                IsEmpty());
}

TEST(ForbiddenQt, IsAllButCoreOutsideTheProgram)
{
    EXPECT_THAT(Qt("updater/a.h", "QWidget"), ElementsAre("updater/a.h includes QWidget"));
    EXPECT_THAT(Qt("updater/a.h", "QtGui/QFont"), testing::SizeIs(1));
    EXPECT_THAT(Qt("runtime/a.h", "QString"), IsEmpty());
    EXPECT_THAT(Qt("runtime/a.h", "QtCore/QString"), IsEmpty());
    EXPECT_THAT(Qt("app/a.h", "QWidget"), IsEmpty());
    EXPECT_THAT(Qt("runtime/a.h", "string"), IsEmpty());
}

TEST(ForbiddenQt, IsFontsButInTheFilesThatReadThem)
{
    EXPECT_THAT(Qt("bundle_check/resource_checks.cpp", "QFontDatabase"), IsEmpty());
    EXPECT_THAT(Qt("bundle_check/main.cpp", "QGuiApplication"), IsEmpty());
    EXPECT_THAT(Qt("bundle_check/resource_checks.cpp", "QWidget"), testing::SizeIs(1));
    EXPECT_THAT(Qt("bundle_check/value_checks.cpp", "QFontDatabase"), testing::SizeIs(1));
}

TEST(ForbiddenQt, IsTheSerialPortButInTheFilesThatOwnOne)
{
    EXPECT_THAT(Qt("hal/uart/uart.cpp", "QSerialPort"), IsEmpty());
    EXPECT_THAT(Qt("app/window_environment.cpp", "QSerialPortInfo"), IsEmpty());
    EXPECT_THAT(Qt("updater/serial_line.cpp", "QSerialPort"), IsEmpty());
    EXPECT_THAT(Qt("hal/uart/uart.h", "QSerialPort"), testing::SizeIs(1));
    EXPECT_THAT(Qt("app/main_window.cpp", "QSerialPortInfo"), testing::SizeIs(1));
    EXPECT_THAT(Qt("app/main_window.cpp", "QtSerialPort/QSerialPort"), testing::SizeIs(1));
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
