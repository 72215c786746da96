// Updates over MCUboot serial recovery, seen from outside: the staged program, its window on a
// screen, a simulated unit in serial recovery mode on a serial port.

#include <fmt/format.h>

#include <QSet>
#include <algorithm>

#include "mcuboot/limits.h"
#include "tests/end_to_end/transport.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

// The journal of the upload of an image of that size to a unit that takes every chunk.
QStringList GetUploadJournal(qsizetype image_size)
{
    QStringList journal;
    for (qsizetype offset = 0; offset < image_size; offset += mcuboot::kChunkSize) {
        journal.append(QString::fromStdString(fmt::format(
            "upload 0x{:08x} {} seq={} keys={} ack", offset,
            std::min<qsizetype>(mcuboot::kChunkSize, image_size - offset),
            offset / mcuboot::kChunkSize % 256, offset == 0 ? "data,off,len,image" : "data,off")));
    }
    return journal;
}

// ---- Updates that end well ----

TEST_F(McubootTransport, UploadsTheImageInChunksOfTheRightShapeAndRestartsTheUnitLast)
{
    Start();
    UpdateToTheEnd();

    auto const uploads = GetUploadJournal(bundle_.ReadFirmware().size());
    EXPECT_EQ(
        unit_->Journal(),
        QStringList({u"image-state seq=0 ack"_s, u"read-otp 0x01234711 seq=1 keys=key ack"_s}) +
            uploads + QStringList{u"reset seq=%1 ack"_s.arg(uploads.size())});
}

TEST_F(McubootTransport, ShowsWaitingThenReadyThenAMovingBarWithoutAPercentage)
{
    Start(u"--units 0"_s);
    ExpectScreen(IsWaiting);
    unit_->Command(u"plug"_s);
    StartUpdate();
    QSet<QString> formats;
    QSet<int> values;
    ExpectScreen(
        [&](Screen const& screen) {
            formats.insert(screen.format);
            values.insert(screen.progress);
            return IsDoneScreen(screen);
        },
        60s);
    EXPECT_EQ(formats, QSet<QString>{QString()});
    EXPECT_GT(values.size(), 3);
}

TEST_F(McubootTransport, RestartsTheUnitAfterAnEmptyImage)
{
    bundle_.WriteFirmware({});
    Start();
    StartUpdate();
    ExpectScreen(IsDoneWithoutText);
    EXPECT_EQ(CountInJournal(u"upload"_s), 0);
    EXPECT_EQ(unit_->Status(u"state"_s), u"running"_s);
}

TEST_F(McubootTransport, StartsAgainWhenTheUnitRewindsToTheBeginning)
{
    Start();
    PressUpdateWith(u"fault ask-for-offset 20 1 0"_s);
    ExpectUpdateEnds();
    EXPECT_EQ(CountInJournal(u"upload 0x00000000"_s), 2);
    EXPECT_EQ(CountInJournal(u"keys=data,off,len,image"_s), 2);
}

// Faults that strike once the button was pressed.
class EveryHarmlessFault : public McubootTransport, public testing::WithParamInterface<Row> {};

TEST_P(EveryHarmlessFault, DelaysTheUpdateOnly)
{
    Start();
    PressUpdateWith(QString::fromLatin1(GetParam().value));
    ExpectUpdateEnds();
    EXPECT_NE(unit_->Status(u"fault-strikes"_s), u"0"_s);
}

INSTANTIATE_TEST_SUITE_P(
    , EveryHarmlessFault,
    testing::Values(Row{"AlmostTenSecondsForTheFirstChunk", "fault late-answer 1 1 9900"},
                    Row{"AlmostTenSecondsForTheErase", "fault slow-erase 1 1 9900"},
                    Row{"ChunkIsAskedForAgain", "fault keep-offset 20 3"}),
    NameOf);

// Options of the unit, and after a comma a fault.
class EveryMcubootUnit : public McubootTransport, public testing::WithParamInterface<Row> {};

TEST_P(EveryMcubootUnit, IsUpdatedHoweverItAnswers)
{
    auto const parts = QString::fromLatin1(GetParam().value).split(u',');
    PlugIn(parts.first());
    if (parts.size() > 1) {
        unit_->Command(parts.last());
    }
    StartProgram();
    UpdateToTheEnd();
}

// 2039 bytes is the longest line of an upload.
INSTANTIATE_TEST_SUITE_P(, EveryMcubootUnit,
                         testing::Values(Row{"ContinuationLines", "--answer-line 20"},
                                         Row{"DefiniteMaps", "--definite-maps"},
                                         Row{"ShortestLineBuffer", "--line-buffer 2039"},
                                         Row{"NoNextOffset", ",fault omit-offset 1 1000"},
                                         Row{"RealTimes", "--real-times"},
                                         Row{"ItsLogOnTheLine", "--log-lines"},
                                         Row{"LogLinesBefore", ",fault foreign-line-before 1 1000"},
                                         Row{"LogLinesAfter", ",fault foreign-line-after 1 1000"}),
                         NameOf);

// ---- Units that are not updated ----

TEST_F(McubootTransport, RefusesAUnitWhoseModelIsEmpty)
{
    Start(u"--model-id empty"_s);
    ExpectScreen(IsRefused);
    ExpectUnitIsUntouched();
}

