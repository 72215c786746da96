// What is said of the values of config.ini.
#include <gtest/gtest.h>

#include "tests/bundle_check/bundle_folder.h"

namespace {

// What must be said of one key with one value; the key's line is looked for in the text.
testing::AssertionResult Only(QByteArray const& key, QByteArray const& value, char const* beginning)
{
    BundleFolder bundle;
    bundle.Set(key, value);
    return FindsOnly(bundle, beginning);
}

testing::AssertionResult Clean(QByteArray const& key, QByteArray const& value)
{
    BundleFolder bundle;
    bundle.Set(key, value);
    return FindsNothing(bundle);
}

}  // namespace

TEST(MissingKey, IsAnErrorWhereTheUpdateNeedsIt)
{
    for (auto const* key :
         {"firmware_filename", "start_address", "programming_address", "otp_address", "otp_size",
          "boot_mode_address", "product_list", "device_id_list"}) {
        BundleFolder bundle;
        bundle.Remove(key);
        auto const text = "config.ini: error: " + QByteArray(key) + ": The key is missing: ";
        EXPECT_TRUE(FindsOnly(bundle, text));
    }
}

TEST(MissingKey, IsAWarningWhereOnlyTheWindowLacksIt)
{
    for (auto const* key : {"instructions_text", "product_text", "fw_version", "fw_target_type"}) {
        BundleFolder bundle;
        bundle.Remove(key);
        auto const text = "config.ini: warning: " + QByteArray(key) + ": The key is missing: ";
        EXPECT_TRUE(FindsOnly(bundle, text));
    }
}

TEST(MissingKey, IsNothingWhereADefaultStandsIn)
{
    BundleFolder bundle;
    bundle.Remove("window_title");
    EXPECT_TRUE(FindsNothing(bundle));
}

TEST(MissingKey, OfTheModelCheckIsNotMissedByAServiceFirmware)
{
    BundleFolder bundle;
    bundle.Set("fw_target_type", "service");
    for (auto const* key : {"otp_address", "otp_size", "device_id_list"}) {
        bundle.Remove(key);
    }
    EXPECT_TRUE(FindsOnly(bundle, "config.ini:7: warning: fw_target_type: A service firmware"));
}

TEST(MissingKey, DependsOnTheInterface)
{
    BundleFolder bundle;
    bundle.UseUsb();
    bundle.Remove("programming_address");
    EXPECT_TRUE(FindsOnly(bundle, "config.ini: error: programming_address: The key is missing"));
}

TEST(KeyOfAnotherInterface, IsNoted)
{
    BundleFolder bundle;
    bundle.UseMcuboot();
    bundle.Set("otp_size", "512");
    EXPECT_TRUE(FindsOnly(
        bundle, "config.ini:15: note: otp_size: The chosen interface does not use this key."));
    EXPECT_TRUE(Only("mcuboot_baud", "x", "config.ini:14: note: mcuboot_baud: The chosen"));
}

TEST(Address, ThatIsNoNumberIsReadAsZero)
{
    EXPECT_TRUE(Only("start_address", "0x0800G000",
                     "config.ini:2: error: start_address: The program reads \"0x0800G000\" as 0, "
                     "because it is no number."));
    EXPECT_TRUE(Only("otp_address", "",
                     "config.ini:4: error: otp_address: The program reads \"\" "
                     "as 0, because it is empty."));
    EXPECT_TRUE(Only("programming_address", "0x100000000",
                     "config.ini:3: error: programming_address: The program reads \"0x100000000\" "
                     "as 0, because it does not fit 32 bits."));
    EXPECT_TRUE(Only("boot_mode_address", "1, 2",
                     "config.ini:6: error: boot_mode_address: The program reads \"1, 2\" as 0, "
                     "because the comma makes a list of it."));
    EXPECT_TRUE(Only("start_address", "08",
                     "config.ini:2: error: start_address: The program reads "
                     "\"08\" as 0, because it is no number."));
}

