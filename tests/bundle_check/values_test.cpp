// What is reported about the values of config.ini.
#include <gtest/gtest.h>

#include "tests/bundle_check/bundle_folder.h"
#include "tests/bundle_check/test_images.h"

TEST(MissingKey, IsAnErrorWhereTheUpdateNeedsItAndAWarningWhereOnlyTheWindowLacksIt)
{
    std::pair<QByteArray, QList<QByteArray>> const rows[] = {
        {"error",
         {"firmware_filename", "start_address", "programming_address", "otp_address", "otp_size",
          "boot_mode_address", "product_list", "device_id_list"}},
        {"warning", {"instructions_text", "product_text", "fw_version", "fw_target_type"}},
    };
    for (auto const& [severity, keys] : rows) {
        for (auto const& key : keys) {
            auto const text = "config.ini: " + severity + ": " + key + ": The key is missing, so ";
            ExpectFindings({{{{key, nullptr}}, text.constData()}});
        }
    }
}

TEST(MissingKey, IsNotReportedWhereItHasADefaultOrIsNotNeeded)
{
    ExpectFindings({
        {{{"window_title", nullptr}}, ""},
        {{{"fw_target_type", "service"},
          {"otp_address", nullptr},
          {"otp_size", nullptr},
          {"device_id_list", nullptr}},
         "config.ini:7: warning: fw_target_type: Service firmware is written to any unit, whatever "
         "its model; never ship this bundle to a customer. For firmware that customers get, write "
         "customer."},
    });
    ExpectFindings({{{{"programming_address", nullptr}},
                     "config.ini: error: programming_address: The key is missing"}},
                   &BundleFolder::UseUsb);
}

TEST(KeyOfAnotherInterface, IsNoted)
{
    ExpectFindings(
        "otp_size=512 => note: The chosen interface does not use this key; remove it, or correct "
        "interface.",
        &BundleFolder::UseMcuboot);
    ExpectFindings("mcuboot_baud=x => note: The chosen interface does not use this key;");
}

TEST(Numbers, ThatAreNotNumbersOrDoNotFitAreErrors)
{
    ExpectFindings(R"(
start_address=0x0800G000 => error: The program reads '0x0800G000' as 0: it is not a number. Write it like 0x08000000.
start_address=08000000 => error: The program reads '08000000' as 0: it is not a number. A leading 0 means octal; for hexadecimal write 0x08000000.
start_address=800F000 => error: The program reads '800F000' as 0: it is not a number. For hexadecimal write 0x800F000.
otp_address= => error: The program reads '' as 0: it is empty. Write it like 0x08000000.
programming_address=0x100000000 => error: The program reads '0x100000000' as 0: it does not fit into 32 bits. Write a smaller number.
boot_mode_address=1, 2 => error: The program reads '1, 2' as 0: the comma turns it into a list.
boot_mode_address=04000240000 => warning: The leading 0 makes '04000240000' an octal number, 0x20014000; for hexadecimal write 0x4000240000, for decimal 4000240000.
otp_size=0x200 => error: The program reads '0x200' as 0: only decimal digits are allowed here. Write 512.
otp_size=0b1000000000 => error: The program reads '0b1000000000' as 0: only decimal digits are allowed here. Write 512.
otp_size=512 bytes => error: The program reads '512 bytes' as 0: it is not a number. Write decimal digits only, for example 512.
otp_size=0512 => clean
otp_size=4294967808 => error: The program reads '4294967808' as 512: it does not fit into 32 bits.
)");
}

TEST(OtpSize, MustHoldTheRecords)
{
    ExpectFindings(R"(
otp_size=15 => error: 15 bytes do not hold a record of 16 bytes, so every unit is refused; use 512.
otp_size=0 => error: 0 bytes do not hold a record
otp_size=511 => warning: The program looks for the model identifier in 512 bytes but reads only 511; use 512.
otp_size=1024 => clean
otp_size=1025 => warning: 1025 bytes from 0x1fff7000 reach beyond the one-time-programmable area of the chips 0x469, 0x479; use 512.
)");
}

