// What is reported about the values of config.ini.
#include <gtest/gtest.h>

#include "tests/bundle_check/bundle_folder.h"

namespace {

void ExpectMissing(char const* severity, std::initializer_list<char const*> keys)
{
    for (QByteArray const key : keys) {
        BundleFolder bundle;
        bundle.Remove(key);
        auto const text =
            "config.ini: " + QByteArray(severity) + ": " + key + ": The key is missing, so ";
        EXPECT_TRUE(FindsOnly(bundle, text));
    }
}

}  // namespace

TEST(MissingKey, IsAnErrorWhereTheUpdateNeedsIt)
{
    ExpectMissing("error",
                  {"firmware_filename", "start_address", "programming_address", "otp_address",
                   "otp_size", "boot_mode_address", "product_list", "device_id_list"});
}

TEST(MissingKey, IsAWarningWhereOnlyTheWindowLacksIt)
{
    ExpectMissing("warning", {"instructions_text", "product_text", "fw_version", "fw_target_type"});
}

TEST(MissingKey, WithADefaultIsNotReported)
{
    BundleFolder bundle;
    bundle.Remove("window_title");
    EXPECT_TRUE(FindsNothing(bundle));
}

TEST(MissingKey, OfTheModelCheckIsNotNeededByServiceFirmware)
{
    BundleFolder bundle;
    bundle.Set("fw_target_type", "service");
    for (auto const* key : {"otp_address", "otp_size", "device_id_list"}) {
        bundle.Remove(key);
    }
    EXPECT_TRUE(FindsOnly(bundle,
                          "config.ini:7: warning: fw_target_type: Service firmware is written to "
                          "any unit, whatever its model; never ship this bundle"));
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
    ExpectFindings(
        std::array<LineCase, 1>{
            {{"otp_size", "512",
              "config.ini:15: note: otp_size: The chosen interface does not use this key."}}},
        &BundleFolder::UseMcuboot);
    ExpectFindings(std::array<LineCase, 1>{
        {{"mcuboot_baud", "x", "config.ini:14: note: mcuboot_baud: The chosen"}}});
}

TEST(Numbers, ThatAreNotNumbersOrDoNotFitAreErrors)
{
    ExpectFindings(std::array<LineCase, 9>{{
        {"start_address", "0x0800G000",
         "config.ini:2: error: start_address: The program reads '0x0800G000' as 0: it is not a "
         "number."},
        {"start_address", "08",
         "config.ini:2: error: start_address: The program reads '08' as 0: it is not a number."},
        {"otp_address", "",
         "config.ini:4: error: otp_address: The program reads '' as 0: it is empty."},
        {"programming_address", "0x100000000",
         "config.ini:3: error: programming_address: The program reads '0x100000000' as 0: it does "
         "not fit into 32 bits."},
        {"boot_mode_address", "1, 2",
         "config.ini:6: error: boot_mode_address: The program reads '1, 2' as 0: the comma turns "
         "it into a list."},
        {"boot_mode_address", "04000240000",
         "config.ini:6: warning: boot_mode_address: The leading 0 makes '04000240000' an octal "
         "number, 536952832 in decimal;"},
        {"otp_size", "0x200",
         "config.ini:5: error: otp_size: The program reads '0x200' as 0: only decimal digits are "
         "allowed here."},
        {"otp_size", "many",
         "config.ini:5: error: otp_size: The program reads 'many' as 0: it is not a number."},
        {"otp_size", "4294967808",
         "config.ini:5: error: otp_size: The program reads '4294967808' as 512: it does not fit "
         "into 32 bits."},
    }});
}

TEST(OtpSize, MustHoldTheRecords)
{
    ExpectFindings(std::array<LineCase, 5>{{
        {"otp_size", "15",
         "config.ini:5: error: otp_size: 15 bytes do not hold a record of 16 bytes, so every unit "
         "is refused; use 512."},
        {"otp_size", "0", "config.ini:5: error: otp_size: 0 bytes do not hold a record"},
        {"otp_size", "511",
         "config.ini:5: warning: otp_size: The program looks for the model identifier in 512 bytes "
         "but reads only 511; use 512."},
        {"otp_size", "1024", nullptr},
        {"otp_size", "1025",
         "config.ini:5: warning: otp_size: 1025 bytes from 0x1fff7000 reach beyond the "
         "one-time-programmable area of the chips 0x469, 0x479."},
    }});
}

