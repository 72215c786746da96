// Which ports and DFU devices are units, and what is done about them.
#include "app/unit_detection.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

QMap<QString, uint32_t> const kProducts{{u"Flash"_s, 0xDF110483}, {u"Lumen"_s, 0xEA6010C4}};
constexpr DetectionIntervals kIntervals{.first = 1ms, .after_connect = 20ms, .idle = 300ms};

SerialPortEntry Unit(QString const& name)
{
    return {name, 0x10C4, 0xEA60};
}

}  // namespace

TEST(UnitPorts, HaveBothIdentifiersOfOneProductAndOnMacosTheNameOfACallOutDevice)
{
    QList<SerialPortEntry> const usual{Unit(u"ttyUSB0"_s), {u"ttyACM1"_s, 0x0483, 0xDF11}};
    QList<SerialPortEntry> const others{{u"a"_s, 0x10C4, 0xDF11},
                                        {u"b"_s, 0x0483, 0xEA60},
                                        {u"c"_s, 0xEA60, 0x10C4},
                                        {u"d"_s, 0x10C4, 0xEA61},
                                        {u"e"_s, 0, 0},
                                        {u"f"_s, std::nullopt, std::nullopt},
                                        {u"g"_s, 0x10C4, std::nullopt},
                                        {u"h"_s, std::nullopt, 0xEA60}};
    QList<SerialPortEntry> const twice{Unit(u"tty.usbserial-1"_s), Unit(u"cu.usbserial-1"_s)};
    QList<SerialPortEntry> const names{Unit(u"Cu.a"_s), Unit(u"CU.a"_s),   Unit(u"cu-a"_s),
                                       Unit(u"cua"_s),  Unit(u"tty.cu"_s), Unit(u"cu."_s)};
    QStringList const both{u"tty.usbserial-1"_s, u"cu.usbserial-1"_s};
    struct {
        char const* name;
        QList<SerialPortEntry> ports;
        QString product_type;
        QStringList units;
    } const rows[] = {
        {"every known product", usual, u"debian"_s, {u"ttyUSB0"_s, u"ttyACM1"_s}},
        {"others", others, u"debian"_s, {}},
        {"no ports", {}, u"debian"_s, {}},
        {"macos", twice, u"macos"_s, {u"cu.usbserial-1"_s}},
        {"macOS", twice, u"macOS"_s, {u"cu.usbserial-1"_s}},
        {"MACOS", twice, u"MACOS"_s, {u"cu.usbserial-1"_s}},
        {"names on macOS", names, u"macos"_s, {u"cu."_s}},
        {"debian", twice, u"debian"_s, both},
        {"windows", twice, u"windows"_s, both},
        {"osx", twice, u"osx"_s, both},
        {"macosx", twice, u"macosx"_s, both},
        {"an unknown system", twice, {}, both},
    };
    for (auto const& [name, ports, product_type, units] : rows) {
        EXPECT_EQ(FindUnitPorts(ports, kProducts, product_type), units) << name;
    }
    EXPECT_EQ(FindUnitPorts(usual, {}, u"debian"_s), QStringList()) << "no products";
}

TEST(UnitPorts, WithoutIdentifiersAreNotThoseOfAProductWhoseIdentifiersAreZero)
{
    QMap<QString, uint32_t> const zero{{u"Zero"_s, 0}};
    QList<SerialPortEntry> const ports{{u"a"_s, std::nullopt, std::nullopt},
                                       {u"b"_s, 0, std::nullopt},
                                       {u"c"_s, std::nullopt, 0},
                                       {u"d"_s, 0, 0}};

    EXPECT_EQ(FindUnitPorts(ports, zero, u"debian"_s), QStringList({u"d"_s}));
}

TEST(SerialDecision, FollowsTheNumberOfUnitsAndWhetherOneIsReady)
{
    using enum DetectionAction;
    struct {
        QStringList ports;
        bool is_ready;
        Detection detection;
    } const rows[] = {
        {{}, false, {None, {}, 300ms}},
        {{u"ttyUSB0"_s}, false, {Connect, u"ttyUSB0"_s, 20ms}},
        {{u"a"_s, u"b"_s}, false, {None, {}, std::nullopt}},  // the detection ends
        {{u"a"_s, u"b"_s, u"c"_s}, false, {None, {}, std::nullopt}},
        {{}, true, {Disconnect, {}, 300ms}},
        {{u"a"_s}, true, {None, {}, 300ms}},
        {{u"a"_s, u"b"_s}, true, {None, {}, 300ms}},
    };
    for (auto const& [ports, is_ready, detection] : rows) {
        EXPECT_EQ(DecideSerial(ports, is_ready, kIntervals), detection)
            << ports.size() << " ports, ready: " << is_ready;
    }
}

TEST(DetectionTimes, AreThoseOfTheProduct)
{
    DetectionIntervals const intervals;

    EXPECT_EQ(intervals.first, 100ms);
    EXPECT_EQ(intervals.after_connect, 4000ms);
    EXPECT_EQ(intervals.idle, 2000ms);
    EXPECT_EQ(intervals.list_limit, 30000ms);
}

TEST(DfuDevices, AreDescribedByTheFirstOnesAndTheNumberOfOthers)
{
    QStringList const eight(8, u"0483:df11"_s);

    EXPECT_EQ(DescribeDfuDevices({}), QStringList());
    EXPECT_EQ(DescribeDfuDevices({u"a"_s, u"b"_s}), QStringList({u"a"_s, u"b"_s}));
    EXPECT_EQ(DescribeDfuDevices(eight), eight);
    EXPECT_EQ(DescribeDfuDevices(eight + QStringList({u"1d50:6089"_s})),
              eight + QStringList({u"1 more"_s}));
}

TEST(UnitDfuDevices, AreThoseOfKnownProductsInAnyCaseOncePerListedLine)
{
    EXPECT_EQ(FindUnitDfuDevices(
                  {u"0483:df11"_s, u"1d50:6089"_s, u"df11:0483"_s, u"10C4:EA60"_s, u"0483:DF11"_s},
                  kProducts),
              QStringList({u"0483:df11"_s, u"10C4:EA60"_s, u"0483:DF11"_s}));
}

TEST(UsbDecision, ConnectsToTheOnlyDeviceAndEndsAndOtherwiseKeepsLooking)
{
    Detection const nothing{DetectionAction::None, {}, 300ms};

    EXPECT_EQ(DecideUsb({u"0483:df11"_s}, kIntervals),
              (Detection{DetectionAction::Connect, {}, std::nullopt}));
    EXPECT_EQ(DecideUsb({}, kIntervals), nothing);
    EXPECT_EQ(DecideUsb({u"0483:df11"_s, u"0483:df11"_s}, kIntervals), nothing);
}