TEST(Address, WithALeadingZeroIsOctal)
{
    BundleFolder bundle;
    bundle.Set("boot_mode_address", "04000240000");
    EXPECT_TRUE(FindsOnly(bundle,
                          "config.ini:6: warning: boot_mode_address: The leading 0 makes "
                          "\"04000240000\" an octal number, which is 536952832."));
}

TEST(OtpSize, IsReadAsDecimalOnly)
{
    EXPECT_TRUE(Only("otp_size", "0x200",
                     "config.ini:5: error: otp_size: The program reads "
                     "\"0x200\" as 0, because here only decimal digits count."));
    EXPECT_TRUE(Only("otp_size", "many",
                     "config.ini:5: error: otp_size: The program reads \"many\" "
                     "as 0, because it is no number."));
}

TEST(OtpSize, BeyondThirtyTwoBitsIsCutToThem)
{
    EXPECT_TRUE(Only("otp_size", "4294967808",
                     "config.ini:5: error: otp_size: The program reads \"4294967808\" as 512, "
                     "because it does not fit 32 bits."));
}

TEST(OtpSize, MustHoldTheRecords)
{
    EXPECT_TRUE(Only("otp_size", "15", "config.ini:5: error: otp_size: 15 bytes hold no record"));
    EXPECT_TRUE(Only("otp_size", "0", "config.ini:5: error: otp_size: 0 bytes hold no record"));
    EXPECT_TRUE(Only("otp_size", "511",
                     "config.ini:5: warning: otp_size: The program looks for the "
                     "model identifier in 512 bytes, of which only 511"));
    EXPECT_TRUE(Clean("otp_size", "1024"));
    EXPECT_TRUE(Only("otp_size", "1025",
                     "config.ini:5: warning: otp_size: 1025 bytes from "
                     "0x1fff7000 on reach beyond the one-time-programmable "
                     "area of the chips 0x469, 0x479"));
}

TEST(McubootBaud, MustBeANumber)
{
    BundleFolder bundle;
    bundle.UseMcuboot();
    bundle.Set("mcuboot_baud", "fast");
    EXPECT_TRUE(FindsOnly(bundle,
                          "config.ini:15: error: mcuboot_baud: The program reads \"fast\" "
                          "as 0, because it is no number."));
    bundle.Set("mcuboot_baud", "0");
    EXPECT_TRUE(FindsOnly(bundle, "config.ini:15: error: mcuboot_baud: 0 bits a second"));
    bundle.Set("mcuboot_baud", "4294967296");
    EXPECT_TRUE(FindsOnly(bundle,
                          "config.ini:15: error: mcuboot_baud: The program reads "
                          "\"4294967296\" as 0, because it does not fit 32 bits."));
}

TEST(McubootBaud, ShouldBeAUsualSpeed)
{
    BundleFolder bundle;
    bundle.UseMcuboot();
    bundle.Set("mcuboot_baud", "115201");
    EXPECT_TRUE(FindsOnly(bundle,
                          "config.ini:15: warning: mcuboot_baud: 115201 bits a second is "
                          "not a usual speed"));
    bundle.Set("mcuboot_baud", "115200");
    EXPECT_TRUE(FindsNothing(bundle));
}

TEST(McubootBaud, BeyondThirtyTwoBitsIsCutToThem)
{
    BundleFolder bundle;
    bundle.UseMcuboot();
    bundle.Set("mcuboot_baud", "4295082496");
    EXPECT_TRUE(FindsOnly(bundle,
                          "config.ini:15: error: mcuboot_baud: The program reads \"4295082496\" as "
                          "115200, because it does not fit 32 bits."));
}

TEST(Interface, ThatIsNearlyAKnownNameIsAnError)
{
    for (auto const* value : {"USB", "Usb", "\" usb\"", "MCUboot_serial", "mcuboot-serial"}) {
        EXPECT_TRUE(Only("interface", value, "config.ini:14: error: interface: \"")) << value;
    }
}