TEST(McubootBaud, MustBeANumberAndShouldBeACommonSpeed)
{
    ExpectFindings(
        std::array<LineCase, 6>{{
            {"mcuboot_baud", "fast",
             "config.ini:15: error: mcuboot_baud: The program reads 'fast' as 0: it is not a "
             "number."},
            {"mcuboot_baud", "4294967296",
             "config.ini:15: error: mcuboot_baud: The program reads '4294967296' as 0: it does not "
             "fit into 32 bits."},
            {"mcuboot_baud", "4295082496",
             "config.ini:15: error: mcuboot_baud: The program reads '4295082496' as 115200: it "
             "does not fit into 32 bits."},
            {"mcuboot_baud", "0",
             "config.ini:15: error: mcuboot_baud: 0 bits per second is not a common speed"},
            {"mcuboot_baud", "115201",
             "config.ini:15: warning: mcuboot_baud: 115201 bits per second is not a common speed"},
            {"mcuboot_baud", "115200", nullptr},
        }},
        &BundleFolder::UseMcuboot);
}

TEST(Interface, ThatIsNotKnownMeansUart)
{
    for (auto const* value : {"USB", "Usb", "\" usb\"", "MCUboot_serial", "mcuboot-serial"}) {
        ExpectFindings(
            std::array<LineCase, 1>{{{"interface", value, "config.ini:14: error: interface: '"}}});
    }
    ExpectFindings(std::array<LineCase, 3>{{
        {"interface", "can",
         "config.ini:14: warning: interface: 'can' is not a known interface, so the program uses "
         "UART; write usb, mcuboot_serial or uart, in lower case."},
        {"interface", "usb, usb", "config.ini:14: warning: interface: 'usb, usb' is not a known"},
        {"interface", "uart", nullptr},
    }});
}

TEST(Text, WithAnUnquotedCommaIsLost)
{
    for (auto const* key : {"window_title", "instructions_text", "product_text", "fw_version",
                            "firmware_filename", "fw_target_type"}) {
        BundleFolder bundle;
        bundle.Set(key, "one, two");
        auto const expected =
            ": error: " + QByteArray(key) + ": The unquoted comma turns 'one, two' into a list";
        auto const findings = GetFindings(bundle.Root());
        ASSERT_EQ(findings.size(), 1) << key;
        EXPECT_TRUE(findings.first().contains(QString::fromUtf8(expected))) << key;
    }
}

TEST(Text, MustNotBeEmptyWithoutADefaultAndMustBeUtf8)
{
    ExpectFindings(std::array<LineCase, 5>{{
        {"product_text", "",
         "config.ini:12: warning: product_text: The value is empty, so the window shows no product "
         "name."},
        {"firmware_filename", "\"\"",
         "config.ini:1: error: firmware_filename: The value is empty, so there is no firmware to "
         "write."},
        {"window_title", "", nullptr},
        {"product_text",
         "Gr\xF6\xDF"
         "e",
         "config.ini:12: warning: product_text: The text contains bytes that are not UTF-8"},
        {"product_text",
         "Gr\xC3\xB6\xC3\x9F"
         "e",
         nullptr},
    }});
}

TEST(TargetType, IsCustomerInAnyCaseAndServiceInLowerCaseOnly)
{
    ExpectFindings(std::array<LineCase, 5>{{
        {"fw_target_type", "Service",
         "config.ini:7: warning: fw_target_type: 'Service' appears in the window but does not skip "
         "the model check; only 'service', in lower case"},
        {"fw_target_type", "\"service \"",
         "config.ini:7: warning: fw_target_type: 'service ' appears in the window"},
        {"fw_target_type", "CUSTOMER", nullptr},
        {"fw_target_type", "\"customer \"",
         "config.ini:7: warning: fw_target_type: 'customer ' has spaces around it"},
        {"fw_target_type", "beta", nullptr},
    }});
}

