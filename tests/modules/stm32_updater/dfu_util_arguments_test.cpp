// The command lines of dfu-util, word by word.
#include "modules/stm32_updater/dfu_util_arguments.h"

#include <gtest/gtest.h>

#include "modules/stm32_updater/limits.h"

using namespace Qt::StringLiterals;

namespace stm32_updater {
namespace {

TEST(DfuUtilArguments, ListTheFirstAlternateSettingAndNameTheBootloadersIdsInHexadecimal)
{
    EXPECT_EQ(GetListArguments(), QStringList({u"-l"_s, u"-a0"_s}));
    EXPECT_STREQ(kDfuDevice, "0483:df11");
}

TEST(DfuUtilArguments, OfADownloadHaveTheAddressInEightUpperCaseDigits)
{
    EXPECT_EQ(
        GetDownloadArguments(u"0483:df11"_s, u"/Geräte/my \"$HOME\" *'; fw.bin"_s, 0x8000000),
        QStringList({u"-d"_s, u"0483:df11"_s, u"-a"_s, u"0"_s, u"-s"_s, u"0X08000000:fast:leave"_s,
                     u"-D"_s, u"/Geräte/my \"$HOME\" *'; fw.bin"_s}));
    EXPECT_EQ(GetDownloadArguments({}, {}, 0)[5], u"0X00000000:fast:leave"_s);
    EXPECT_EQ(GetDownloadArguments({}, {}, 0x0801ABCD)[5], u"0X0801ABCD:fast:leave"_s);
    EXPECT_EQ(GetDownloadArguments({}, {}, 0xFFFFFFFF)[5], u"0XFFFFFFFF:fast:leave"_s);
}

TEST(DfuUtilArguments, OfAnOtpReadHaveTheAddressInLowerCaseAndTheSizeInDecimal)
{
    EXPECT_EQ(GetOtpArguments(u"1209:0001"_s, u"/tmp/otp.bin"_s, 0x1FFF7800, 512),
              QStringList({u"-d"_s, u"1209:0001"_s, u"-a"_s, u"2"_s, u"-s"_s, u"0x1fff7800:512"_s,
                           u"-U"_s, u"/tmp/otp.bin"_s}));
    EXPECT_EQ(GetOtpArguments({}, {}, 0x1FFF7000, 1024)[5], u"0x1fff7000:1024"_s);
    EXPECT_EQ(GetOtpArguments({}, {}, 0, 0)[5], u"0x00000000:0"_s);
    EXPECT_EQ(GetOtpArguments({}, {}, 0xFFFFFFFF, 0xFFFFFFFFFFFFFFFF)[5],
              u"0xffffffff:18446744073709551615"_s);
}

}  // namespace
}  // namespace stm32_updater
