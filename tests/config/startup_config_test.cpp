// What becomes of each line of config.ini.
#include "config/startup_config.h"

#include <gtest/gtest.h>

#include "tests/config/ini_file.h"

using namespace Qt::StringLiterals;

namespace {

using Products = QMap<QString, uint32_t>;
using DeviceIds = QList<uint8_t>;

uint32_t ProgrammingAddressOf(QByteArray const& text)
{
    IniFile const ini("programming_address=" + text + "\n");
    return ReadUartConfig(ini.Settings()).programming_address;
}

uint32_t OtpSizeOf(QByteArray const& text)
{
    IniFile const ini("otp_size=" + text + "\n");
    return ReadUartConfig(ini.Settings()).otp_size;
}

targetInterfaceType InterfaceOf(QByteArray const& text)
{
    IniFile const ini("interface=" + text + "\n");
    return ReadInterfaceType(ini.Settings());
}

Products ProductsOf(QByteArray const& text)
{
    IniFile const ini("product_list=" + text + "\n");
    return ReadProducts(ini.Settings());
}

DeviceIds DeviceIdsOf(QByteArray const& text)
{
    IniFile const ini("device_id_list=" + text + "\n");
    return ReadDeviceIds(ini.Settings());
}

WindowTexts TextsOf(QByteArray const& text)
{
    IniFile const ini(text + "\n");
    return ReadWindowTexts(ini.Settings());
}

}  // namespace