TEST(McubootBaud, MustBeANumberAndShouldBeACommonSpeed)
{
    ExpectFindings(R"(
mcuboot_baud=fast => error: The program reads 'fast' as 0: it is not a number. Write decimal digits only, for example 921600.
mcuboot_baud=4294967296 => error: The program reads '4294967296' as 0: it does not fit into 32 bits.
mcuboot_baud=4295082496 => error: The program reads '4295082496' as 115200: it does not fit into 32 bits.
mcuboot_baud=0 => error: 0 bits per second is not a common speed
mcuboot_baud=115201 => warning: 115201 bits per second is not a common speed
mcuboot_baud=115200 => clean
)",
                   &BundleFolder::UseMcuboot);
}

TEST(Interface, ThatIsNotKnownMeansUart)
{
    ExpectFindings(R"(
interface=can => warning: 'can' is not a known interface, so the program uses UART; write usb, mcuboot_serial or uart,
interface=usb, usb => warning: 'usb, usb' is not a known interface
interface=usb_serial => warning: 'usb_serial' is not a known interface
interface=UART => warning: 'UART' is not a known interface
interface=uart => clean
)");
    ExpectFindings(R"(
interface=USB => error: 'USB' is not a known interface, so the program uses UART;
interface=Usb => error: 'Usb' is not a known interface
interface=" usb" => error: ' usb' is not a known interface
)",
                   &BundleFolder::UseUsb);
    ExpectFindings(R"(
interface=MCUboot_serial => error: 'MCUboot_serial' is not a known interface
interface=mcuboot-serial => error: 'mcuboot-serial' is not a known interface
interface=mcubootserial => error: 'mcubootserial' is not a known interface
interface=mcuboot => error: 'mcuboot' is not a known interface, so the program uses UART;
interface=MCUboot => error: 'MCUboot' is not a known interface
)",
                   &BundleFolder::UseMcuboot);
}

TEST(Text, WithAnUnquotedCommaIsLost)
{
    ExpectFindings(R"(
window_title=one, two => error: The unquoted comma turns 'one, two' into a list, and the program reads an empty text
instructions_text=one, two => error: The unquoted comma turns 'one, two' into a list
product_text=one, two => error: The unquoted comma turns 'one, two' into a list
fw_version=one, two => error: The unquoted comma turns 'one, two' into a list
firmware_filename=one, two => error: The unquoted comma turns 'one, two' into a list
fw_target_type=one, two => error: The unquoted comma turns 'one, two' into a list
)");
}

TEST(Text, MustNotBeEmptyWithoutADefault)
{
    ExpectFindings(R"(
product_text= => warning: The value is empty, so the window shows no product name; write one.
fw_version="  " => warning: The value is empty, so the window shows no version number; write one.
firmware_filename="" => error: The value is empty, so there is no firmware to write; write one.
window_title= => clean
)");
}

TEST(Text, MustBeUtf8)
{
    ExpectFindings("product_text=\xF6 => warning: The text contains bytes that are not UTF-8");
    ExpectFindings("product_text=\xC3\xB6 => clean");
}

TEST(TargetType, IsCustomerInAnyCaseAndServiceInLowerCaseOnly)
{
    ExpectFindings(R"(
fw_target_type=Customer => clean
fw_target_type=CUSTOMER => clean
fw_target_type="customer " => warning: 'customer ' has spaces around it, so it appears in the window;
fw_target_type=Service => warning: 'Service' appears in the window but does not skip the model check; only 'service',
fw_target_type=" service" => warning: ' service' appears in the window but does not skip the model check;
fw_target_type=costumer => warning: Every customer sees 'costumer' in yellow in the window, but the program does not know the word; did you mean customer?
fw_target_type=Custmer => warning: Every customer sees 'Custmer' in yellow in the window, but the program does not know the word; did you mean customer?
fw_target_type=servise => warning: 'servise' appears in yellow in the window and does not skip the model check; did you mean service?
fw_target_type=SERVCIE => warning: 'SERVCIE' appears in yellow in the window and does not skip the model check; did you mean service?
fw_target_type=consumer => note: 'consumer' appears in yellow in the window; for firmware that customers get, write customer.
fw_target_type=beta => note: 'beta' appears in yellow in the window;
fw_target_type="  " => warning: The value is empty, so the firmware is neither for customers nor for service; write one.
)");
}