TEST(Interface, OfAnUnknownNameMeansUart)
{
    EXPECT_TRUE(Only("interface", "can",
                     "config.ini:14: warning: interface: \"can\" is none of the "
                     "names that the program knows, and so means UART."));
    EXPECT_TRUE(Only("interface", "usb, usb", "config.ini:14: warning: interface: \"usb, usb\""));
    EXPECT_TRUE(Clean("interface", "uart"));
}

TEST(Text, IsLostWithAnUnquotedComma)
{
    for (auto const* key : {"window_title", "instructions_text", "product_text", "fw_version",
                            "firmware_filename", "fw_target_type"}) {
        BundleFolder bundle;
        bundle.Set(key, "one, two");
        auto const found =
            ": error: " + QByteArray(key) + ": The unquoted comma makes a list of \"one, two\"";
        auto const findings = GetFindings(bundle.Root());
        ASSERT_EQ(findings.size(), 1) << key;
        EXPECT_TRUE(findings.first().contains(QString::fromUtf8(found))) << key;
    }
}

TEST(Text, ThatIsEmptyIsTold)
{
    EXPECT_TRUE(Only("product_text", "",
                     "config.ini:12: warning: product_text: The value is empty: "
                     "the window shows no product name."));
    EXPECT_TRUE(Only("firmware_filename", "\"\"",
                     "config.ini:1: error: firmware_filename: The value is empty: there is no "
                     "firmware to write."));
    EXPECT_TRUE(Clean("window_title", ""));
}

TEST(Text, ThatIsNotUtf8IsTold)
{
    EXPECT_TRUE(
        Only("product_text",
             "Gr\xF6\xDF"
             "e",
             "config.ini:12: warning: product_text: The text has bytes that are not UTF-8"));
    EXPECT_TRUE(Clean("product_text",
                      "Gr\xC3\xB6\xC3\x9F"
                      "e"));
}

TEST(TargetType, OfServiceCountsInSmallLettersOnly)
{
    EXPECT_TRUE(
        Only("fw_target_type", "Service",
             "config.ini:7: warning: fw_target_type: \"Service\" is shown in the window, but "
             "only \"service\" in small letters leaves out the check"));
    EXPECT_TRUE(Only("fw_target_type", "\"service \"",
                     "config.ini:7: warning: fw_target_type: \"service \" is shown"));
}

TEST(TargetType, OfCustomerCountsInAnyCaseButWithoutSpaces)
{
    EXPECT_TRUE(Clean("fw_target_type", "CUSTOMER"));
    EXPECT_TRUE(Only("fw_target_type", "\"customer \"",
                     "config.ini:7: warning: fw_target_type: With a space around it"));
    EXPECT_TRUE(Clean("fw_target_type", "beta"));
}

TEST(ProductList, NeedsThreePieces)
{
    EXPECT_TRUE(Only("product_list", "Lumen:10c4:ea60, Aria:1209",
                     "config.ini:8: error: product_list: \"Aria:1209\" does not have the three "
                     "pieces NAME:VENDOR:PRODUCT"));
    EXPECT_TRUE(Only("product_list", "", "config.ini:8: error: product_list: \"\" does not have"));
}

TEST(ProductList, IgnoresAFourthPiece)
{
    EXPECT_TRUE(Only("product_list", "Lumen:10c4:ea60:1",
                     "config.ini:8: warning: product_list: \"Lumen:10c4:ea60:1\" has more than"));
}

TEST(ProductList, NeedsANameAndIds)
{
    EXPECT_TRUE(Only("product_list", ":10c4:ea60",
                     "config.ini:8: warning: product_list: In \":10c4:ea60\" the product has no"));
    EXPECT_TRUE(
        Only("product_list", "Lumen:10c4:0",
             "config.ini:8: warning: product_list: In \"Lumen:10c4:0\" the product ID is 0"));
}

