// The unit behind its pseudo-terminal: what a client on the line sees, and control from outside.
// What a client of the port sees of plugging and unplugging: usb_serial_port_test.cpp.
#include "simulator/simulated_unit.h"

#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>
#include <thread>
#include <utility>

#include "simulator/program/control_session.h"
#include "tests/simulator/port_test_support.h"
#include "tests/simulator/recovery_client.h"

namespace simulator {
namespace {

using test::B;
using test::Bytes;
using test::Hex;
using test::PluggedUnit;
using test::RawClient;

TEST(SimulatedUnit, AnswersOnItsLineAndWaitsForSynchronisationAgainAfterAResetOrAPlug)
{
    PluggedUnit plugged;
    EXPECT_EQ(RawClient(plugged.Pty()).Ask(Hex("7F 02 FD"), 6), Hex("79 79 01 04 69 79"));
    EXPECT_EQ(plugged.unit.Status().state, UnitState::kSynchronised);
    EXPECT_EQ(ToText(plugged.unit.Journal().back()), "get-id ack");
    plugged.unit.Reset();
    EXPECT_EQ(RawClient(plugged.Pty()).Ask(Hex("7F"), 1), Hex("79"));
    plugged.unit.Fade();

    plugged.unit.Plug();

    EXPECT_EQ(RawClient(plugged.Pty()).Ask(Hex("7F"), 1), Hex("79"));
    EXPECT_EQ(plugged.unit.Status().connects, 3U);
}

TEST(SimulatedUnit, StaysInItsBootloaderWhenItIsPluggedInAgainAndHasItsOwnSupply)
{
    auto options = test::UniqueOptions();
    options.self_powered = true;
    PluggedUnit plugged(std::move(options));
    EXPECT_EQ(RawClient(plugged.Pty()).Ask(Hex("7F"), 1), Hex("79"));
    plugged.unit.Unplug();

    plugged.unit.Plug();

    EXPECT_EQ(RawClient(plugged.Pty()).Ask(Hex("02 FD 7F 7F"), 6), Hex("79 01 04 69 79 1F"));
    // A unit that a fault took from its host comes back as well; it hangs until its reset.
    plugged.unit.AddFault({FaultKind::kVanishInWrite});
    RawClient client(plugged.Pty());
    client.Send(Hex("31 CE"));
    EXPECT_TRUE(client.HangsUp());
    plugged.unit.Plug();
    RawClient other(plugged.Pty());
    other.Send(Hex("7F"));
    EXPECT_EQ(other.Receive(1, 50), Bytes());
    EXPECT_TRUE(plugged.unit.Status().plugged);
    plugged.unit.Reset();
    EXPECT_EQ(RawClient(plugged.Pty()).Ask(Hex("7F"), 1), Hex("79"));
}

TEST(SimulatedUnit, LeavesItsLineWhenAFaultStrikes)
{
    PluggedUnit plugged;
    plugged.unit.AddFault({FaultKind::kVanishInWrite, 1, 1, 2});
    RawClient client(plugged.Pty());
    EXPECT_EQ(client.Ask(Hex("7F 31 CE 08 00 00 00 08"), 3), Hex("79 79 79"));

    client.Send(Hex("03 11 22"));

    EXPECT_TRUE(client.HangsUp());
    EXPECT_FALSE(plugged.unit.Status().plugged);
    EXPECT_EQ(plugged.unit.Status().fault_strikes, 1U);
}

TEST(SimulatedUnit, LetsItsMemoryBeReadAndLoadedFromOutside)
{
    PluggedUnit plugged;

    plugged.unit.LoadMemory(0x08000000, B({1, 2, 3}));

    EXPECT_EQ(plugged.unit.ReadMemory(0x08000000, 4), B({1, 2, 3, 0xFF}));
    EXPECT_THROW(plugged.unit.ReadMemory(0x00000000, 4), std::out_of_range);
}

TEST(SimulatedUnit, MayBeControlledFromSeveralThreadsWhileItIsServed)
{
    PluggedUnit plugged;
    std::thread other([&] {
        for (int i = 0; i < 50; ++i) {
            plugged.unit.SetSilent(false);
            EXPECT_TRUE(plugged.unit.Status().plugged);
        }
    });
    RawClient client(plugged.Pty());
    for (int i = 0; i < 50; ++i) {
        plugged.unit.Reset();
        EXPECT_EQ(client.Ask(B({0x7F}), 1), B({0x79}));
    }
    other.join();
    EXPECT_EQ(plugged.unit.Status().connects, 50U);
}

// ---- A unit that talks unasked, and one that does not hear while it works ----

TEST(SimulatedUnit, PrintsItsBannerOnItsLineWhenItIsPluggedInAndWhenItIsReset)
{
    auto options = test::UniqueOptions();
    McubootRecoveryOptions bootloader;
    bootloader.talks = true;
    options.bootloader = bootloader;
    PluggedUnit plugged(std::move(options));
    RawClient client(plugged.Pty());
    auto const banner = test::ToBytes("*** Booting MCUboot ***\r\n");
    auto const line = test::ToBytes(kForeignLine.data());
    EXPECT_EQ(client.Receive(banner.size()), banner);
    EXPECT_EQ(client.Receive(line.size()), line);

    plugged.unit.Reset();

    EXPECT_EQ(client.Receive(banner.size()), banner) << "in the middle of the first";
}

TEST(SimulatedUnit, LosesWhatComesWhileItErasesItsSlot)
{
    auto options = test::UniqueOptions();
    options.bootloader = McubootRecoveryOptions();
    PluggedUnit plugged(std::move(options));
    plugged.unit.AddFault({FaultKind::kSlowErase, 1, 1, 200});
    RawClient client(plugged.Pty());
    auto const erase = [](uint8_t sequence) {
        return test::ToBytes(test::MakeRequest(2, 1, 5, "bfff", sequence));
    };
    constexpr size_t kAnswerSize = 27;

    client.Send(erase(0));
    while (plugged.unit.Journal().empty()) {
    }
    client.Send(erase(1));

    EXPECT_EQ(client.Receive(kAnswerSize).size(), kAnswerSize);
    EXPECT_EQ(test::BodyOf(test::ToArray(client.Ask(erase(2), kAnswerSize))).at(8), 2)
        << "the sequence number";
    EXPECT_EQ(plugged.unit.Journal().size(), 2U);
}

// ---- Time: the only test that looks at a clock ----

TEST(SimulatedUnit, KeepsThePaceOfItsLineAndOfItsChip)
{
    auto options = test::UniqueOptions();
    Stm32BootloaderOptions bootloader;
    bootloader.times = kRealTimes;
    options.bootloader = bootloader;
    options.baud = 115200;
    PluggedUnit plugged(std::move(options));
    RawClient client(plugged.Pty());
    client.Ask(Hex("7F"), 1);
    EXPECT_EQ(client.Receive(1, 50), Bytes()) << "the client hesitates, which gains it no time";
    constexpr int kWrites = 12;
    auto const data = test::DataBytes(Bytes(256, std::byte{0x5A}));

    auto const start = std::chrono::steady_clock::now();
    for (unsigned i = 0; i < kWrites; ++i) {
        ASSERT_EQ(client.Ask(Hex("31 CE"), 1), Hex("79"));
        ASSERT_EQ(client.Ask(test::AddressBytes(0x08000000 + 256 * i), 1), Hex("79"));
        ASSERT_EQ(client.Ask(data, 1), Hex("79"));
    }
    std::chrono::duration<double, std::milli> const taken =
        std::chrono::steady_clock::now() - start;

    // Each write: 268 bytes of 11 bits on the line, 32 double words of 82 us in the chip.
    constexpr double kExpected = kWrites * (268 * 11 / 115.2 + 32 * 0.082);
    EXPECT_GT(taken.count() / kExpected, 0.99);
    EXPECT_LT(taken.count() / kExpected, 1.5);
}

// ---- Control from outside ----

class ControlSessionTest : public testing::Test {
protected:
    std::shared_ptr<UsbTestbed> testbed_ = std::make_shared<UsbTestbed>();
    ControlSession session_{[this](unsigned number) {
        return std::make_unique<SimulatedUnit>(testbed_,
                                               test::UniqueOptions(std::to_string(number)));
    }};
};

TEST_F(ControlSessionTest, AnswersWhatItDoesNotUnderstandWithAnError)
{
    for (auto const& [command, answer] :
         {std::pair{"", ""}, std::pair{"unplugged", "error unknown command: unplugged"},
          std::pair{"dump 1", "error wrong number of arguments: dump"},
          std::pair{"plug x", "error not a number: x"},
          std::pair{"plug 0", "error units are numbered from 1 to 16"},
          std::pair{"fault earthquake", "error unknown fault: earthquake"},
          std::pair{"silent maybe", "error neither on nor off: maybe"},
          std::pair{"block on", "error not plugged in"},
          std::pair{"chmod 9", "error not an octal mode: 9"}}) {
        EXPECT_EQ(session_.Handle(command), answer);
    }
}

TEST_F(ControlSessionTest, ControlsTheUnitThatIsNamedOrSelected)
{
    EXPECT_TRUE(session_.Handle("plug 2").starts_with("ok port=/dev/ttyUSB"));
    EXPECT_FALSE(session_.Unit(1).Status().plugged);
    EXPECT_EQ(session_.Handle("unit 2"), "ok");
    EXPECT_EQ(session_.Handle("fault nack-command 2 1"), "ok");
    RawClient client(session_.Unit(2).Status().pty_path);
    EXPECT_EQ(client.Ask(Hex("7F 01 FE 01 FE"), 7), Hex("79 79 31 00 00 79 1F"));

    EXPECT_EQ(session_.Handle("journal"), "sync ack\nget-version ack\nget-version nack fault\nend");
    for (auto const* command : {"clear-faults", "reset", "silent on", "fade", "unplug", "quit"}) {
        EXPECT_FALSE(session_.Finished());
        EXPECT_EQ(session_.Handle(command), "ok") << command;
    }
    EXPECT_TRUE(session_.Finished());
}

TEST(ControlText, StatusIsOneLineOfKeysAndValues)
{
    UnitStatus status;
    status.device_path = "/dev/ttyUSB0";
    EXPECT_EQ(ToText(status),
              "state=bootloader synchronised=no plugged=no port=/dev/ttyUSB0 pty=none jump=none "
              "marker=none connects=0 erased=0 writes=0 over-unerased=0 fault-strikes=0 "
              "image-size=none stored=0");

    status = {UnitState::kRunning,
              true,
              "/dev/ttyUSB1",
              "/dev/pts/3",
              0x08000000,
              Hex("50 55 57 46"),
              1,
              2,
              3,
              4,
              5,
              6,
              7};
    EXPECT_EQ(ToText(status),
              "state=running synchronised=no plugged=yes port=/dev/ttyUSB1 pty=/dev/pts/3 "
              "jump=0x08000000 marker=PUWF connects=1 erased=2 writes=3 over-unerased=4 "
              "fault-strikes=5 image-size=6 stored=7");
    status.marker = B({0x00, 0xFF, 0x10, 0x20});
    EXPECT_NE(ToText(status).find("marker=0x00ff1020 "), std::string::npos);
}

TEST(ControlText, NumbersAreDecimalOrHexadecimalAndWhole)
{
    EXPECT_EQ(ParseNumber("31"), 31U);
    EXPECT_EQ(ParseNumber("0x1F"), 0x1FU);
    for (auto const* const text : {"", "0x", "12k", "-1", " 1", "0x100000000"}) {
        EXPECT_EQ(ParseNumber(text), std::nullopt) << text;
    }
}

}  // namespace
}  // namespace simulator
