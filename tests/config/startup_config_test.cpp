// What becomes of each line of config.ini.
#include "config/startup_config.h"
#include "config/bundle_paths.h"

#include <gtest/gtest.h>

#include "tests/config/ini_file.h"

using namespace Qt::StringLiterals;

namespace {

using Products = QMap<QString, uint32_t>;
using DeviceIds = QList<uint8_t>;

uint32_t AddressOf(QByteArray const& text)
{
    IniFile ini("programming_address=" + text + "\n");
    return ReadUartConfig(ini.Settings()).programming_address;
}

uint32_t OtpSizeOf(QByteArray const& text)
{
    IniFile ini("otp_size=" + text + "\n");
    return ReadUartConfig(ini.Settings()).otp_size;
}

targetInterfaceType InterfaceOf(QByteArray const& text)
{
    IniFile ini("interface=" + text + "\n");
    return ReadInterfaceType(ini.Settings());
}

Products ProductsOf(QByteArray const& text)
{
    IniFile ini("product_list=" + text + "\n");
    return ReadProducts(ini.Settings());
}

DeviceIds DeviceIdsOf(QByteArray const& text)
{
    IniFile ini("device_id_list=" + text + "\n");
    return ReadDeviceIds(ini.Settings());
}

QString TitleOf(QByteArray const& text)
{
    IniFile ini("window_title=" + text + "\n");
    return ReadWindowTexts(ini.Settings()).window_title;
}

QString InstructionsOf(QByteArray const& text)
{
    IniFile ini("instructions_text=" + text + "\n");
    return ReadWindowTexts(ini.Settings()).instructions;
}

}  // namespace

TEST(InterfaceTypes, HaveTheirNumbers)
{
    EXPECT_EQ(TargetUart, 1U);
    EXPECT_EQ(TargetUsb, 2U);
    EXPECT_EQ(TargetMcubootSerial, 3U);
    EXPECT_EQ(sizeof(targetInterfaceType), 4U);
}

TEST(Paths, FollowFromTheProgramsDirectoryWithoutBeingTidied)
{
    auto const paths = GetBundlePaths(u"/Apps/Up.app/Contents/MacOS"_s);

    EXPECT_EQ(paths.resources, u"/Apps/Up.app/Contents/MacOS/../Resources"_s);
    EXPECT_EQ(paths.dfu_util, u"/Apps/Up.app/Contents/MacOS/../MacOS/dfu-util"_s);
}

TEST(Paths, TheConfigurationLiesInTheResourceDirectory)
{
    EXPECT_EQ(GetConfigPath(QDir(u"/a/MacOS/../Resources"_s)),
              u"/a/MacOS/../Resources/config.ini"_s);
}

TEST(Paths, AFirmwareNameIsTakenFromTheResourceDirectory)
{
    IniFile ini("firmware_filename=images/fw.bin\n");
    EXPECT_EQ(GetFirmwarePath(QDir(u"/r"_s), ini.Settings()), u"/r/images/fw.bin"_s);
}

TEST(Paths, AnAbsoluteFirmwareNameStandsForItself)
{
    IniFile ini("firmware_filename=/images/fw.bin\n");
    EXPECT_EQ(GetFirmwarePath(QDir(u"/r"_s), ini.Settings()), u"/images/fw.bin"_s);
}

TEST(Paths, WithoutAFirmwareNameTheResourceDirectoryItselfIsMeant)
{
    IniFile absent("");
    EXPECT_EQ(GetFirmwarePath(QDir(u"/r"_s), absent.Settings()), u"/r"_s);

    IniFile empty("firmware_filename=\n");
    EXPECT_EQ(GetFirmwarePath(QDir(u"/r"_s), empty.Settings()), u"/r"_s);
}

