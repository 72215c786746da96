// Which ports and DFU devices are units, and what is done about them.
#include "app/unit_detection.h"

#include <gtest/gtest.h>

#include <QFile>

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

TEST(DfuListing, GivesTheIdentifiersOfEachDeviceLine)
{
    EXPECT_EQ(ParseDfuListing(
                  "dfu-util 0.11\n"
                  "\n"
                  "This program is Free Software and has ABSOLUTELY NO WARRANTY\n"
                  "\n"
                  "Found DFU: [0483:df11] ver=0200, devnum=7, cfg=1, intf=0, path=\"1-2\", alt=0, "
                  "name=\"@Internal Flash   /0x08000000/256*02Kg\", serial=\"204638863141\"\n"
                  "Found Runtime: [1d50:6089] ver=0100, devnum=3, cfg=1, intf=2, path=\"1-1\"\n"),
              QStringList({u"0483:df11"_s, u"1d50:6089"_s}));
}

TEST(DfuListing, OfTheRealToolGivesItsUnit)
{
    QFile file(QStringLiteral(FW_RECORDED_LISTING));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));

    EXPECT_EQ(ParseDfuListing(file.readAll()), QStringList({u"0483:df11"_s}));
}

TEST(DfuListing, GivesForeignAndRuntimeDevicesForTheSearchToSort)
{
    auto const listed = ParseDfuListing(
        "Found Runtime: [0483:df11] ver=0100, devnum=3, cfg=1, intf=2, path=\"1-1\"\n"
        "Found DFU: [1209:db42] ver=0111, devnum=4, cfg=1, intf=0, path=\"1-3\", alt=0\n"
        "Found DFU: [0483:DF11] ver=2200, devnum=7, cfg=1, intf=0, path=\"1-2\", alt=0\n");

    EXPECT_EQ(listed, QStringList({u"0483:df11"_s, u"1209:db42"_s, u"0483:DF11"_s}));
    EXPECT_EQ(FindUnitDfuDevices(listed, kProducts), QStringList({u"0483:df11"_s, u"0483:DF11"_s}));
}

TEST(DfuListing, KeepsDuplicatesAndTheirOrder)
{
    EXPECT_EQ(ParseDfuListing("[0483:df11] alt=1\n[10c4:ea60]\n[0483:df11] alt=0\n"),
              QStringList({u"0483:df11"_s, u"10c4:ea60"_s, u"0483:df11"_s}));
}

TEST(DfuListing, TakesTheFirstOfSeveralOnALine)
{
    EXPECT_EQ(ParseDfuListing("[0483:df11] [10c4:ea60]\n"), QStringList({u"0483:df11"_s}));
}

TEST(DfuListing, KeepsTheCaseThatWasPrinted)
{
    EXPECT_EQ(ParseDfuListing("[0483:DF11]\n[0483:dF11]"),
              QStringList({u"0483:DF11"_s, u"0483:dF11"_s}));
}

TEST(DfuListing, TakesLinesWithCarriageReturnAndWithoutAnEnd)
{
    EXPECT_EQ(ParseDfuListing("[0483:df11]\r\n\r\nx [10c4:ea60]"),
              QStringList({u"0483:df11"_s, u"10c4:ea60"_s}));
}

TEST(DfuListing, IgnoresWhatOnlyLooksLikeIdentifiers)
{
    EXPECT_EQ(ParseDfuListing("[483:df11]\n[0483:df1]\n[00483:df11]\n[0483:df110]\n[0483-df11]\n"
                              "0483:df11\n[0483:dg11]\n[0483: df11]\n[0483:\ndf11]\n"),
              QStringList());
}

TEST(DfuListing, OfAMegabyteOfEmptyLinesHasOnlyItsUnit)
{
    QByteArray const lines(kLongestDfuListing, '\n');

    EXPECT_EQ(ParseDfuListing(lines + "[0483:df11]" + lines), QStringList({u"0483:df11"_s}));
}

TEST(DfuListing, IsDescribedByItsFirstDevicesAndTheNumberOfOthers)
{
    QStringList const eight(8, u"0483:df11"_s);

    EXPECT_EQ(DescribeDfuDevices({}), QStringList());
    EXPECT_EQ(DescribeDfuDevices({u"a"_s, u"b"_s}), QStringList({u"a"_s, u"b"_s}));
    EXPECT_EQ(DescribeDfuDevices(eight), eight);
    EXPECT_EQ(DescribeDfuDevices(eight + QStringList({u"1d50:6089"_s})),
              eight + QStringList({u"1 more"_s}));
}

TEST(DfuListing, OfNothingOrOfStrayBytesIsEmpty)
{
    EXPECT_EQ(ParseDfuListing({}), QStringList());
    EXPECT_EQ(ParseDfuListing(QByteArray("\xFF\x00\xFE\n", 4)), QStringList());
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