TEST(InterfaceTypes, HaveTheirNumbers)
{
    EXPECT_EQ(TargetUart, 1U);
    EXPECT_EQ(TargetUsb, 2U);
    EXPECT_EQ(TargetMcubootSerial, 3U);
    EXPECT_EQ(sizeof(targetInterfaceType), 4U);
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

TEST(Interface, IsChosenByItsExactNameAndIsUartForAnythingElse)
{
    EXPECT_EQ(InterfaceOf("usb"), TargetUsb);
    EXPECT_EQ(InterfaceOf("\"usb\""), TargetUsb);
    EXPECT_EQ(InterfaceOf("mcuboot_serial"), TargetMcubootSerial);
    for (auto const* text : {"uart", "", "USB", "Usb", "usb1", "\"usb \"", "usb, usb",
                             "MCUBOOT_SERIAL", "Mcuboot_Serial", "mcuboot-serial", "2"}) {
        EXPECT_EQ(InterfaceOf(text), TargetUart) << text;
    }
}

TEST(Address, IsReadByItsPrefixAndFillsThirtyTwoBits)
{
    std::pair<char const*, uint32_t> const cases[] = {
        {"0x08000000", 134217728},
        {"0X1fff7000", 0x1FFF7000},
        {"0b101", 5},
        {"010", 8},
        {"134217728", 0x08000000},
        {"0", 0},
        {"\"0x10\"", 16},
        {"0xFFFFFFFF", 0xFFFFFFFF},
        {"4294967295", 0xFFFFFFFF},
    };
    for (auto const& [text, address] : cases) {
        EXPECT_EQ(ProgrammingAddressOf(text), address) << text;
    }
}

TEST(Address, ThatDoesNotFitOrParseIsZero)
{
    for (auto const* text : {"0x100000000", "4294967296", "-1", "", "junk", "0x", "0xG", "08",
                             "0b2", "12 34", "1.5", "1e3", "0x10h", "1, 2"}) {
        EXPECT_EQ(ProgrammingAddressOf(text), 0U) << text;
    }
}

TEST(OtpSize, IsDecimalOnly)
{
    std::pair<char const*, uint32_t> const cases[] = {
        {"1024", 1024}, {"010", 10}, {"0x200", 0}, {"junk", 0}, {"", 0}};
    for (auto const& [text, size] : cases) {
        EXPECT_EQ(OtpSizeOf(text), size) << text;
    }
}

TEST(UartConfiguration, TakesEachKeyToItsOwnPlace)
{
    IniFile const ini(
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

TEST(UartConfiguration, ReadsEveryAddressByItsPrefix)
{
    IniFile const ini("start_address=010\notp_address=0b11\nboot_mode_address=0x100000000\n");

    auto const uart = ReadUartConfig(ini.Settings());

    EXPECT_EQ(uart.start_address, 8U);
    EXPECT_EQ(uart.otp_address, 3U);
    EXPECT_EQ(uart.boot_mode_address, 0U);
}

TEST(UartConfiguration, IgnoresKeysInASection)
{
    IniFile const ini("[Addresses]\nstart_address=1\n");

    EXPECT_EQ(ReadUartConfig(ini.Settings()).start_address, 0U);
}

TEST(UsbConfiguration, TakesEachKeyToItsOwnPlace)
{
    IniFile const ini(
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

TEST(McubootConfiguration, TakesEachKeyToItsOwnPlace)
{
    IniFile const ini("mcuboot_baud=115200\nfw_target_type=service\n");

    auto const mcuboot = ReadMcubootConfig(ini.Settings());

    EXPECT_EQ(mcuboot.baud, 115200U);
    EXPECT_EQ(mcuboot.fw_target_type, u"service"_s);
}

TEST(McubootConfiguration, HasADefaultBaudRateOnlyWhenTheKeyIsMissing)
{
    EXPECT_EQ(ReadMcubootConfig(IniFile("interface=mcuboot_serial\n").Settings()).baud, 921600U);
    for (auto const* text : {"", "fast", "0x1C200", "-1", "115200.5", "4294967296", "1, 2"}) {
        IniFile const ini("mcuboot_baud=" + QByteArray(text) + "\n");

        EXPECT_EQ(ReadMcubootConfig(ini.Settings()).baud, 0U) << text;
    }
}

TEST(UsbIds, ArePackedWithTheVendorInTheLowHalf)
{
    EXPECT_EQ(PackUsbIds(0x0483, 0xDF11), 0xDF110483U);
    EXPECT_EQ(PackUsbIds(0x10483, 0xDF11), 0xDF110483U);
    EXPECT_EQ(PackUsbIds(0xFFFF, 0), 0x0000FFFFU);
}

TEST(ProductList, BecomesAMapOrderedByName)
{
    auto const products = ProductsOf("Lumen:10c4:EA60, Flash:0483:DF11");

    EXPECT_EQ(products, (Products{{u"Flash"_s, 0xDF110483}, {u"Lumen"_s, 0xEA6010C4}}));
    EXPECT_EQ(products.firstKey(), u"Flash"_s);
}

TEST(ProductList, IsReadEntryByEntry)
{
    std::pair<char const*, Products> const cases[] = {
        {"Flash:0483:df11", {{u"Flash"_s, 0xDF110483}}},
        // Names are case-sensitive, and a repeated one keeps its last entry.
        {"flash:0483:df11, Flash:10c4:ea60", {{u"Flash"_s, 0xEA6010C4}, {u"flash"_s, 0xDF110483}}},
        {"Flash:0483:df11, Flash:10c4:ea60", {{u"Flash"_s, 0xEA6010C4}}},
        // IDs that do not parse are 0; longer ones are cut to 16 bits.
        {"A:xyz:df11, B:0483:, C::df11",
         {{u"A"_s, 0xDF110000}, {u"B"_s, 0x00000483}, {u"C"_s, 0xDF110000}}},
        {"A:10483:2df11", {{u"A"_s, 0xDF110483}}},
        // An empty name is kept, a fourth part ignored, an entry of fewer parts left out.
        {":0483:df11", {{QString(), 0xDF110483}}},
        {"A:0483:df11:9999", {{u"A"_s, 0xDF110483}}},
        {"A, B:0483, Flash:0483:df11", {{u"Flash"_s, 0xDF110483}}},
        {"", {}},
    };
    for (auto const& [text, products] : cases) {
        EXPECT_EQ(ProductsOf(text), products) << text;
    }
}

TEST(DeviceIdList, IsOneNumberOrAListInItsOrder)
{
    std::pair<char const*, DeviceIds> const cases[] = {
        {"12", {12}},
        {"\"12\"", {12}},
        {"12, 3,12,0", {12, 3, 12, 0}},
        // Cut to 8 bits.
        {"12, 300", {12, 44}},
        {"300", {44}},
        {"-1, 256", {255, 0}},
        // What is not a decimal number is 0, and so is a value that is present but empty.
        {"0x10", {0}},
        {"1, x, 2", {1, 0, 2}},
        {"1,,2", {1, 0, 2}},
        {"\"12, 13\"", {0}},
        {"", {0}},
    };
    for (auto const& [text, ids] : cases) {
        EXPECT_EQ(DeviceIdsOf(text), ids) << text;
    }
}

TEST(WindowTitle, FallsBackToTheProgramsNameWhenItIsEmpty)
{
    EXPECT_EQ(TextsOf("window_title=Lumen updater").window_title, u"Lumen updater"_s);
    for (auto const* text : {"", "\"\"", "Lumen, updater"}) {
        EXPECT_EQ(TextsOf("window_title=" + QByteArray(text)).window_title,
                  u"Kelvane firmware updater"_s)
            << text;
    }
}

TEST(Texts, TakeEachKeyToItsOwnPlace)
{
    auto const texts = TextsOf(
        "window_title=T\ninstructions_text=I\nproduct_text=P\nfw_version=V\nfw_target_type=F");

    EXPECT_EQ(texts.window_title, u"T"_s);
    EXPECT_EQ(texts.instructions, u"I"_s);
    EXPECT_EQ(texts.product, u"P"_s);
    EXPECT_EQ(texts.fw_version, u"V"_s);
    EXPECT_EQ(texts.fw_target_type, u"F"_s);
}

TEST(Texts, KeepInQuotesWhatTheyLoseWithout)
{
    std::pair<QByteArray, QString> const cases[] = {
        {"\" plug in, reset; press \"", u" plug in, reset; press "_s},
        {"plug in, reset", QString()},
        {"plug in; reset", u"plug in"_s},
        {"\"1. anschlie\xC3\x9F"
         "en\\n2. neu starten\"",
         u"1. anschlie\u00DFen\n2. neu starten"_s},
    };
    for (auto const& [text, instructions] : cases) {
        EXPECT_EQ(TextsOf("instructions_text=" + text).instructions, instructions) << text.data();
    }
}

TEST(ConfigurationForTheLog, ListsEveryKeyWithItsValue)
{
    IniFile const ini("interface=\"usb\"\ndevice_id_list=1, 2\nunknown=x\n");
    EXPECT_EQ(DescribeConfiguration(ini.Settings()),
              QStringList({u"configuration: "_s + ini.Path(u"config.ini"_s),
                           u"    device_id_list = 1, 2"_s, u"    interface = usb"_s,
                           u"    unknown = x"_s}));
}
