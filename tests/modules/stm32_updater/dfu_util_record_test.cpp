// What of each run of the tool goes into the session's record.
#include <gmock/gmock.h>

#include "tests/modules/stm32_updater/dfu_util_fixture.h"
#include "tests/support/collected_record.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using record::Direction;

namespace stm32_updater::test {
namespace {

class DfuUtilRecord : public DfuUtilTest {
protected:
    DfuUtilRecord() { updater_.SetRecord(record_); }

    QString LastText() const { return record_.Texts().value(record_.Texts().size() - 1); }

    CollectedRecord record_;
};

TEST_F(DfuUtilRecord, OfADownloadHasArgumentsOutputErrorsAndExitCode)
{
    tool_.Does("printf 'Download'; printf 'oops' >&2; exit 74\n");
    testing::internal::CaptureStderr();
    ASSERT_TRUE(updater_.Update("fw.bin", 0x08000000));
    ASSERT_TRUE(signals_.WaitFor(u"finished true"_s));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "oops");

    EXPECT_EQ(record_.Texts().value(0),
              u"line 1 dfu-util: USB DFU, 1209:0001: the tool's arguments and standard output"_s);
    auto const arguments = record_.Bytes(u"dfu-util"_s, Direction::kOut);
    EXPECT_TRUE(arguments.endsWith('\0'));
    EXPECT_EQ(arguments.chopped(1).split('\0'),
              QByteArrayList(
                  {"-d", "1209:0001", "-a", "0", "-s", "0X08000000:fast:leave", "-D", "fw.bin"}));
    EXPECT_EQ(record_.Bytes(u"dfu-util"_s, Direction::kIn), "Download");
    EXPECT_EQ(record_.Bytes(u"dfu-util stderr"_s, Direction::kIn), "oops");
    EXPECT_EQ(LastText(), u"event: exit code=74 status=normal"_s);
}

TEST_F(DfuUtilRecord, SaysHowADownloadEndedThatWasKilledOrNeverStarted)
{
    tool_.Does("kill -s KILL $$\n");
    ASSERT_TRUE(updater_.Update("fw.bin", 0));
    ASSERT_TRUE(signals_.WaitFor(u"finished false"_s));
    EXPECT_TRUE(LastText().endsWith(u"status=crashed")) << LastText().toStdString();

    Stm32DfuUtilUpdater missing(nullptr, u"1209:0001"_s, u"/no/such/tool"_s, kShort);
    missing.SetRecord(record_);
    ASSERT_TRUE(missing.Update("fw.bin", 0));
    EXPECT_TRUE(
        QTest::qWaitFor([&] { return LastText().endsWith(u"status=not-started"); }, kPatience))
        << LastText().toStdString();
}

TEST_F(DfuUtilRecord, OfTheOtpAreaHasWhatTheToolWroteAndPrinted)
{
    tool_.Write(u"area"_s, "\x11\x47");
    tool_.Does("printf 'Upload'; printf 'note' >&2; read_unit_as area\n");

    updater_.GetOtp(0x1FFF7000, 512);

    EXPECT_EQ(record_.Bytes(u"dfu-util"_s, Direction::kOut).split('\0').value(5), "0x1fff7000:512");
    EXPECT_EQ(record_.Bytes(u"dfu-util"_s, Direction::kIn), "Upload");
    EXPECT_EQ(record_.Bytes(u"dfu-util stderr"_s, Direction::kIn), "note");
    EXPECT_EQ(record_.Bytes(u"dfu-util file"_s, Direction::kIn), "\x11\x47");
    EXPECT_TRUE(record_.Texts().contains(u"event: exit code=0 status=normal"_s));
}

TEST_F(DfuUtilRecord, SaysThatAToolIsKilledThatReadsForTooLong)
{
    tool_.Does("wait_for_test\n");
    Stm32DfuUtilUpdater hasty(nullptr, u"1209:0001"_s, tool_.Path(), {.otp_limit = 1ms});
    hasty.SetRecord(record_);

    EXPECT_TRUE(hasty.GetOtp(0, 512).empty());

    EXPECT_TRUE(LastText().endsWith(u"status=killed")) << LastText().toStdString();
}

}  // namespace
}  // namespace stm32_updater::test
