// The USB devices that dfu-util lists: what is read from its output, and what becomes of a tool
// that hangs, fails or never stops.
#include "modules/stm32_updater/dfu_util_listing.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <QElapsedTimer>
#include <QFile>

#include "tests/support/stand_in_tool.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace stm32_updater {
namespace {

TEST(DfuListing, HasTheIdsOfEachDeviceLine)
{
    struct {
        char const* name;
        QByteArray output;
        QStringList devices;
    } const rows[] = {
        {"two devices among other lines",
         "dfu-util 0.11\n\nThis program is Free Software and has ABSOLUTELY NO WARRANTY\n\n"
         "Found DFU: [0483:df11] ver=0200, devnum=7, cfg=1, intf=0, path=\"1-2\", alt=0, "
         "name=\"@Internal Flash   /0x08000000/256*02Kg\", serial=\"204638863141\"\n"
         "Found Runtime: [1d50:6089] ver=0100, devnum=3, cfg=1, intf=2, path=\"1-1\"\n",
         {u"0483:df11"_s, u"1d50:6089"_s}},
        {"duplicates",
         "[0483:df11] alt=1\n[10c4:ea60]\n[0483:df11] alt=0\n",
         {u"0483:df11"_s, u"10c4:ea60"_s, u"0483:df11"_s}},
        {"two on one line", "[0483:df11] [10c4:ea60]\n", {u"0483:df11"_s}},
        {"upper and lower case", "[0483:DF11]\n[0483:dF11]", {u"0483:DF11"_s, u"0483:dF11"_s}},
        {"carriage returns and no newline at the end",
         "[0483:df11]\r\n\r\nx [10c4:ea60]",
         {u"0483:df11"_s, u"10c4:ea60"_s}},
        {"what only resembles ids",
         "[483:df11]\n[0483:df1]\n[00483:df11]\n[0483:df110]\n[0483-df11]\n0483:df11\n"
         "[0483:dg11]\n[0483: df11]\n[0483:\ndf11]\n",
         {}},
        {"nothing", {}, {}},
        {"bytes that are not text", QByteArray("\xFF\x00\xFE\n", 4), {}},
        {"a megabyte of empty lines on either side",
         QByteArray(1 << 20, '\n') + "[0483:df11]" + QByteArray(1 << 20, '\n'),
         {u"0483:df11"_s}},
    };
    for (auto const& [name, output, devices] : rows) {
        EXPECT_EQ(ParseDfuListing(output), devices) << name;
    }
}

TEST(DfuListing, OfARecordedRunHasItsUnit)
{
    QFile file(QStringLiteral(FW_RECORDED_OUTPUT "/dfu_util_0.11_list.txt"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));

    EXPECT_EQ(ParseDfuListing(file.readAll()), QStringList({u"0483:df11"_s}));
}

TEST(DfuListing, HasWhatTheToolPrintedHoweverItEnds)
{
    StandInTool tool;
    EXPECT_EQ(ListDfuDevices(tool.Path()), QStringList()) << "a missing tool";
    for (auto const* end : {"", "exit 74\n", "kill -s KILL $$\n"}) {
        tool.Does(QByteArray("echo '[0483:df11]'; echo '[1209:0001]' >&2; ") + end);
        EXPECT_EQ(ListDfuDevices(tool.Path()), QStringList({u"0483:df11"_s})) << end;
    }
    EXPECT_EQ(tool.Arguments().first(2), QStringList({u"-l"_s, u"-a0"_s}));
    EXPECT_EQ(tool.ProcessIds().size(), 3) << "one run for each list";
}

TEST(DfuListing, OfAToolThatDoesNotEndHasWhatWasPrintedWhenTheTimeIsUp)
{
    EXPECT_EQ(kDfuListTimeout, 30000ms);
    struct {
        char const* commands;
        QStringList devices;
    } const rows[] = {
        {"echo '[0483:df11]'; exec cat \"$here/gate\"\n", {u"0483:df11"_s}},
        {"echo '[0483:df11]'; exec >/dev/null; exec cat \"$here/gate\"\n", {u"0483:df11"_s}},
        {"echo '[0483:df11]'; exec yes '['\n", {u"0483:df11"_s}},
        {"exec cat /dev/zero\n", {}},
        {"exec cat /dev/zero >&2\n", {}},
    };
    StandInTool tool;
    for (auto const& [commands, devices] : rows) {
        tool.Does(commands);
        QElapsedTimer timer;
        timer.start();

        EXPECT_EQ(ListDfuDevices(tool.Path(), 300ms), devices) << commands;

        EXPECT_GE(timer.elapsed(), 300) << commands;
        EXPECT_LT(timer.elapsed(), 10'000) << commands;
        EXPECT_NE(::kill(static_cast<pid_t>(tool.ProcessIds().last()), 0), 0) << commands;
    }
}

TEST(DfuListing, IsReadUpToAMegabyte)
{
    ASSERT_EQ(kLongestDfuListing, size_t{1048564 + 1 + 11});
    StandInTool tool;
    // A newline and 11 characters, of which the last is the last byte that is read.
    tool.Does("head -c 1048564 /dev/zero; printf '\\n[0483:df11]'\n");
    EXPECT_EQ(ListDfuDevices(tool.Path()), QStringList({u"0483:df11"_s}));

    tool.Does("head -c 1048565 /dev/zero; printf '\\n[0483:df11]\\n'; head -c 5000000 /dev/zero\n");
    EXPECT_EQ(ListDfuDevices(tool.Path()), QStringList());
}

}  // namespace
}  // namespace stm32_updater
