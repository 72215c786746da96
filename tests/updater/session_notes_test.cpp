// The sentences of the support log about a session: what they say, and that a result which repeats
// itself for hours takes two lines. The transports' tests have the causes.
#include "updater/session_notes.h"

#include <gmock/gmock.h>

#include "tests/updater/otp_area.h"
#include "updater/model_id.h"

using namespace Qt::StringLiterals;

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::SizeIs;

class SessionNotesTest : public testing::Test {
protected:
    SessionNotesTest()
    {
        notes_->SetSink([this](QString const& line) { lines_.push_back(line.toStdString()); });
    }

    // One attempt that ends without an answer.
    void Fail(QString const& failure)
    {
        notes_->ConnectRequested(u"ttyX"_s);
        notes_->failure = failure;
        notes_->NotConnected();
    }

    static testing::Matcher<std::string> Repeats(std::string const& times, std::string const& what)
    {
        return MatchesRegex("the same " + times +
                            ", the last at [0-9:]{8}: no unit answers on ttyX: " + what);
    }

    std::vector<std::string> lines_;
    std::unique_ptr<SessionNotes> notes_ = std::make_unique<SessionNotes>();
};

}  // namespace

TEST_F(SessionNotesTest, HasUnitAndModelOfAUnitThatIsFoundOrRefused)
{
    notes_->ConnectRequested(u"ttyX"_s);
    notes_->unit = u"STM32"_s;
    notes_->Found();
    notes_->model = u"model 7"_s;
    notes_->Refused();
    notes_->ConnectRequested(u"ttyY"_s);
    notes_->Found();

    EXPECT_THAT(lines_,
                ElementsAre("unit found on ttyX: STM32", "unit refused on ttyX: STM32; model 7",
                            "unit found on ttyY: "));
}

TEST_F(SessionNotesTest, CountsTheSameResultUntilAnotherComes)
{
    for (int i = 0; i < 100; ++i) {
        Fail(u"silence"_s);
    }
    EXPECT_THAT(lines_, ElementsAre("no unit answers on ttyX: silence"));
    Fail(u"noise"_s);
    Fail(u"noise"_s);
    notes_->Disconnected();
    Fail(u"noise"_s);
    Fail(u"noise"_s);
    notes_.reset();

    EXPECT_THAT(lines_,
                ElementsAre("no unit answers on ttyX: silence", Repeats("99 more times", "silence"),
                            "no unit answers on ttyX: noise", Repeats("1 more time", "noise"),
                            "no unit answers on ttyX: noise", Repeats("1 more time", "noise")));
}

TEST_F(SessionNotesTest, CountsResultsThatAlternate)
{
    for (int i = 0; i < 50; ++i) {
        Fail(u"silence"_s);
        Fail(u"refused"_s);
    }
    EXPECT_THAT(lines_, ElementsAre("no unit answers on ttyX: silence",
                                    "no unit answers on ttyX: refused"));
    lines_.clear();
    notes_->Found();

    EXPECT_THAT(lines_, ElementsAre(Repeats("49 more times", "silence"),
                                    Repeats("49 more times", "refused"), "unit found on ttyX: "));
}

TEST_F(SessionNotesTest, CallAUnitRefusedThatAnsweredButCannotBeUsed)
{
    notes_->ConnectRequested(u"ttyX"_s);
    notes_->unit = u"STM32 with product id 0x0410"_s;
    notes_->failure = u"it is not supported"_s;
    notes_->NotConnected();

    EXPECT_THAT(lines_, ElementsAre("unit refused on ttyX: STM32 with product id 0x0410; it is not "
                                    "supported"));
}

TEST_F(SessionNotesTest, HandOverWhatTheyHoldBack)
{
    std::vector<std::string> held_back;
    notes_->SetSink({}, [&](QString const& line) { held_back.push_back(line.toStdString()); });
    Fail(u"no answer within 1 ms"_s);
    Fail(u"no answer within 2 ms"_s);

    EXPECT_THAT(held_back, ElementsAre("no unit answers on ttyX: no answer within 2 ms"));
}