TEST(ProductList, HasEntriesOfANameAndTwoIds)
{
    ExpectFindings(std::array<LineCase, 9>{{
        {"product_list", "Lumen:10c4:ea60, Aria:1209",
         "config.ini:8: error: product_list: 'Aria:1209' does not have the three parts "
         "NAME:VENDOR:PRODUCT and is ignored."},
        {"product_list", "", "config.ini:8: error: product_list: '' does not have the three"},
        {"product_list", "Lumen:10c4:ea60:1",
         "config.ini:8: warning: product_list: 'Lumen:10c4:ea60:1' has more than the three parts"},
        {"product_list", ":10c4:ea60",
         "config.ini:8: warning: product_list: In ':10c4:ea60' the product has no name;"},
        {"product_list", "Lumen:10c4:0",
         "config.ini:8: warning: product_list: In 'Lumen:10c4:0' the product ID is 0"},
        {"product_list", "Lumen:10cg:ea60",
         "config.ini:8: error: product_list: In 'Lumen:10cg:ea60' the vendor ID '10cg' is not a "
         "hexadecimal number and is read as 0."},
        {"product_list", "Lumen:10c4:",
         "config.ini:8: error: product_list: In 'Lumen:10c4:' the product ID '' is not a"},
        {"product_list", "Lumen:10c4:1ea60",
         "config.ini:8: error: product_list: In 'Lumen:10c4:1ea60' the product ID has more than "
         "four hexadecimal digits; the program looks for ea60."},
        {"product_list", "Flash:0483:DF11",
         "config.ini:8: warning: product_list: The USB IDs 0483:df11 belong to an STM32 in USB"},
    }});
}

TEST(ProductList, ShouldNotRepeatNamesOrIds)
{
    ExpectFindings(std::array<LineCase, 2>{{
        {"product_list", "Lumen:10c4:ea60, Lumen:10c4:ea61",
         "config.ini:8: error: product_list: The product name 'Lumen' appears twice"},
        {"product_list", "Lumen:10c4:ea60, Aria:10C4:EA60",
         "config.ini:8: warning: product_list: 'Aria' and 'Lumen' have the same USB IDs"},
    }});
}

TEST(ProductList, NeedsTheBootloadersIdsOverUsb)
{
    ExpectFindings(std::array<LineCase, 1>{{{"product_list", "Lumen:10c4:ea60",
                                             "config.ini:8: error: product_list: No product has "
                                             "the USB IDs 0483:df11, the only ones"}}},
                   &BundleFolder::UseUsb);
}

TEST(DeviceIdList, HasDecimalNumbersOfOneByte)
{
    ExpectFindings(std::array<LineCase, 13>{{
        {"device_id_list", "7, 0x10",
         "config.ini:9: error: device_id_list: '0x10' is not a decimal number; separate "
         "identifiers with commas. The program reads 0."},
        {"device_id_list", "\"41;42\"",
         "config.ini:9: error: device_id_list: '41;42' is not a decimal number; separate "
         "identifiers with commas."},
        {"device_id_list", "",
         "config.ini:9: error: device_id_list: '' is not a decimal number; separate identifiers "
         "with commas. The program reads 0."},
        {"device_id_list", "\"7, 8\"", "config.ini:9: error: device_id_list: '7, 8' is not a"},
        {"device_id_list", "%1%2",
         "config.ini:9: error: device_id_list: '%1%2' is not a decimal number; separate "
         "identifiers with commas. The program reads 0."},
        {"device_id_list", "7, 300",
         "config.ini:9: error: device_id_list: '300' does not fit into one byte; identifiers are 0 "
         "to 255. The program reads 44."},
        {"device_id_list", "256", "config.ini:9: error: device_id_list: '256' does not fit into"},
        {"device_id_list", "-1",
         "config.ini:9: error: device_id_list: '-1' does not fit into one byte; identifiers are 0 "
         "to 255. The program reads 255."},
        {"device_id_list", "4294967303",
         "config.ini:9: error: device_id_list: '4294967303' does not fit into one byte; "
         "identifiers are 0 to 255. The program reads 7."},
        {"device_id_list", "18446744073709551623",
         "config.ini:9: error: device_id_list: '18446744073709551623' does not fit into one byte; "
         "identifiers are 0 to 255. The program reads 0."},
        {"device_id_list", "0, 255", nullptr},
        {"device_id_list", "7, 8, 7",
         "config.ini:9: warning: device_id_list: The model identifier 7 appears twice."},
        {"device_id_list", "7", nullptr},
    }});
}