TEST(MissingConfiguration, ChoosesUartWithEverythingZeroOrEmpty)
{
    QTemporaryDir const directory;
    QSettings const settings(directory.filePath(u"config.ini"_s), QSettings::IniFormat);

    EXPECT_EQ(ReadInterfaceType(settings), TargetUart);
    auto const uart = ReadUartConfig(settings);
    EXPECT_EQ(uart.start_address, 0U);
    EXPECT_EQ(uart.programming_address, 0U);
    EXPECT_EQ(uart.otp_address, 0U);
    EXPECT_EQ(uart.otp_size, 0U);
    EXPECT_EQ(uart.boot_mode_address, 0U);
    EXPECT_EQ(uart.fw_target_type, QString());
    EXPECT_EQ(ReadProducts(settings), Products());
    EXPECT_EQ(ReadDeviceIds(settings), DeviceIds());
    auto const texts = ReadWindowTexts(settings);
    EXPECT_EQ(texts.window_title, u"Kelvane firmware updater"_s);
    EXPECT_EQ(texts.instructions, QString());
    EXPECT_EQ(texts.product, QString());
    EXPECT_EQ(texts.fw_version, QString());
    EXPECT_EQ(texts.fw_target_type, QString());
}

TEST(Interface, IsChosenByItsExactName)
{
    EXPECT_EQ(InterfaceOf("usb"), TargetUsb);
    EXPECT_EQ(InterfaceOf("\"usb\""), TargetUsb);
    EXPECT_EQ(InterfaceOf("mcuboot_serial"), TargetMcubootSerial);
    EXPECT_EQ(InterfaceOf("uart"), TargetUart);
}

TEST(Interface, IsUartForAnythingElse)
{
    for (auto const* text : {"", "USB", "Usb", "usb1", "\"usb \"", "usb, usb", "MCUBOOT_SERIAL",
                             "Mcuboot_Serial", "mcuboot-serial", "2"}) {
        EXPECT_EQ(InterfaceOf(text), TargetUart) << text;
    }
}

TEST(Address, IsReadByItsPrefix)
{
    EXPECT_EQ(AddressOf("0x08000000"), 134217728U);
    EXPECT_EQ(AddressOf("0X1fff7000"), 0x1FFF7000U);
    EXPECT_EQ(AddressOf("0b101"), 5U);
    EXPECT_EQ(AddressOf("010"), 8U);
    EXPECT_EQ(AddressOf("134217728"), 0x08000000U);
    EXPECT_EQ(AddressOf("0"), 0U);
    EXPECT_EQ(AddressOf("\"0x10\""), 16U);
}

TEST(Address, FillsThirtyTwoBits)
{
    EXPECT_EQ(AddressOf("0xFFFFFFFF"), 0xFFFFFFFFU);
    EXPECT_EQ(AddressOf("4294967295"), 0xFFFFFFFFU);
}

TEST(Address, ThatDoesNotFitOrParseIsZero)
{
    for (auto const* text : {"0x100000000", "4294967296", "-1", "", "junk", "0x", "0xG", "08",
                             "0b2", "12 34", "1.5", "1e3", "0x10h", "1, 2"}) {
        EXPECT_EQ(AddressOf(text), 0U) << text;
    }
}

TEST(UartConfiguration, TakesEachKeyToItsOwnPlace)
{
    IniFile ini(
        "start_address=0x08000001\n"
        "programming_address=0x08000002\n"
        "otp_address=0x1FFF7003\n"
        "otp_size=512\n"
        "boot_mode_address=0x20000005\n"
        "fw_target_type=service\n");

    auto const uart = ReadUartConfig(ini.Settings());

    EXPECT_EQ(uart.start_address, 0x08000001U);
    EXPECT_EQ(uart.programming_address, 0x08000002U);
    EXPECT_EQ(uart.otp_address, 0x1FFF7003U);
    EXPECT_EQ(uart.otp_size, 512U);
    EXPECT_EQ(uart.boot_mode_address, 0x20000005U);
    EXPECT_EQ(uart.fw_target_type, u"service"_s);
}

TEST(UsbConfiguration, TakesEachKeyToItsOwnPlace)
{
    IniFile ini(
        "programming_address=0x08000002\n"
        "otp_address=0x1FFF7003\n"
        "otp_size=512\n"
        "fw_target_type=service\n");

    auto const usb = ReadUsbConfig(ini.Settings());

    EXPECT_EQ(usb.programming_address, 0x08000002U);
    EXPECT_EQ(usb.otp_address, 0x1FFF7003U);
    EXPECT_EQ(usb.otp_size, 512U);
    EXPECT_EQ(usb.fw_target_type, u"service"_s);
}

TEST(UartConfiguration, ReadsEveryAddressByItsPrefix)
{
    IniFile ini("start_address=010\notp_address=0b11\nboot_mode_address=0x100000000\n");

    auto const uart = ReadUartConfig(ini.Settings());

    EXPECT_EQ(uart.start_address, 8U);
    EXPECT_EQ(uart.otp_address, 3U);
    EXPECT_EQ(uart.boot_mode_address, 0U);
}