// The bar has no text of its own during an update over this transport.
TEST_F(McubootTransport, LeavesTheTextOfARefusalInTheBarWhenTheUnitIsUpdatedAfterAll)
{
    PlugIn();
    unit_->Command(u"fault error-code 2 1 5"_s);
    StartProgram();
    ExpectScreen(IsRefused);
    StartUpdate();
    ExpectScreen([](Screen const& screen) {
        return screen == Screen{u"DONE"_s, ButtonStyle::Ready, 100, ErrorText()};
    });
    ExpectUnitHoldsImage();
}

TEST_F(McubootTransport, AsksAUnitThatDoesNotAnswerEveryFourSecondsUntilItDoes)
{
    PlugIn();
    unit_->Command(u"fault drop-answer 1 1000"_s);
    StartProgram();
    ExpectScreen(IsWaiting);
    ExpectScreenStays(IsWaiting, 8s);
    auto const asked = CountInJournal(u"image-state"_s);
    EXPECT_GE(asked, 2);
    EXPECT_LE(asked, 4);
    unit_->Command(u"clear-faults"_s);
    UpdateToTheEnd();
    ExpectLogged(u" the same \\d more times?, the last at .*: no unit answers on "_s);
    EXPECT_EQ(program_->ReadLog().count(" no unit answers on "), 2) << "its begin and its end";
}

// The banner makes the first answer unusable; the console comes when nobody asks.
TEST_F(McubootTransport, UpdatesAUnitThatPrintsABannerWhenItIsPluggedInAndItsConsoleAfterwards)
{
    Start(u"--units 0 --talks"_s);
    ExpectScreen(IsWaiting);
    unit_->Command(u"plug"_s);
    UpdateToTheEnd();
    ExpectScreenStays(IsDoneWithoutText, 3s);
    unit_->Command(u"unplug"_s);
    ExpectScreen(IsWaiting);
}

// The end of a line counts as the end of an answer once nothing follows at once.
class EveryMcubootPause : public McubootTransport, public testing::WithParamInterface<Row> {};

TEST_P(EveryMcubootPause, LeavesTheUnitWaitingAndUntouched)
{
    Start(u"--line-pause 50 "_s + QString::fromLatin1(GetParam().value));
    ExpectScreen(IsWaiting);
    ExpectScreenStays(IsWaiting, 6s);
    EXPECT_GE(CountInJournal(u"image-state seq=0 ack"_s), 1);
    ExpectUnitIsUntouched();
}

INSTANTIATE_TEST_SUITE_P(, EveryMcubootPause,
                         testing::Values(Row{"AfterALogLine", "--log-lines"},
                                         Row{"WithinAnAnswer", "--answer-line 20"}),
                         NameOf);

// The program gives up after about 13 seconds. The unit loses what a new start of the program asks
// until it has erased.
TEST_F(McubootTransport, FindsAUnitAgainThatErasesForLongerThanTheProgramWaits)
{
    Start();
    PressUpdateWith(u"fault slow-erase 1 1 20000"_s);
    ExpectScreen(IsFailed);
    program_.reset();
    auto const asked = CountInJournal(u"image-state"_s);
    StartProgram();
    ExpectScreen(IsWaiting);
    ExpectScreenStays(IsWaiting, 3s);
    EXPECT_EQ(CountInJournal(u"image-state"_s), asked);
    UpdateToTheEnd();
}

TEST_F(McubootTransport, WaitsForAPortThatCannotBeOpenedYet)
{
    PlugIn();
    unit_->Command(u"block on"_s);
    StartProgram();
    ExpectScreen(IsWaiting);
    ExpectScreenStays(IsWaiting, 3s);
    ExpectLogged(u" no unit answers on .*: the port cannot be opened: .+"_s);
    unit_->Command(u"block off"_s);
    UpdateToTheEnd();
}

TEST_F(McubootTransport, KeepsTheProgramAliveUntilTheUploadHasReturnedWhenItsWindowIsClosed)
{
    Start();
    StartUpdate();
    ExpectScreen(IsUpdating);
    program_->CloseWindow();
    EXPECT_EQ(program_->WaitForExit(60s), 0);
    ExpectUnitHoldsImage();
    ExpectLogged(u" the window was closed during the update"_s);
    ExpectLogged(u" update succeeded: "_s);
}

// ---- Updates that fail ----

TEST_F(McubootTransport, ShowsAUnitThatIsPulledOutInMidUploadAsFailedAndUpdatesItWhenItIsBack)
{
    ExpectUpdateFailsWith(u"fault vanish-in-write 20"_s);
    Replug();
    UpdateToTheEnd();
}

class EveryUploadFault : public McubootTransport, public testing::WithParamInterface<Row> {};

TEST_P(EveryUploadFault, FailsTheUpdateWithoutARestart)
{
    ExpectUpdateFailsWith(QString::fromLatin1(GetParam().value));
    EXPECT_EQ(CountInJournal(u"reset"_s), 0);
}

INSTANTIATE_TEST_SUITE_P(, EveryUploadFault,
                         testing::Values(Row{"ErrorCode", "fault error-in-upload 20 1 7"},
                                         Row{"WrongCheckValue", "fault wrong-check-value 20 1 1"},
                                         Row{"HalfAnAnswer", "fault cut-answer 20 1 20"},
                                         Row{"Silence", "fault silent-in-write 20"},
                                         Row{"NeverAdvances", "fault keep-offset 20 1000"},
                                         Row{"AlwaysRewinds", "fault ask-for-offset 3 1000 0"},
                                         Row{"NegativeOffset",
                                             "fault ask-for-offset 20 1 0xFFFFFFFF"}),
                         NameOf);

}  // namespace
