// The upload: chunks, offsets that the unit asks for, progress, failures.
#include <gmock/gmock.h>

#include <optional>

#include "tests/support/broken_file.h"
#include "tests/updater/mcuboot/observed_waits.h"
#include "tests/updater/mcuboot/updater_fixture.h"

namespace {

using mcuboot::test::FromHex;
using mcuboot::test::MakeAnswer;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

QByteArray PatternImage(int size)
{
    QByteArray image;
    for (int i = 0; i < size; ++i) {
        image.append(static_cast<char>((7 * i + 3) % 256));
    }
    return image;
}

// 16-bit value as CBOR, always in three bytes; only for 256 and above.
QByteArray LongUint(int value)
{
    return QByteArray("\x19") + static_cast<char>(value >> 8) + static_cast<char>(value & 0xFF);
}

class Upload : public UpdaterFixture {
protected:
    bool UploadImage(QByteArray const& image)
    {
        return updater_->upload(WriteImage(image),
                                [this](int percent) { percents_.push_back(percent); });
    }

    // Payloads of the requests behind the probe.
    std::vector<QByteArray> GetChunks()
    {
        std::vector<QByteArray> chunks;
        for (auto const& request : unit_.WaitForRequests(1)) {
            chunks.push_back(request.payload);
        }
        chunks.erase(chunks.begin());
        return chunks;
    }