TEST(Addresses, MustBeWhereTheProgramAndTheUnitCanUseThem)
{
    ExpectFindings(std::array<LineCase, 11>{{
        {"start_address", "0x08000002",
         "config.ini:2: warning: start_address: 0x08000002 is not a multiple of 4"},
        {"start_address", "0x08000004", nullptr},
        {"start_address", "0x08000400",
         "config.ini:2: warning: start_address: The unit is started at 0x08000400, outside the "
         "image."},
        {"boot_mode_address", "0x30000000",
         "config.ini:6: error: boot_mode_address: 0x30000000 is in neither the RAM nor the flash "
         "of the chips 0x469, 0x479."},
        {"boot_mode_address", "0x08010000",
         "config.ini:6: warning: boot_mode_address: 0x08010000 is in flash"},
        {"boot_mode_address", "0x20014002",
         "config.ini:6: error: boot_mode_address: 0x20014002 is not a multiple of 4"},
        {"boot_mode_address", "0x20000000",
         "config.ini:6: warning: boot_mode_address: 0x20000000 is in the RAM below 0x20004000"},
        {"boot_mode_address", "0x20003ffc",
         "config.ini:6: warning: boot_mode_address: 0x20003ffc is in the RAM below 0x20004000, "
         "which the bootloader reserves: it refuses the marker"},
        {"boot_mode_address", "0x20004000", nullptr},
        {"otp_address", "0x1FFF0000",
         "config.ini:4: warning: otp_address: 0x1fff0000 is not in the one-time-programmable area "
         "of any supported chip."},
        {"otp_address", "0x1FFF7000", nullptr},
    }});
}

TEST(Addresses, OutsideFlashAreErrors)
{
    for (auto const& [key, text] :
         {std::pair{"programming_address", "config.ini:3: error: programming_address: 0x20000000"},
          std::pair{"start_address", "config.ini:2: error: start_address: 0x20000000"}}) {
        BundleFolder bundle;
        bundle.Set(key, "0x20000000");
        auto const expected = text + QByteArray(" is not in the flash of the chips 0x469, 0x479.");
        EXPECT_TRUE(Finds(bundle, expected));
    }
}

TEST(ProgrammingAddress, AfterTheStartOfFlashIsNotWhatIsErased)
{
    BundleFolder bundle;
    bundle.Set("programming_address", "0x08004000");
    bundle.Set("start_address", "0x08004000");
    EXPECT_TRUE(FindsOnly(bundle,
                          "config.ini:3: warning: programming_address: The program erases as many "
                          "pages as the image has, starting at 0x08000000, but writes at "
                          "0x08004000"));
    bundle.UseUsb();
    EXPECT_TRUE(FindsNothing(bundle)) << "dfu-util erases where it writes";
}

TEST(ProgrammingAddress, MustBeAMultipleOfEight)
{
    BundleFolder bundle;
    for (QByteArray const address : {"0x08000002", "0x08000004"}) {
        bundle.Set("programming_address", address);
        auto const text =
            "config.ini:3: error: programming_address: " + address + " is not a multiple of 8";
        EXPECT_TRUE(Finds(bundle, text));
    }
    bundle.UseUsb();
    EXPECT_TRUE(FindsOnly(bundle,
                          "config.ini:3: error: programming_address: 0x08000004 is not a multiple "
                          "of 8, and flash is programmed 8 bytes at a time"));
    bundle.Set("programming_address", "0x08000008");
    EXPECT_TRUE(FindsNothing(bundle));
}

TEST(BootModeAddress, InsideTheImageSpoilsIt)
{
    BundleFolder bundle;
    bundle.Set("boot_mode_address", "0x08000100");
    EXPECT_TRUE(Finds(bundle,
                      "config.ini:6: error: boot_mode_address: The marker is written to "
                      "0x08000100, into the image"));
}
