#include "tests/cuts/virtual_wire.h"

#include <gmock/gmock.h>

#include <string>
#include <string_view>

#include "simulator/faults.h"

namespace {

using namespace cuts;
using namespace std::chrono_literals;
using simulator::FaultKind;

// Answers each byte with the same byte, one millisecond later.
class EchoUnit final : public simulator::SerialBootloader {
public:
    EchoUnit() : SerialBootloader(simulator::kStm32FaultKinds) {}

    simulator::UnitStatus Status() const override { return {}; }
    std::string const& Taken() const { return taken_; }

    using SerialBootloader::BeDeafWhileBusy;
    using SerialBootloader::Print;

private:
    void Take(std::byte byte) override
    {
        taken_ += static_cast<char>(byte);
        Send({byte}, 1ms);
    }

    std::string taken_;
};

constexpr auto kLimit = 100ms;

class VirtualWireTest : public testing::Test {
protected:
    // What the host receives for "abc" if it waits for as long as something comes.
    std::string Exchange(std::vector<WireFault> const& faults)
    {
        VirtualWire wire(unit_, 1'000'000, 10, faults);
        Send(wire);
        std::string received;
        for (auto bytes = Receive(wire); !bytes.empty(); bytes = Receive(wire)) {
            received += bytes;
        }
        return received;
    }

    static void Send(VirtualWire& wire)
    {
        constexpr std::string_view kText = "abc";
        wire.Send(std::as_bytes(std::span(kText)));
    }

    static std::string Receive(VirtualWire& wire, Chance chance = Chance::kLast)
    {
        std::string text;
        for (auto const byte : wire.Receive(kLimit, chance)) {
            text += static_cast<char>(byte);
        }
        return text;
    }

    EchoUnit unit_;
};

TEST_F(VirtualWireTest, EachFaultDoesWhatItsNameSays)
{
    using enum WireFaultKind;
    using enum Direction;
    struct Row {
        WireFaultKind kind;
        Direction direction;
        std::string_view taken;
        std::string_view received;
    };
    // All at the second byte, with the value '!'.
    for (auto const& row : {
             Row{kCut, kToUnit, "a", "a"},
             Row{kCut, kToHost, "abc", "a"},
             Row{kSwallow, kToUnit, "ac", "ac"},
             Row{kSwallow, kToHost, "abc", "ac"},
             Row{kFlip, kToUnit, "aCc", "aCc"},
             Row{kFlip, kToHost, "abc", "aCc"},
             Row{kReplace, kToUnit, "a!c", "a!c"},
             Row{kReplace, kToHost, "abc", "a!c"},
             Row{kExtraBefore, kToUnit, "a!bc", "a!bc"},
             Row{kExtraBefore, kToHost, "abc", "a!bc"},
             Row{kExtraAfter, kToUnit, "ab!c", "ab!c"},
             Row{kExtraAfter, kToHost, "abc", "ab!c"},
             Row{kStallBelow, kToUnit, "abc", "abc"},
             Row{kStallBelow, kToHost, "abc", "abc"},
             Row{kStallAbove, kToUnit, "abc", "a"},
             Row{kStallAbove, kToHost, "abc", "a"},
         }) {
        unit_ = EchoUnit();
        WireFault const fault{row.kind, row.direction, 1, std::byte{0x21}};
        EXPECT_EQ(Exchange({fault}), row.received) << ToText(fault);
        EXPECT_EQ(unit_.Taken(), row.taken) << ToText(fault);
    }
}

TEST_F(VirtualWireTest, FaultsOfOneByteActInTheirOrder)
{
    using enum WireFaultKind;
    auto const fault = [](WireFaultKind kind, char value) {
        return WireFault{kind, Direction::kToHost, 0, static_cast<std::byte>(value)};
    };
    EXPECT_EQ(Exchange({fault(kExtraBefore, '1'), fault(kExtraBefore, '2'), fault(kSwallow, ' '),
                        fault(kExtraAfter, '3')}),
              "123bc");
}

TEST_F(VirtualWireTest, BytesTakeTheLinesTimeAndTheUnits)
{
    VirtualWire wire(unit_, 1'000'000, 10);
    Send(wire);
    EXPECT_EQ(Receive(wire), "a");
    EXPECT_EQ(wire.Now(), 1ms + 20us) << "10 us there, 1 ms in the unit, 10 us back";
    EXPECT_EQ(Receive(wire), "b");
    EXPECT_EQ(wire.Now(), 2 * (1ms + 10us) + 10us) << "the unit works on one byte at a time";
    wire.Pass(1s);
    EXPECT_EQ(Receive(wire), "c");
    EXPECT_EQ(Receive(wire), "");
    EXPECT_EQ(wire.Now(), 2 * (1ms + 10us) + 10us + 1s + kLimit);
}

TEST_F(VirtualWireTest, AUnitSpeaksWithoutBeingAsked)
{
    unit_.Print("hello", 2ms);
    unit_.Print("again", 3ms);
    VirtualWire wire(unit_, 1'000'000, 10);
    Send(wire);
    EXPECT_EQ(Receive(wire), "hello");
    EXPECT_EQ(wire.Now(), 2ms + 50us);
    EXPECT_EQ(Receive(wire), "again");
    EXPECT_EQ(Receive(wire), "a") << "asked meanwhile, it answers when it has said all";
    EXPECT_EQ(wire.Now(), 6ms + 110us);
}

TEST_F(VirtualWireTest, ADeafUnitLosesWhatArrivesWhileItIsBusy)
{
    unit_.BeDeafWhileBusy();
    VirtualWire wire(unit_, 1'000'000, 10);
    Send(wire);
    EXPECT_EQ(unit_.Taken(), "a") << "busy from 10 us to 1,010 us";
    // The first and the second byte arrive before that, the third with the answer.
    wire.Pass(980us);
    Send(wire);
    EXPECT_EQ(unit_.Taken(), "ac");
    EXPECT_EQ(Receive(wire), "a");
    EXPECT_EQ(Receive(wire), "c");
    EXPECT_EQ(wire.Now(), 2ms + 30us) << "after the first answer's end at 1,020 us";
}

TEST_F(VirtualWireTest, AStalledByteComesJustBeforeOrJustAfterTheLastWait)
{
    for (auto const kind : {WireFaultKind::kStallBelow, WireFaultKind::kStallAbove}) {
        VirtualWire wire(unit_, 1'000'000, 10, {{kind, Direction::kToHost, 0}});
        Send(wire);
        EXPECT_EQ(Receive(wire, Chance::kLater), "");
        EXPECT_EQ(wire.Now(), kLimit);
        auto const is_below = kind == WireFaultKind::kStallBelow;
        EXPECT_EQ(Receive(wire), is_below ? "abc" : "");
        EXPECT_EQ(wire.Now(), 2 * kLimit - (is_below ? 1us : 0us));
        EXPECT_EQ(Receive(wire), is_below ? "" : "abc");
        EXPECT_EQ(wire.Now(), is_below ? 3 * kLimit - 1us : 2 * kLimit + 1us);
    }
}

}  // namespace
