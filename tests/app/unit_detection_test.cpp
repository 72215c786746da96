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

QStringList Found(QList<SerialPortEntry> const& ports, QString const& product_type = u"debian"_s)
{
    return FindUnitPorts(ports, kProducts, product_type);
}

}  // namespace

TEST(UnitPorts, AreThoseOfEveryKnownProduct)
{
    EXPECT_EQ(Found({Unit(u"ttyUSB0"_s), {u"ttyACM1"_s, 0x0483, 0xDF11}}),
              QStringList({u"ttyUSB0"_s, u"ttyACM1"_s}));
}

TEST(UnitPorts, NeedBothIdentifiersOfOneProduct)
{
    EXPECT_EQ(Found({{u"a"_s, 0x10C4, 0xDF11},
                     {u"b"_s, 0x0483, 0xEA60},
                     {u"c"_s, 0xEA60, 0x10C4},
                     {u"d"_s, 0x10C4, 0xEA61},
                     {u"e"_s, 0, 0}}),
              QStringList());
}

TEST(UnitPorts, NeedIdentifiersAtAll)
{
    QMap<QString, uint32_t> const zero{{u"Zero"_s, 0}};
    QList<SerialPortEntry> const ports{
        {u"a"_s, std::nullopt, std::nullopt}, {u"b"_s, 0, std::nullopt}, {u"c"_s, std::nullopt, 0}};

    EXPECT_EQ(FindUnitPorts(ports, zero, u"debian"_s), QStringList());
    EXPECT_EQ(FindUnitPorts({{u"d"_s, 0, 0}}, zero, u"debian"_s), QStringList({u"d"_s}));
}

TEST(UnitPorts, AreNoneWithoutProductsOrPorts)
{
    EXPECT_EQ(Found({}), QStringList());
    EXPECT_EQ(FindUnitPorts({Unit(u"ttyUSB0"_s)}, {}, u"debian"_s), QStringList());
}

TEST(UnitPorts, OnMacosAreTheCallOutDevicesOnly)
{
    QList<SerialPortEntry> const ports{Unit(u"tty.usbserial-1"_s), Unit(u"cu.usbserial-1"_s)};

    for (auto const& product_type : {u"macos"_s, u"macOS"_s, u"MACOS"_s}) {
        EXPECT_EQ(Found(ports, product_type), QStringList({u"cu.usbserial-1"_s}));
    }
}

TEST(UnitPorts, OnMacosBeginWithCuInLowerCaseAndADot)
{
    EXPECT_EQ(Found({Unit(u"Cu.a"_s), Unit(u"CU.a"_s), Unit(u"cu-a"_s), Unit(u"cua"_s),
                     Unit(u"tty.cu.a"_s), Unit(u"cu."_s)},
                    u"macos"_s),
              QStringList({u"cu."_s}));
}

TEST(UnitPorts, OnOtherSystemsMayHaveAnyName)
{
    for (auto const& product_type : {u"debian"_s, u"windows"_s, u"osx"_s, u"macosx"_s, QString()}) {
        EXPECT_EQ(Found({Unit(u"COM3"_s)}, product_type), QStringList({u"COM3"_s}));
    }
}

TEST(SerialDecision, WithoutAUnitKeepsLooking)
{
    EXPECT_EQ(DecideSerial({}, false, kIntervals), (Detection{DetectionAction::None, {}, 300ms}));
}

TEST(SerialDecision, ConnectsToTheOnlyUnitAndLooksAgainLater)
{
    EXPECT_EQ(DecideSerial({u"ttyUSB0"_s}, false, kIntervals),
              (Detection{DetectionAction::Connect, u"ttyUSB0"_s, 20ms}));
}

TEST(SerialDecision, EndsTheDetectionWithTwoUnitsWhileNoneIsReady)
{
    EXPECT_EQ(DecideSerial({u"ttyUSB0"_s, u"ttyUSB1"_s}, false, kIntervals),
              (Detection{DetectionAction::None, {}, std::nullopt}));
    EXPECT_EQ(DecideSerial({u"a"_s, u"b"_s, u"c"_s}, false, kIntervals),
              (Detection{DetectionAction::None, {}, std::nullopt}));
}

TEST(SerialDecision, DisconnectsWhenTheReadyUnitIsGone)
{
    EXPECT_EQ(DecideSerial({}, true, kIntervals),
              (Detection{DetectionAction::Disconnect, {}, 300ms}));
}

TEST(SerialDecision, LeavesAReadyUnitAloneWhateverPortsThereAre)
{
    Detection const nothing{DetectionAction::None, {}, 300ms};

    EXPECT_EQ(DecideSerial({u"ttyUSB0"_s}, true, kIntervals), nothing);
    EXPECT_EQ(DecideSerial({u"ttyUSB0"_s, u"ttyUSB1"_s}, true, kIntervals), nothing);
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

TEST(UnitDfuDevices, AreThoseOfKnownProductsInAnyCase)
{
    EXPECT_EQ(FindUnitDfuDevices({u"0483:df11"_s, u"1d50:6089"_s, u"10C4:EA60"_s}, kProducts),
              QStringList({u"0483:df11"_s, u"10C4:EA60"_s}));
}

TEST(UnitDfuDevices, AreNotFoundWithSwappedIdentifiers)
{
    EXPECT_EQ(FindUnitDfuDevices({u"df11:0483"_s}, kProducts), QStringList());
}

TEST(UnitDfuDevices, CountOncePerListedLine)
{
    EXPECT_EQ(FindUnitDfuDevices({u"0483:df11"_s, u"0483:DF11"_s}, kProducts).size(), 2);
}

TEST(UsbDecision, ConnectsToTheOnlyDeviceWithoutAPortNameAndEndsTheDetection)
{
    EXPECT_EQ(DecideUsb({u"0483:df11"_s}, kIntervals),
              (Detection{DetectionAction::Connect, {}, std::nullopt}));
}

TEST(UsbDecision, KeepsLookingWithNoneOrSeveral)
{
    Detection const nothing{DetectionAction::None, {}, 300ms};

    EXPECT_EQ(DecideUsb({}, kIntervals), nothing);
    EXPECT_EQ(DecideUsb({u"0483:df11"_s, u"0483:df11"_s}, kIntervals), nothing);
}
