// What becomes of each line of config.ini.
#include "config/startup_config.h"

#include <gtest/gtest.h>

#include <tuple>
#include <type_traits>
#include <utility>

#include "tests/config/ini_file.h"

using namespace Qt::StringLiterals;

namespace {

using Products = QMap<QString, uint32_t>;
using DeviceIds = QList<uint8_t>;

// What `read` makes of a file with this line, or these lines.
template <typename Reader>
auto Read(Reader read, QByteArray const& text)
{
    IniFile const ini(text + "\n");
    return read(ini.Settings());
}

template <typename Reader>
using ValueOf = std::invoke_result_t<Reader, QSettings const&>;

// What `read` makes of each value of the key.
template <typename Reader>
void ExpectValues(QByteArray const& key, Reader read,
                  std::initializer_list<std::pair<char const*, ValueOf<Reader>>> rows)
{
    for (auto const& [value, expected] : rows) {
        EXPECT_EQ(Read(read, key + '=' + value), expected) << key.data() << '=' << value;
    }
}

// Every value means this.
template <typename Reader>
void ExpectAll(QByteArray const& key, Reader read, ValueOf<Reader> const& expected,
               std::initializer_list<char const*> values)
{
    for (auto const* value : values) {
        ExpectValues(key, read, {{value, expected}});
    }
}

constexpr auto ReadProgrammingAddress = [](QSettings const& settings) {
    return ReadUartConfig(settings).programming_address;
};
constexpr auto ReadOtpSize = [](QSettings const& settings) {
    return ReadUartConfig(settings).otp_size;
};
constexpr auto ReadBaud = [](QSettings const& settings) {
    return ReadMcubootConfig(settings).baud;
};
constexpr auto ReadWindowTitle = [](QSettings const& settings) {
    return ReadWindowTexts(settings).window_title;
};
constexpr auto ReadInstructions = [](QSettings const& settings) {
    return ReadWindowTexts(settings).instructions;
};

// Every member, in its order.
auto Uart(QByteArray const& text)
{
    auto const [start, programming, otp, size, boot_mode, type] = Read(ReadUartConfig, text);
    return std::tuple(start, programming, otp, size, boot_mode, type);
}

auto Usb(QByteArray const& text)
{
    auto const [programming, otp, size, type] = Read(ReadUsbConfig, text);
    return std::tuple(programming, otp, size, type);
}

auto Texts(QByteArray const& text)
{
    auto const [title, instructions, product, version, type] = Read(ReadWindowTexts, text);
    return QStringList{title, instructions, product, version, type};
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
    EXPECT_EQ(ReadProducts(settings), Products());
    EXPECT_EQ(ReadDeviceIds(settings), DeviceIds());
    EXPECT_EQ(ReadMcubootConfig(settings).baud, 921600U);
    EXPECT_EQ(Uart(""), std::tuple(0U, 0U, 0U, 0U, 0U, QString()));
    EXPECT_EQ(Texts(""), QStringList({u"Kelvane firmware updater"_s, {}, {}, {}, {}}));
}

TEST(Interface, IsChosenByItsExactNameAndIsUartForAnythingElse)
{
    ExpectAll("interface", ReadInterfaceType, TargetUsb, {"usb", "\"usb\""});
    ExpectAll("interface", ReadInterfaceType, TargetMcubootSerial, {"mcuboot_serial"});
    ExpectAll("interface", ReadInterfaceType, TargetUart,
              {"uart", "", "USB", "Usb", "usb1", "\"usb \"", "usb, usb", "MCUBOOT_SERIAL",
               "Mcuboot_Serial", "mcuboot-serial", "2"});
}

TEST(Address, IsReadByItsPrefixAndFillsThirtyTwoBits)
{
    ExpectValues("programming_address", ReadProgrammingAddress,
                 {{"0x08000000", 134217728},
                  {"0X1fff7000", 0x1FFF7000},
                  {"0b101", 5},
                  {"010", 8},
                  {"134217728", 0x08000000},
                  {"0", 0},
                  {"\"0x10\"", 16},
                  {"0xFFFFFFFF", 0xFFFFFFFF},
                  {"4294967295", 0xFFFFFFFF}});
}

TEST(Address, ThatDoesNotFitOrParseIsZero)
{
    ExpectAll("programming_address", ReadProgrammingAddress, 0,
              {"0x100000000", "4294967296", "-1", "", "junk", "0x", "0xG", "08", "0b2", "12 34",
               "1.5", "1e3", "0x10h", "1, 2"});
}

TEST(OtpSize, IsDecimalOnly)
{
    ExpectValues("otp_size", ReadOtpSize,
                 {{"1024", 1024}, {"010", 10}, {"0x200", 0}, {"junk", 0}, {"", 0}});
}

TEST(Configuration, TakesEachKeyToItsOwnPlace)
{
    QByteArray const common =
        "programming_address=0x08000002\notp_address=0x1FFF7003\notp_size=512\n"
        "fw_target_type=service\n";

    EXPECT_EQ(Uart(common + "start_address=0x08000001\nboot_mode_address=0x20000005"),
              std::tuple(0x08000001U, 0x08000002U, 0x1FFF7003U, 512U, 0x20000005U, u"service"_s));
    EXPECT_EQ(Usb(common), std::tuple(0x08000002U, 0x1FFF7003U, 512U, u"service"_s));
    EXPECT_EQ(Read(ReadMcubootConfig, common).fw_target_type, u"service"_s);
    EXPECT_EQ(Texts("window_title=T\ninstructions_text=I\nproduct_text=P\nfw_version=V\n"
                    "fw_target_type=F"),
              QStringList({u"T"_s, u"I"_s, u"P"_s, u"V"_s, u"F"_s}));
}

TEST(Configuration, ReadsEveryAddressByItsPrefixAndIgnoresKeysInASection)
{
    EXPECT_EQ(Uart("start_address=010\notp_address=0b11\nboot_mode_address=0x100000000"),
              std::tuple(8U, 0U, 3U, 0U, 0U, QString()));
    EXPECT_EQ(Uart("[Addresses]\nstart_address=1"), Uart(""));
}

TEST(McubootBaud, ThatIsNotANumberIsZero)
{
    ExpectValues("mcuboot_baud", ReadBaud, {{"115200", 115200}});
    ExpectAll("mcuboot_baud", ReadBaud, 0,
              {"", "fast", "0x1C200", "-1", "115200.5", "4294967296", "1, 2"});
}

TEST(UsbIds, ArePackedWithTheVendorInTheLowHalf)
{
    EXPECT_EQ(PackUsbIds(0x0483, 0xDF11), 0xDF110483U);
    EXPECT_EQ(PackUsbIds(0x10483, 0xDF11), 0xDF110483U);
    EXPECT_EQ(PackUsbIds(0xFFFF, 0), 0x0000FFFFU);
}

TEST(ProductList, IsReadEntryByEntryAndOrderedByName)
{
    auto const two = Read(ReadProducts, "product_list=Lumen:10c4:EA60, Flash:0483:DF11");
    EXPECT_EQ(two, (Products{{u"Flash"_s, 0xDF110483}, {u"Lumen"_s, 0xEA6010C4}}));
    EXPECT_EQ(two.firstKey(), u"Flash"_s);

    ExpectValues(
        "product_list", ReadProducts,
        {
            {"Flash:0483:df11", {{u"Flash"_s, 0xDF110483}}},
            // Names are case-sensitive, and a repeated one keeps its last entry.
            {"flash:0483:df11, Flash:10c4:ea60",
             {{u"Flash"_s, 0xEA6010C4}, {u"flash"_s, 0xDF110483}}},
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
        });
}

TEST(DeviceIdList, IsOneNumberOrAListInItsOrder)
{
    ExpectValues(
        "device_id_list", ReadDeviceIds,
        {
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
        });
}

TEST(WindowTitle, FallsBackToTheProgramsNameWhenItIsEmpty)
{
    ExpectValues("window_title", ReadWindowTitle, {{"Lumen updater", u"Lumen updater"_s}});
    ExpectAll("window_title", ReadWindowTitle, u"Kelvane firmware updater"_s,
              {"", "\"\"", "Lumen, updater"});
}

TEST(Texts, KeepInQuotesWhatTheyLoseWithout)
{
    ExpectValues("instructions_text", ReadInstructions,
                 {{"\" plug in, reset; press \"", u" plug in, reset; press "_s},
                  {"plug in, reset", QString()},
                  {"plug in; reset", u"plug in"_s},
                  {"\"1. anschlie\xC3\x9F"
                   "en\\n2. neu starten\"",
                   u"1. anschlie\u00DFen\n2. neu starten"_s}});
}

TEST(ConfigurationForTheLog, ListsEveryKeyWithItsValue)
{
    IniFile const ini("interface=\"usb\"\ndevice_id_list=1, 2\nunknown=x\n");
    EXPECT_EQ(DescribeConfiguration(ini.Settings()),
              QStringList({u"configuration: "_s + ini.Path(u"config.ini"_s),
                           u"    device_id_list = 1, 2"_s, u"    interface = usb"_s,
                           u"    unknown = x"_s}));
}