TEST_F(SessionNotesTest, WriteTheirCountsBeforeALastLine)
{
    Fail(u"silence"_s);
    Fail(u"silence"_s);
    notes_->WriteLast(u"the end"_s);

    EXPECT_THAT(lines_, ElementsAre("no unit answers on ttyX: silence",
                                    Repeats("1 more time", "silence"), "the end"));
}

TEST_F(SessionNotesTest, RemembersAFewResultsOnly)
{
    for (auto const* const failure : {"a", "b", "c", "d", "e", "a"}) {
        Fail(QLatin1String(failure));
    }
    EXPECT_THAT(lines_, SizeIs(6));
}

TEST_F(SessionNotesTest, CountsResultsThatDifferOnlyInWhatIsMeasured)
{
    Fail(u"image state: no answer within 2664 ms"_s);
    Fail(u"image state: no answer within 2671 ms"_s);
    Fail(u"2 bytes after 6 ms, not a good answer: no line: \"ab\""_s);
    Fail(u"1 byte after 7 ms, not a good answer: no line: \"\"\"..."_s);
    Fail(u"error code 5 after 6 ms"_s);
    Fail(u"error code 7 after 6 ms"_s);

    EXPECT_THAT(lines_,
                ElementsAre("no unit answers on ttyX: image state: no answer within 2664 ms",
                            Repeats("1 more time", "image state: no answer within 2671 ms"),
                            HasSubstr("2 bytes after 6 ms"), HasSubstr("the same 1 more time"),
                            HasSubstr("error code 5"), HasSubstr("error code 7")));
}

TEST_F(SessionNotesTest, HasFiguresOfAnUpdateAndTheCauseOfItsFailure)
{
    notes_->UpdateStarted();
    notes_->image_size = 520;
    notes_->written = 256;
    notes_->failure = u"silence"_s;
    notes_->figures = u"erase 0.1 s"_s;
    notes_->UpdateEnded(false);
    notes_->UpdateEnded(true);
    notes_->NotRestarted();

    EXPECT_THAT(
        lines_,
        ElementsAre("update failed after 256 of 520 bytes and 0.0 s: silence; erase 0.1 s",
                    MatchesRegex("update succeeded: 256 bytes in 0.0 s, [0-9.]+ kB/s; erase 0.1 s"),
                    "the updated unit was not restarted: silence"));
}

TEST(SessionNotes, WithoutASinkAreDropped)
{
    SessionNotes notes;
    notes.ConnectRequested({});
    notes.Found();
}

TEST(Identity, IsThatOfTheFirstRecords)
{
    auto const otp = [](QByteArray const& bytes) {
        auto const padded = bytes.leftJustified(512, '\xFF');
        auto const* const begin = reinterpret_cast<std::byte const*>(padded.constData());
        return std::vector<std::byte>(begin, begin + padded.size());
    };
    auto const model = QByteArray::fromHex(
                           "11472301"
                           "09")
                           .leftJustified(16, '\0');
    auto const serial = QByteArray::fromHex("AFA4A63C") + QByteArray("K-00123\0\0\0\0\0", 12);
    auto const full = QByteArray::fromHex("AFA4A63C") + QByteArray("123456789012");

    EXPECT_EQ(DescribeModelIn(otp(model + serial), {7, 12}, {}),
              u"model 9; this firmware is for 7, 12; serial number K-00123"_s);
    EXPECT_EQ(DescribeModelIn(otp(full + model), {9}, {}),
              u"model 9; this firmware is for 9; serial number 123456789012"_s);
    EXPECT_EQ(DescribeModelIn(otp({}), {}, {}),
              u"no model record in 512 bytes of OTP; this firmware is for no model"_s);
    EXPECT_EQ(DescribeModelIn({}, {7}, u"Read Memory: silence"_s),
              u"the OTP area cannot be read: Read Memory: silence"_s);
    EXPECT_EQ(DescribeModelIn({}, {7}, {}), u"the OTP area cannot be read"_s);
}