TEST(ProductList, NeedsHexadecimalNumbers)
{
    EXPECT_TRUE(Only("product_list", "Lumen:10cg:ea60",
                     "config.ini:8: error: product_list: In \"Lumen:10cg:ea60\" the vendor ID "
                     "\"10cg\" is no hexadecimal number, and is read as 0."));
    EXPECT_TRUE(Only("product_list", "Lumen:10c4:",
                     "config.ini:8: error: product_list: In \"Lumen:10c4:\" the product ID \"\" is "
                     "no hexadecimal number"));
    EXPECT_TRUE(
        Only("product_list", "Lumen:10c4:1ea60",
             "config.ini:8: error: product_list: In \"Lumen:10c4:1ea60\" the product ID has "
             "more than four hexadecimal digits; the program looks for ea60."));
}

TEST(ProductList, KeepsOneEntryOfAName)
{
    EXPECT_TRUE(Only("product_list", "Lumen:10c4:ea60, Lumen:10c4:ea61",
                     "config.ini:8: error: product_list: The product name \"Lumen\" stands twice"));
}

TEST(ProductList, NamesTheSameIdsTwice)
{
    EXPECT_TRUE(
        Only("product_list", "Lumen:10c4:ea60, Aria:10C4:EA60",
             "config.ini:8: warning: product_list: \"Aria\" and \"Lumen\" have the same USB "
             "ids"));
}

TEST(ProductList, NeedsTheBootloadersIdsOverUsb)
{
    BundleFolder bundle;
    bundle.UseUsb();
    bundle.Set("product_list", "Lumen:10c4:ea60");
    EXPECT_TRUE(FindsOnly(bundle,
                          "config.ini:8: error: product_list: No product has the USB ids "
                          "0483:df11"));
}

TEST(ProductList, FindsNoSerialPortByTheBootloadersIds)
{
    EXPECT_TRUE(Only("product_list", "Flash:0483:DF11",
                     "config.ini:8: warning: product_list: The USB ids 0483:df11 belong to"));
}

TEST(DeviceIdList, HoldsDecimalNumbers)
{
    EXPECT_TRUE(Only("device_id_list", "7, 0x10",
                     "config.ini:9: error: device_id_list: The model identifier \"0x10\" is no "
                     "decimal number, and is read as 0."));
    EXPECT_TRUE(Only("device_id_list", "",
                     "config.ini:9: error: device_id_list: The model "
                     "identifier \"\" is no decimal number, and is read as 0"));
    EXPECT_TRUE(Only("device_id_list", "\"7, 8\"",
                     "config.ini:9: error: device_id_list: The model identifier \"7, 8\" is no"));
    EXPECT_TRUE(Only("device_id_list", "%1%2",
                     "config.ini:9: error: device_id_list: The model identifier \"%1%2\" is no "
                     "decimal number, and is read as 0."));
}

TEST(DeviceIdList, HoldsBytes)
{
    EXPECT_TRUE(
        Only("device_id_list", "7, 300",
             "config.ini:9: error: device_id_list: The model identifier \"300\" does not fit one "
             "byte, and is read as 44."));
    EXPECT_TRUE(Only("device_id_list", "256",
                     "config.ini:9: error: device_id_list: The model "
                     "identifier \"256\" does not fit one byte"));
    EXPECT_TRUE(Only("device_id_list", "-1",
                     "config.ini:9: error: device_id_list: The model "
                     "identifier \"-1\" does not fit one byte, and is read as "
                     "255."));
    EXPECT_TRUE(Only("device_id_list", "4294967303",
                     "config.ini:9: error: device_id_list: The model identifier \"4294967303\" "
                     "does not fit one byte, and is read as 7."));
    EXPECT_TRUE(Only("device_id_list", "18446744073709551623",
                     "config.ini:9: error: device_id_list: The model identifier "
                     "\"18446744073709551623\" does not fit one byte, and is read as 0."));
    EXPECT_TRUE(Clean("device_id_list", "0, 255"));
}

TEST(DeviceIdList, NamesAModelTwice)
{
    EXPECT_TRUE(Only("device_id_list", "7, 8, 7",
                     "config.ini:9: warning: device_id_list: The model "
                     "identifier 7 stands twice."));
}