TEST(UartConfiguration, KeysInASectionDoNotCount)
{
    IniFile ini("[Addresses]\nstart_address=1\n");

    EXPECT_EQ(ReadUartConfig(ini.Settings()).start_address, 0U);
}

TEST(McubootConfiguration, HasABaudRateOfItsOwnWhenNoneIsGiven)
{
    IniFile ini("interface=mcuboot_serial\n");

    EXPECT_EQ(ReadMcubootConfig(ini.Settings()).baud, 921600U);
}

TEST(McubootConfiguration, TakesEachKeyToItsOwnPlace)
{
    IniFile ini("mcuboot_baud=115200\nfw_target_type=service\n");

    auto const mcuboot = ReadMcubootConfig(ini.Settings());

    EXPECT_EQ(mcuboot.baud, 115200U);
    EXPECT_EQ(mcuboot.fw_target_type, u"service"_s);
}

TEST(McubootConfiguration, HasNoBaudRateWhenTheKeyIsNoDecimalNumber)
{
    for (auto const* text : {"", "fast", "0x1C200", "-1", "115200.5", "4294967296", "1, 2"}) {
        IniFile ini("mcuboot_baud=" + QByteArray(text) + "\n");

        EXPECT_EQ(ReadMcubootConfig(ini.Settings()).baud, 0U) << text;
    }
}

TEST(OtpSize, IsDecimalOnly)
{
    EXPECT_EQ(OtpSizeOf("1024"), 1024U);
    EXPECT_EQ(OtpSizeOf("010"), 10U);
    EXPECT_EQ(OtpSizeOf("0x200"), 0U);
    EXPECT_EQ(OtpSizeOf("junk"), 0U);
    EXPECT_EQ(OtpSizeOf(""), 0U);
}

TEST(UsbIds, ArePackedWithTheVendorInTheLowHalf)
{
    EXPECT_EQ(PackUsbIds(0x0483, 0xDF11), 0xDF110483U);
    EXPECT_EQ(PackUsbIds(0x10483, 0xDF11), 0xDF110483U);
    EXPECT_EQ(PackUsbIds(0xFFFF, 0), 0x0000FFFFU);
}

TEST(ProductList, OfOneEntry)
{
    EXPECT_EQ(ProductsOf("Flash:0483:df11"), (Products{{u"Flash"_s, 0xDF110483}}));
}

TEST(ProductList, OfSeveralEntriesIsOrderedByName)
{
    auto const products = ProductsOf("Lumen:10c4:EA60, Flash:0483:DF11");

    EXPECT_EQ(products, (Products{{u"Flash"_s, 0xDF110483}, {u"Lumen"_s, 0xEA6010C4}}));
    EXPECT_EQ(products.firstKey(), u"Flash"_s);
}

TEST(ProductList, TellsNamesApartByCase)
{
    EXPECT_EQ(ProductsOf("flash:0483:df11, Flash:10c4:ea60"),
              (Products{{u"Flash"_s, 0xEA6010C4}, {u"flash"_s, 0xDF110483}}));
}

TEST(ProductList, KeepsTheLastEntryOfARepeatedName)
{
    EXPECT_EQ(ProductsOf("Flash:0483:df11, Flash:10c4:ea60"), (Products{{u"Flash"_s, 0xEA6010C4}}));
}

TEST(ProductList, TakesIdsThatDoNotParseForZero)
{
    EXPECT_EQ(ProductsOf("A:xyz:df11, B:0483:, C::df11"),
              (Products{{u"A"_s, 0xDF110000}, {u"B"_s, 0x00000483}, {u"C"_s, 0xDF110000}}));
}

TEST(ProductList, CutsIdsThatAreTooLongTo16Bits)
{
    EXPECT_EQ(ProductsOf("A:10483:2df11"), (Products{{u"A"_s, 0xDF110483}}));
}

TEST(ProductList, KeepsAnEmptyNameAndIgnoresAFourthPiece)
{
    EXPECT_EQ(ProductsOf(":0483:df11"), (Products{{QString(), 0xDF110483}}));
    EXPECT_EQ(ProductsOf("A:0483:df11:9999"), (Products{{u"A"_s, 0xDF110483}}));
}

