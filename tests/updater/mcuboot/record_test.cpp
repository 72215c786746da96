// What of a conversation over MCUboot's line goes into the session's record.
#include <gmock/gmock.h>

#include "tests/support/collected_record.h"
#include "tests/updater/mcuboot/updater_on_line.h"
#include "updater/recorded_line.h"

using namespace std::chrono_literals;
using record::Direction;

namespace {

class McubootRecord : public UpdaterOnLine {
protected:
    CollectedRecord record_;
};

}  // namespace

TEST_F(McubootRecord, HasEveryLineThatIsWrittenAndEveryAnswerAfterTheRequestToConnect)
{
    MakeUpdater();
    updater_->SetRecord(record_);
    line_.Answers(mcuboot::test::RcAnswer(0));

    updater_->onConnectToDevice(kPort, {}, false);

    auto const texts = record_.Texts();
    EXPECT_EQ(texts.value(0), QStringLiteral("session port"));
    EXPECT_EQ(texts.value(1), QStringLiteral("line 1 port: MCUboot serial, 921600 baud, 8N1"));
    ASSERT_EQ(line_.Lines().size(), 1U);
    EXPECT_EQ(record_.Bytes(kPort, Direction::kOut), line_.Lines()[0]);
    EXPECT_EQ(record_.Bytes(kPort, Direction::kIn), mcuboot::test::RcAnswer(0));
}

TEST_F(McubootRecord, HasNoLineOfAPortThatCannotBeOpened)
{
    MakeUpdater();
    updater_->SetRecord(record_);

    updater_->onConnectToDevice(QStringLiteral("other"), {}, false);

    EXPECT_EQ(record_.Texts(), QStringList(QStringLiteral("session other")));
}

TEST_F(McubootRecord, ChangesNothingThatTheConversationDoes)
{
    mcuboot::test::ScriptedLine bare;
    bare.Answers("abc\n");
    auto const converse = [](mcuboot::ILine& line) {
        line.Pause(5ms);
        line.Clear();
        line.Write("request\n");
        return line.Read(10ms);
    };
    auto const recorded =
        RecordLine(std::make_unique<OpenLine>(line_, open_lines_), record_, kPort, 1);
    line_.Answers("abc\n");

    EXPECT_EQ(converse(*recorded), converse(bare));
    EXPECT_EQ(line_.Steps(), bare.Steps());
    EXPECT_EQ(line_.Now(), bare.Now());
}