TEST(ProductList, HasEntriesOfANameAndTwoIds)
{
    ExpectFindings(R"(
product_list=Lumen:10c4:ea60, Aria:1209 => error: 'Aria:1209' does not have the three parts NAME:VENDOR:PRODUCT and is ignored; write it like Lumen:10c4:ea60.
product_list= => error: '' does not have the three parts NAME:VENDOR:PRODUCT and is ignored; write it like Lumen:10c4:ea60.
product_list="Lumen:10c4:ea60, Aria:10c4:ea61" => error: The quotation marks make one text of the list 'Lumen:10c4:ea60, Aria:10c4:ea61'; remove them.
product_list="Lumen:10c4:ea60" => clean
product_list=Lumen:10c4:ea60:1 => warning: 'Lumen:10c4:ea60:1' has more than the three parts NAME:VENDOR:PRODUCT; remove the rest, which is ignored.
product_list=:10c4:ea60 => warning: In ':10c4:ea60' the product has no name;
product_list=Lumen:10c4:0 => warning: In 'Lumen:10c4:0' the product ID is 0, which no device has; write the unit's own.
product_list=Lumen:10cg:ea60 => error: In 'Lumen:10cg:ea60' the vendor ID '10cg' is not a hexadecimal number and is read as 0; write up to four digits, like ea60.
product_list=Lumen:10c4: => error: In 'Lumen:10c4:' the product ID '' is not a hexadecimal number
product_list=Lumen:10c4:1ea60 => error: In 'Lumen:10c4:1ea60' the product ID has more than four hexadecimal digits, so the program looks for ea60; write up to four digits.
product_list=Flash:0483:DF11 => warning: The USB IDs 0483:df11 belong to an STM32 in USB boot mode, which has no serial port, so such a unit is never found over this interface; write those of its serial port, or set interface=usb.
product_list=Lumen:10c4:ea60, Lumen:10c4:ea61 => error: The product name 'Lumen' appears twice
product_list=Lumen:10c4:ea60, Aria:10C4:EA60 => warning: 'Aria' and 'Lumen' have the same USB IDs; remove one of them.
product_list=Aria:10c4:ea60, @Lumen:10c4:ea61 => clean
)");
}

TEST(ProductList, NeedsTheBootloadersIdsOverUsb)
{
    ExpectFindings("product_list=Lumen:10c4:ea60 => error: No product has the USB IDs 0483:df11",
                   &BundleFolder::UseUsb);
}

TEST(DeviceIdList, HasDecimalNumbersOfOneByte)
{
    ExpectFindings(R"(
device_id_list=7, 0x10 => error: '0x10' is not a decimal number; write 16. The program reads 0.
device_id_list=7; 8 => warning: An unquoted semicolon ends the value, so the program reads only '7'; separate the entries with commas, or put the comment on its own line.
device_id_list=7, => error: A comma without an identifier is read as the model identifier 0; remove the comma.
device_id_list="41;42" => error: '41;42' is not a decimal number; separate identifiers with commas.
device_id_list= => error: The list is empty, which the program reads as the model identifier 0; write the identifiers that this firmware is for, separated by commas.
device_id_list="" => error: The list is empty
device_id_list=, => error: The list is empty
device_id_list="41, 42" => error: The quotation marks make one text of the list '41, 42'; remove them.
device_id_list="41" => clean
device_id_list=%1%2 => error: '%1%2' is not a decimal number; separate identifiers with commas. The program reads 0.
device_id_list=7, 300 => error: '300' does not fit into one byte; identifiers are 0 to 255. The program reads 44.
device_id_list=256 => error: '256' does not fit into one byte
device_id_list=-1 => error: '-1' does not fit into one byte; identifiers are 0 to 255. The program reads 255.
device_id_list=4294967303 => error: '4294967303' does not fit into one byte; identifiers are 0 to 255. The program reads 7.
device_id_list=18446744073709551623 => error: '18446744073709551623' does not fit into one byte; identifiers are 0 to 255. The program reads 0.
device_id_list=0, 255 => clean
device_id_list=2, 300, 44 => error: '300' does not fit into one byte; identifiers are 0 to 255. The program reads 44.
device_id_list=7, 8, 7 => warning: The model identifier 7 appears twice; remove one.
)");
}