TEST(ProgrammingAddress, MustLieInFlash)
{
    BundleFolder bundle;
    bundle.Set("programming_address", "0x20000000");
    EXPECT_TRUE(Finds(bundle,
                      "config.ini:3: error: programming_address: 0x20000000 is outside the "
                      "flash of the chips 0x469, 0x479."));
}

TEST(ProgrammingAddress, BehindTheStartOfFlashIsNotWhatIsErased)
{
    BundleFolder bundle;
    bundle.Set("programming_address", "0x08004000");
    bundle.Set("start_address", "0x08004000");
    EXPECT_TRUE(
        FindsOnly(bundle, "config.ini:3: warning: programming_address: The program erases"));
    bundle.UseUsb();
    EXPECT_TRUE(FindsNothing(bundle)) << "dfu-util erases where it writes";
}

TEST(ProgrammingAddress, MustBeAMultipleOfEight)
{
    BundleFolder bundle;
    for (auto const* address : {"0x08000002", "0x08000004"}) {
        bundle.Set("programming_address", address);
        auto const text = "config.ini:3: error: programming_address: " + QByteArray(address) +
                          " is not a multiple of 8";
        EXPECT_TRUE(Finds(bundle, text));
    }
    bundle.UseUsb();
    EXPECT_TRUE(FindsOnly(bundle,
                          "config.ini:3: error: programming_address: 0x08000004 is not a multiple "
                          "of 8, and flash is programmed by 8 bytes at a time"));
    bundle.Set("programming_address", "0x08000008");
    EXPECT_TRUE(FindsNothing(bundle));
}

TEST(StartAddress, ShouldBeAMultipleOfFour)
{
    EXPECT_TRUE(Only("start_address", "0x08000002",
                     "config.ini:2: warning: start_address: 0x08000002 is not a multiple of 4"));
    EXPECT_TRUE(Clean("start_address", "0x08000004"));
}

TEST(StartAddress, MustLieInFlashAndShouldLieInTheImage)
{
    BundleFolder bundle;
    bundle.Set("start_address", "0x20000000");
    EXPECT_TRUE(
        Finds(bundle, "config.ini:2: error: start_address: 0x20000000 is outside the flash"));
    EXPECT_TRUE(Only("start_address", "0x08000400",
                     "config.ini:2: warning: start_address: The unit is started at 0x08000400, "
                     "which is not part of the image."));
}

TEST(BootModeAddress, ShouldLieInRam)
{
    EXPECT_TRUE(Only("boot_mode_address", "0x30000000",
                     "config.ini:6: error: boot_mode_address: 0x30000000 is neither in the RAM nor "
                     "in the flash"));
    EXPECT_TRUE(Only("boot_mode_address", "0x08010000",
                     "config.ini:6: warning: boot_mode_address: 0x08010000 lies in flash"));
    EXPECT_TRUE(Only("boot_mode_address", "0x20014002",
                     "config.ini:6: error: boot_mode_address: 0x20014002 is not a multiple of 4"));
}

TEST(BootModeAddress, ShouldNotLieInTheBootloadersRam)
{
    for (auto const* address : {"0x20000000", "0x20003ffc"}) {
        auto const text = "config.ini:6: warning: boot_mode_address: " + QByteArray(address) +
                          " lies in the RAM below 0x20004000, which the bootloader keeps";
        EXPECT_TRUE(Only("boot_mode_address", address, text));
    }
    EXPECT_TRUE(Clean("boot_mode_address", "0x20004000"));
}

TEST(BootModeAddress, InsideTheImageWouldSpoilIt)
{
    BundleFolder bundle;
    bundle.Set("boot_mode_address", "0x08000100");
    EXPECT_TRUE(Finds(bundle,
                      "config.ini:6: error: boot_mode_address: The marker is written to "
                      "0x08000100, into the image"));
}

TEST(OtpAddress, ShouldBeAChipsOwn)
{
    EXPECT_TRUE(Only("otp_address", "0x1FFF0000",
                     "config.ini:4: warning: otp_address: 0x1fff0000 is in the "
                     "one-time-programmable area of no supported chip."));
}