    std::vector<int> percents_;
};

TEST_F(Upload, OfAnEmptyFileSendsNothingAndSucceeds)
{
    ConnectUpdater();
    EXPECT_TRUE(UploadImage({}));
    EXPECT_THAT(GetChunks(), IsEmpty());
    EXPECT_THAT(percents_, IsEmpty());
}

TEST_F(Upload, Of1483BytesTakesOneRequestWithFourKeys)
{
    ConnectUpdater();
    auto const image = PatternImage(1483);
    unit_.Answers(OffAnswer(1483));
    EXPECT_TRUE(UploadImage(image));
    EXPECT_THAT(GetChunks(),
                ElementsAre(FromHex("bf6464617461 5905cb") + image + FromHex("636f6666 00") +
                            FromHex("636c656e 1905cb 65696d616765 00 ff")));
    EXPECT_THAT(percents_, ElementsAre(100));
    EXPECT_THAT(unit_.Journal()[1], "2 1 1 0");
}

TEST_F(Upload, Of1484BytesTakesASecondRequestWithOneByte)
{
    ConnectUpdater();
    auto const image = PatternImage(1484);
    unit_.Answers(OffAnswer(1483)).Answers(OffAnswer(1484));
    EXPECT_TRUE(UploadImage(image));
    EXPECT_THAT(
        GetChunks(),
        ElementsAre(FromHex("bf6464617461 5905cb") + image.first(1483) +
                        FromHex("636f6666 00 636c656e 1905cc 65696d616765 00 ff"),
                    FromHex("bf6464617461 41") + image.last(1) + FromHex("636f6666 1905cb ff")));
    EXPECT_THAT(percents_, ElementsAre(99, 100));
    EXPECT_THAT(unit_.Journal(), ElementsAre("0 1 0 0", "2 1 1 0", "2 1 1 1"));
}

TEST_F(Upload, TakesAnAnswerWithoutOffsetForTheWholeChunk)
{
    ConnectUpdater();
    unit_.AlwaysAnswers(RcAnswer(0));
    EXPECT_TRUE(UploadImage(PatternImage(3000)));
    EXPECT_EQ(GetChunks().size(), 3U);
    EXPECT_THAT(percents_, ElementsAre(49, 98, 100));
}

TEST_F(Upload, SetsTheSequenceBackEachTime)
{
    ConnectUpdater();
    unit_.AlwaysAnswers(RcAnswer(0));
    EXPECT_TRUE(UploadImage(PatternImage(10)));
    updater_->reset();
    EXPECT_TRUE(UploadImage(PatternImage(10)));
    EXPECT_THAT(unit_.Journal(), ElementsAre("0 1 0 0", "2 1 1 0", "2 0 5 1", "2 1 1 0"));
}

TEST_F(Upload, GoesBackWhereTheUnitAsksForIt)
{
    ConnectUpdater();
    auto const image = PatternImage(4000);
    unit_.Answers(OffAnswer(1483)).Answers(OffAnswer(1000));
    unit_.AlwaysAnswers(RcAnswer(0));
    EXPECT_TRUE(UploadImage(image));
    auto const chunks = GetChunks();
    ASSERT_EQ(chunks.size(), 5U);
    EXPECT_EQ(chunks[2], FromHex("bf6464617461 5905cb") + image.mid(1000, 1483) +
                             FromHex("636f6666 1903e8 ff"));
    EXPECT_EQ(chunks[4], FromHex("bf6464617461") + FromHex("5822") + image.mid(3966, 34) +
                             FromHex("636f6666") + LongUint(3966) + FromHex("ff"));
    EXPECT_THAT(percents_, ElementsAre(37, 25, 62, 99, 100));
}

TEST_F(Upload, BackAtTheStartSendsTheFirstChunksKeysAgain)
{
    ConnectUpdater();
    unit_.Answers(OffAnswer(1483)).Answers(OffAnswer(0));
    unit_.AlwaysAnswers(RcAnswer(0));
    EXPECT_TRUE(UploadImage(PatternImage(2000)));
    auto const chunks = GetChunks();
    ASSERT_EQ(chunks.size(), 4U);
    EXPECT_EQ(chunks[2], chunks[0]);
    EXPECT_EQ(chunks[3], chunks[1]);
    EXPECT_TRUE(chunks[2].contains("eimage"));
    EXPECT_FALSE(chunks[3].contains("eimage"));
}

TEST_F(Upload, LeapsAheadWhereTheUnitAsksForIt)
{
    ConnectUpdater();
    unit_.Answers(OffAnswer(3999)).Answers(OffAnswer(4000));
    EXPECT_TRUE(UploadImage(PatternImage(4000)));
    EXPECT_THAT(percents_, ElementsAre(99, 100));
    EXPECT_EQ(GetChunks()[1], FromHex("bf6464617461 41") + PatternImage(4000).last(1) +
                                  FromHex("636f6666 190f9f ff"));
}

TEST_F(Upload, EndsWithSuccessWhenTheUnitAsksBeyondTheEnd)
{
    ConnectUpdater();
    unit_.Answers(OffAnswer(6000));
    EXPECT_TRUE(UploadImage(PatternImage(3000)));
    EXPECT_THAT(percents_, ElementsAre(200));
    EXPECT_EQ(GetChunks().size(), 1U);
}

TEST_F(Upload, SurvivesTheLargestOffset)
{
    ConnectUpdater();
    unit_.Answers(OffAnswer(0x7FFFFFFF));
    EXPECT_TRUE(UploadImage(PatternImage(1)));
    EXPECT_THAT(percents_, ElementsAre(0x7FFFFFFF));
}

TEST_F(Upload, FailsWhenTheUnitAsksForANegativeOffset)
{
    for (auto const offset : {-1, -0x7FFFFFFF - 1}) {
        ConnectUpdater(true);
        unit_.Answers(OffAnswer(offset));
        EXPECT_FALSE(UploadImage(PatternImage(3000)));
        EXPECT_THAT(LinesSinceConnect(),
                    ElementsAre("W: McubootSerialUpdater: device asked for offset " +
                                std::to_string(offset)));
        updater_->disconnect();
    }
    EXPECT_THAT(percents_, IsEmpty());
}

TEST_F(Upload, GivesUpOnAUnitThatKeepsAskingForTheSameOffset)
{
    for (auto const offset : {0, 1483}) {
        ConnectUpdater(true);
        unit_.AlwaysAnswers(OffAnswer(offset));
        percents_.clear();
        EXPECT_FALSE(UploadImage(PatternImage(3000)));
        EXPECT_EQ(percents_.size(), offset == 0 ? 16U : 17U);
        EXPECT_THAT(LinesSinceConnect(),
                    ElementsAre("W: McubootSerialUpdater: device does not advance at offset " +
                                std::to_string(offset)));
        updater_->disconnect();
    }
}

TEST_F(Upload, BearsFifteenRepeatsOfOneOffset)
{
    ConnectUpdater();
    for (int i = 0; i < 15; ++i) {
        unit_.Answers(OffAnswer(0));
    }
    unit_.Answers(OffAnswer(1483));
    for (int i = 0; i < 15; ++i) {
        unit_.Answers(OffAnswer(1483));
    }
    unit_.Answers(OffAnswer(3000));
    EXPECT_TRUE(UploadImage(PatternImage(3000)));
}

TEST_F(Upload, BearsFifteenSingleRepeatsOnTheWayForwardAgain)
{
    ConnectUpdater();
    unit_.Answers(OffAnswer(1483)).Answers(OffAnswer(0));
    for (int i = 0; i < 15; ++i) {
        unit_.Answers(OffAnswer(10 * i)).Answers(OffAnswer(10 * i + 10));
    }
    unit_.AlwaysAnswers(RcAnswer(0));
    EXPECT_TRUE(UploadImage(PatternImage(3000)));
    EXPECT_EQ(percents_.size(), 2U + 30U + 2U);
}

TEST_F(Upload, BearsFifteenWaysBackBetweenTwoOffsetsThatAreNew)
{
    ConnectUpdater();
    for (auto const furthest : {1483, 2966}) {
        unit_.Answers(OffAnswer(furthest));
        for (int i = 0; i < 15; ++i) {
            unit_.Answers(OffAnswer(0)).Answers(OffAnswer(furthest));
        }
    }
    unit_.AlwaysAnswers(RcAnswer(0));
    EXPECT_TRUE(UploadImage(PatternImage(3000)));
}

TEST_F(Upload, GivesUpOnAUnitThatRepeatsAndGoesBackInTurns)
{
    ConnectUpdater();
    for (int i = 0; i < 20; ++i) {
        unit_.Answers(OffAnswer(1483)).Answers(OffAnswer(1483));
        unit_.Answers(OffAnswer(0)).Answers(OffAnswer(0));
    }
    EXPECT_FALSE(UploadImage(PatternImage(3000)));
    // The sixteenth way back.
    EXPECT_EQ(percents_.size(), 15U * 4U + 3U);
}

TEST_F(Upload, GivesUpOnAUnitThatGoesBackAgainAndAgain)
{
    ConnectUpdater();
    for (int i = 0; i < 40; ++i) {
        unit_.Answers(OffAnswer(1483)).Answers(OffAnswer(0));
    }
    EXPECT_FALSE(UploadImage(PatternImage(3000)));
    EXPECT_EQ(percents_.size(), 32U);
}

TEST_F(Upload, FailsAtTheFirstErrorCode)
{
    ConnectUpdater(true);
    unit_.Answers(OffAnswer(1483)).Answers(RcAnswer(3));
    EXPECT_FALSE(UploadImage(PatternImage(4000)));
    EXPECT_THAT(LinesSinceConnect(),
                ElementsAre("W: McubootSerialUpdater: device returned error code 3 for upload "
                            "packet at offset 1483"));
    EXPECT_EQ(GetChunks().size(), 2U);
    EXPECT_THAT(percents_, ElementsAre(37));
}

TEST_F(Upload, FailsAtTheFirstAnswerThatCannotBeUsed)
{
    ConnectUpdater(true);
    auto bad = OffAnswer(1483);
    bad[6] = bad[6] == 'A' ? 'B' : 'A';
    unit_.Answers(bad);
    EXPECT_FALSE(UploadImage(PatternImage(4000)));
    EXPECT_THAT(LinesSinceConnect(),
                ElementsAre("W: McubootSerialUpdater: failed to parse response for upload packet "
                            "at offset 0"));
    EXPECT_EQ(GetChunks().size(), 1U);
}

TEST_F(Upload, FailsWhenTheUnitIsPulledOut)
{
    ConnectUpdater(true);
    unit_.Answers(OffAnswer(1483)).Vanishes();
    EXPECT_FALSE(UploadImage(PatternImage(4000)));
    EXPECT_THAT(
        LinesSinceConnect(),
        ElementsAre("W: McubootSerialUpdater: no response for upload packet at offset 1483"));
}

TEST_F(Upload, LogsNoFailureOfTheUnitWhenNotVerbose)
{
    ConnectUpdater(false);
    unit_.Answers(RcAnswer(3)).Answers("noise\n").Answers(OffAnswer(-1));
    for (int i = 0; i < 16; ++i) {
        unit_.Answers(OffAnswer(0));
    }
    unit_.Vanishes();
    for (int i = 0; i < 5; ++i) {
        EXPECT_FALSE(UploadImage(PatternImage(10)));
    }
    EXPECT_THAT(LinesSinceConnect(), IsEmpty());
}

TEST_F(Upload, FailsOnAClosedPort)
{
    McubootSerialUpdater updater(QString(), 921600, true, QString(), nullptr);
    EXPECT_FALSE(updater.upload(WriteImage(PatternImage(10)), {}));
    EXPECT_THAT(log_.Lines(),
                ElementsAre("W: McubootSerialUpdater: no response for upload packet at offset 0"));
}

TEST_F(Upload, FailsForAFileThatCannotBeOpenedAndTellsSoVerboseOrNot)
{
    ConnectUpdater(false);
    auto const missing = directory_.filePath(QStringLiteral("missing"));
    EXPECT_FALSE(updater_->upload(missing, {}));
    EXPECT_FALSE(updater_->upload(directory_.path(), {}));
    EXPECT_THAT(
        LinesSinceConnect(),
        ElementsAre("W: McubootSerialUpdater: cannot open " + missing.toStdString(),
                    "W: McubootSerialUpdater: cannot open " + directory_.path().toStdString()));
    EXPECT_THAT(GetChunks(), IsEmpty());
}

TEST_F(Upload, FailsForAFileThatCannotBeReadAndTellsSo)
{
    ConnectUpdater(false);
    // It opens, but nothing is mapped where it begins.
    EXPECT_FALSE(updater_->upload(QStringLiteral("/proc/self/mem"), {}));
    EXPECT_THAT(LinesSinceConnect(),
                ElementsAre("W: McubootSerialUpdater: cannot open /proc/self/mem"));
    EXPECT_THAT(GetChunks(), IsEmpty());
}

TEST_F(Upload, SendsNothingOfAFileWhoseReadingFailsOnTheWay)
{
    ConnectUpdater(false);
    auto const path = WriteImage(PatternImage(100000)).toStdString();
    for (auto const readable : {0, 1, 1483, 16384, 99999}) {
        BrokenFile const broken(path, readable);
        EXPECT_FALSE(updater_->upload(QString::fromStdString(path), {})) << readable;
    }
    EXPECT_THAT(LinesSinceConnect(), Each("W: McubootSerialUpdater: cannot open " + path));
    EXPECT_EQ(LinesSinceConnect().size(), 5U);
    EXPECT_THAT(GetChunks(), IsEmpty());
}

TEST_F(Upload, NeedsNoCallback)
{
    ConnectUpdater();
    unit_.Answers(OffAnswer(10));
    EXPECT_TRUE(updater_->upload(WriteImage(PatternImage(10)), {}));
}

// Time-outs add up from waits of 3 ms.
TEST_F(Upload, WaitsTenSecondsForTheFirstChunk)
{
    ConnectUpdater();
    unit_.StaysSilent();
    ObservedWaits const waits(ObservedWaits::Waits::kEndAtOnce);
    EXPECT_FALSE(UploadImage(PatternImage(4000)));
    EXPECT_TRUE(waits.CountedPasses(3334)) << waits.passes;
}

TEST_F(Upload, WaitsThreeSecondsForAnyOtherChunk)
{
    ConnectUpdater();
    unit_.Answers(OffAnswer(1483)).StaysSilent();
    std::optional<ObservedWaits> waits;
    EXPECT_FALSE(updater_->upload(WriteImage(PatternImage(4000)), [&waits](int) {
        waits.emplace(ObservedWaits::Waits::kEndAtOnce);
    }));
    ASSERT_TRUE(waits);
    EXPECT_TRUE(waits->CountedPasses(1000)) << waits->passes;
}

TEST_F(Upload, WaitsTenSecondsAgainWhenBackAtTheStart)
{
    ConnectUpdater();
    unit_.Answers(OffAnswer(1483)).Answers(OffAnswer(0)).StaysSilent();
    std::optional<ObservedWaits> waits;
    EXPECT_FALSE(updater_->upload(WriteImage(PatternImage(4000)), [&waits](int percent) {
        if (percent == 0) {
            waits.emplace(ObservedWaits::Waits::kEndAtOnce);
        }
    }));
    ASSERT_TRUE(waits);
    EXPECT_TRUE(waits->CountedPasses(3334)) << waits->passes;
}

}  // namespace