TEST(ProductList, LeavesOutEntriesOfFewerThanThreePieces)
{
    EXPECT_EQ(ProductsOf("A, B:0483, Flash:0483:df11"), (Products{{u"Flash"_s, 0xDF110483}}));
    EXPECT_EQ(ProductsOf(""), Products());
}

TEST(DeviceIdList, OfOneNumber)
{
    EXPECT_EQ(DeviceIdsOf("12"), (DeviceIds{12}));
    EXPECT_EQ(DeviceIdsOf("\"12\""), (DeviceIds{12}));
}

TEST(DeviceIdList, OfSeveralNumbersKeepsTheirOrder)
{
    EXPECT_EQ(DeviceIdsOf("12, 3,12,0"), (DeviceIds{12, 3, 12, 0}));
}

TEST(DeviceIdList, CutsNumbersTo8Bits)
{
    EXPECT_EQ(DeviceIdsOf("12, 300"), (DeviceIds{12, 44}));
    EXPECT_EQ(DeviceIdsOf("300"), (DeviceIds{44}));
    EXPECT_EQ(DeviceIdsOf("-1, 256"), (DeviceIds{255, 0}));
}

TEST(DeviceIdList, TakesWhatIsNoDecimalNumberForZero)
{
    EXPECT_EQ(DeviceIdsOf("0x10"), (DeviceIds{0}));
    EXPECT_EQ(DeviceIdsOf("1, x, 2"), (DeviceIds{1, 0, 2}));
    EXPECT_EQ(DeviceIdsOf("1,,2"), (DeviceIds{1, 0, 2}));
    EXPECT_EQ(DeviceIdsOf("\"12, 13\""), (DeviceIds{0}));
}

TEST(DeviceIdList, ThatIsPresentButEmptyHoldsZero)
{
    EXPECT_EQ(DeviceIdsOf(""), (DeviceIds{0}));
}

TEST(WindowTitle, IsTheConfiguredOne)
{
    EXPECT_EQ(TitleOf("Lumen updater"), u"Lumen updater"_s);
}

TEST(WindowTitle, FallsBackToTheProgramsNameWhenEmpty)
{
    EXPECT_EQ(TitleOf(""), u"Kelvane firmware updater"_s);
    EXPECT_EQ(TitleOf("\"\""), u"Kelvane firmware updater"_s);
    EXPECT_EQ(TitleOf("Lumen, updater"), u"Kelvane firmware updater"_s);
}

TEST(Texts, TakeEachKeyToItsOwnPlace)
{
    IniFile ini(
        "window_title=T\ninstructions_text=I\nproduct_text=P\nfw_version=V\nfw_target_type=F\n");

    auto const texts = ReadWindowTexts(ini.Settings());

    EXPECT_EQ(texts.window_title, u"T"_s);
    EXPECT_EQ(texts.instructions, u"I"_s);
    EXPECT_EQ(texts.product, u"P"_s);
    EXPECT_EQ(texts.fw_version, u"V"_s);
    EXPECT_EQ(texts.fw_target_type, u"F"_s);
}

TEST(Texts, InQuotesKeepCommaSemicolonAndSpaces)
{
    EXPECT_EQ(InstructionsOf("\" plug in, reset; press \""), u" plug in, reset; press "_s);
}

TEST(Texts, AreLostWithAnUnquotedComma)
{
    EXPECT_EQ(InstructionsOf("plug in, reset"), QString());
}

TEST(Texts, EndAtAnUnquotedSemicolon)
{
    EXPECT_EQ(InstructionsOf("plug in; reset"), u"plug in"_s);
}

TEST(Texts, MayHaveSeveralLinesAndAnyLetters)
{
    EXPECT_EQ(InstructionsOf("\"1. anschlie\xC3\x9F"
                             "en\\n2. neu starten\""),
              u"1. anschlie\u00DFen\n2. neu starten"_s);
}

TEST(ConfigurationForTheLog, TellsEveryKeyWithItsValue)
{
    IniFile const ini("interface=\"usb\"\ndevice_id_list=1, 2\nunknown=x\n");
    EXPECT_EQ(DescribeConfiguration(ini.Settings()),
              QStringList({u"configuration: "_s + ini.Path(u"config.ini"_s),
                           u"    device_id_list = 1, 2"_s, u"    interface = usb"_s,
                           u"    unknown = x"_s}));
}