TEST(Addresses, MustBeWhereTheProgramAndTheUnitCanUseThem)
{
    ExpectFindings(R"(
start_address=0x08000002 => warning: 0x08000002 is not a multiple of 4, but firmware begins with two words, the stack pointer and the address to start at; write the address of the image's vector table.
start_address=0 => error: 0x00000000 is not in the flash of the chips 0x469, 0x479. It begins at 0x08000000.
start_address=0x08000400 => warning: The unit is started at 0x08000400, outside the image; to start the new firmware write 0x08000000.
boot_mode_address=0x30000000 => error: 0x30000000 is in neither the RAM nor the flash of the chips 0x469, 0x479; choose an address from 0x20004000 on.
boot_mode_address=0x08010000 => warning: 0x08010000 is in flash, where the marker can be written only once
boot_mode_address=0x20014002 => error: 0x20014002 is not a multiple of 4, but the bootloader writes only whole words; choose a multiple of 4.
boot_mode_address=0x20000000 => error: 0x20000000 is in the RAM below 0x20004000
boot_mode_address=0x20003ffc => error: 0x20003ffc is in the RAM below 0x20004000, which the bootloader itself uses, so the marker never reaches the firmware; choose an address from 0x20004000 on.
boot_mode_address=0x20004000 => clean
otp_address=0x1FFF0000 => warning: 0x1fff0000 is not in the one-time-programmable area of any supported chip; use 0x1fff7000 on the chips 0x469, 0x479, or 0x0bfa0000 on the chip 0x482.
)");
}

TEST(Addresses, MustBeInFlashOnAProgrammingUnitAndWhereTheProgramErases)
{
    ExpectFindings({
        {{{"programming_address", "0x20000000"}},
         "config.ini:3: error: programming_address: 0x20000000 is not in the flash of the chips "
         "0x469, 0x479.",
         false},
        {{{"start_address", "0x20000000"}},
         "config.ini:2: error: start_address: 0x20000000 is not in the flash of the chips 0x469, "
         "0x479."},
        {{{"programming_address", "8000000"}},
         "config.ini:3: error: programming_address: 0x007a1200 is not in the flash of the chips "
         "0x469, 0x479. For hexadecimal write 0x08000000.",
         false},
        {{{"programming_address", "0x08000002"}},
         "config.ini:3: error: programming_address: 0x08000002 is not a multiple of 8",
         false},
        {{{"programming_address", "0x08000004"}},
         "config.ini:3: error: programming_address: 0x08000004 is not a multiple of 8",
         false},
        {{{"programming_address", "0x08004000"}, {"start_address", "0x08004000"}},
         "config.ini:3: warning: programming_address: The program erases as many pages as the "
         "image has, starting at 0x08000000, but writes at 0x08004000, so the end of the image is "
         "written to pages that were not erased. Link the image for 0x08000000, and write "
         "0x08000000 here.",
         false},
        {{{"boot_mode_address", "0x08000100"}},
         "config.ini:6: error: boot_mode_address: The marker is written to 0x08000100, into the "
         "image",
         false},
    });
    ExpectFindings(
        {{{{"otp_address", "0x0BFA0000"}, {"programming_address", "0x08000008"}},
          "config.ini:3: error: programming_address: 0x08000008 is not a multiple of 16. "
          "Flash is programmed 16 bytes at a time, so the unit does not store the firmware; choose "
          "a multiple of 16.",
          false}});
    // dfu-util erases where it writes.
    for (uint32_t const address : {0x08004000U, 0x08000008U}) {
        BundleFolder bundle;
        bundle.UseUsb();
        bundle.Set("programming_address", QByteArray::number(address));
        bundle.Write(u"Resources/firmware.bin"_s, MakeStm32Image(1024, address));
        EXPECT_TRUE(FindsNothing(bundle)) << address;
    }
    ExpectFindings(R"(
programming_address=0x08000004 => error: 0x08000004 is not a multiple of 8. Flash is programmed 8 bytes at a time
)",
                   &BundleFolder::UseUsb);
}
