// Updates over the MCUboot transport, seen from outside: the staged program, its window on a
// screen, a simulated unit in serial recovery mode on a serial port.

#include <fmt/format.h>

#include <QFile>
#include <QSet>
#include <QSettings>
#include <string>

#include "config/startup_config.h"
#include "tests/end_to_end/transport.h"

namespace {

using namespace std::chrono_literals;

constexpr uint32_t kSlot = 0x08000000;
constexpr int kChunk = 1483;

QString Hex(uint32_t value)
{
    return QString::number(value, 16);
}

class McubootTransport : public Transport {
protected:
    McubootTransport() : Transport(QStringLiteral(FW_STAGED_MCUBOOT_BUNDLE)) {}

    QStringList UnitOptions() const override
    {
        QSettings const settings(bundle_.ConfigPath(), QSettings::IniFormat);
        auto const usb_ids = ReadProducts(settings).first();
        return {QStringLiteral("--protocol"), QStringLiteral("mcuboot"),
                QStringLiteral("--vid"),      Hex(usb_ids & 0xFFFF),
                QStringLiteral("--pid"),      Hex(usb_ids >> 16),
                QStringLiteral("--model-id"), QString::number(ReadDeviceIds(settings).value(0))};
    }

    bool IsDoneScreen(Screen const& screen) const override { return IsDoneWithoutText(screen); }

    void ExpectUnitHoldsImage() override
    {
        auto const image = bundle_.ReadFirmware();
        EXPECT_EQ(unit_->ReadMemory(kSlot, image.size()), image);
        EXPECT_EQ(unit_->Status(QStringLiteral("image-size")).toLongLong(), image.size());
        EXPECT_EQ(unit_->Status(QStringLiteral("state")), QStringLiteral("running"));
        EXPECT_TRUE(unit_->Journal().last().startsWith(QLatin1String("reset ")));
    }

    void ExpectNothingUploaded()
    {
        EXPECT_EQ(CountInJournal(QStringLiteral("upload")), 0);
        EXPECT_EQ(CountInJournal(QStringLiteral("reset")), 0);
    }
};

// The journal of the update of an image of that size by a unit that takes every chunk.
QStringList GetUploadJournal(qsizetype image_size)
{
    QStringList journal;
    for (qsizetype offset = 0; offset < image_size; offset += kChunk) {
        journal.append(QString::fromStdString(
            fmt::format("upload 0x{:08x} {} seq={} keys={} ack", offset,
                        std::min<qsizetype>(kChunk, image_size - offset), offset / kChunk % 256,
                        offset == 0 ? "data,off,len,image" : "data,off")));
    }
    return journal;
}

// ---- Updates that end well ----

TEST_F(McubootTransport, UploadsTheImageInChunksOfTheRightShapeAndRestartsTheUnitLast)
{
    Start();
    UpdateToTheEnd();

    auto const journal = unit_->Journal();
    auto const uploads = GetUploadJournal(bundle_.ReadFirmware().size());
    EXPECT_EQ(journal.mid(0, 2), QStringList({QStringLiteral("image-state seq=0 ack"),
                                              QStringLiteral("read-otp 0x01234711 seq=1 keys=key "
                                                             "ack")}));
    EXPECT_EQ(journal.mid(2, uploads.size()), uploads);
    EXPECT_EQ(journal.mid(2 + uploads.size()),
              QStringList{QStringLiteral("reset seq=%1 ack").arg(uploads.size())});
}

TEST_F(McubootTransport, ShowsNoPercentageWhileTheBarMoves)
{
    Start();
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

TEST_F(McubootTransport, GoesBackToWaitingWhenTheUpdatedUnitIsPulledOut)
{
    Start();
    UpdateToTheEnd();
    unit_->Command(QStringLiteral("unplug"));
    ExpectScreen(IsWaiting);
}

TEST_F(McubootTransport, UpdatesAnyModelWhenTheFirmwareIsForService)
{
    bundle_.SetKey(QStringLiteral("fw_target_type"), QStringLiteral("service"));
    Start({QStringLiteral("--model-id"), QStringLiteral("222")});
    UpdateToTheEnd();
    EXPECT_EQ(CountInJournal(QStringLiteral("read-otp")), 0);
}

TEST_F(McubootTransport, RestartsTheUnitAfterAnEmptyImage)
{
    bundle_.WriteFirmware({});
    Start();
    StartUpdate();
    ExpectScreen(IsDoneWithoutText);
    EXPECT_EQ(CountInJournal(QStringLiteral("upload")), 0);
    EXPECT_EQ(unit_->Status(QStringLiteral("state")), QStringLiteral("running"));
}

TEST_F(McubootTransport, WaitsForAUnitThatTakesAlmostTenSecondsOverItsFirstChunk)
{
    Start();
    ExpectScreen(IsReady);
    unit_->Command(QStringLiteral("fault late-answer 1 1 9900"));
    program_->PressUpdate();
    ExpectUpdateEnds();
}

TEST_F(McubootTransport, StartsAgainWhenTheUnitRewindsToTheBeginning)
{
    Start();
    ExpectScreen(IsReady);
    unit_->Command(QStringLiteral("fault ask-for-offset 20 1 0"));
    program_->PressUpdate();
    ExpectUpdateEnds();
    EXPECT_EQ(CountInJournal(QStringLiteral("upload 0x00000000")), 2);
    EXPECT_EQ(CountInJournal(QStringLiteral("keys=data,off,len,image")), 2);
}

TEST_F(McubootTransport, RepeatsAChunkForWhichTheUnitAsksAgain)
{
    Start();
    ExpectScreen(IsReady);
    unit_->Command(QStringLiteral("fault keep-offset 20 3"));
    program_->PressUpdate();
    ExpectUpdateEnds();
    EXPECT_EQ(
        CountInJournal(QStringLiteral("upload 0x%1").arg(19 * kChunk, 8, 16, QLatin1Char('0'))), 4);
}

struct Manner {
    char const* name;
    char const* option;  // of the unit, with its value
    char const* fault;   // empty: none
};

class EveryManner : public McubootTransport, public testing::WithParamInterface<Manner> {};

TEST_P(EveryManner, OfAnsweringIsUnderstood)
{
    PlugIn(QString::fromLatin1(GetParam().option).split(QLatin1Char(' '), Qt::SkipEmptyParts));
    if (*GetParam().fault != '\0') {
        unit_->Command(QString::fromLatin1(GetParam().fault));
    }
    StartProgram();
    UpdateToTheEnd();
}

// 2039 bytes is the longest line of an upload.
INSTANTIATE_TEST_SUITE_P(
    McubootTransport, EveryManner,
    testing::Values(Manner{"ContinuationLines", "--answer-line 20", ""},
                    Manner{"DefiniteMaps", "--definite-maps", ""},
                    Manner{"ShortestLineBuffer", "--line-buffer 2039", ""},
                    Manner{"NextOffsetUntold", "", "fault omit-offset 1 1000"},
                    Manner{"LogLinesBefore", "", "fault foreign-line-before 1 1000"},
                    Manner{"LogLinesAfter", "", "fault foreign-line-after 1 1000"}),
    [](testing::TestParamInfo<Manner> const& manner) { return std::string(manner.param.name); });

// ---- Units that are not updated ----

TEST_F(McubootTransport, RefusesAnotherModelWithoutUploadingAnything)
{
    Start({QStringLiteral("--model-id"), QStringLiteral("222")});
    ExpectScreen(IsRefused);
    ExpectNothingUploaded();
}

TEST_F(McubootTransport, RefusesAUnitWhoseModelIsMissingOrEmpty)
{
    for (auto const* model : {"none", "empty"}) {
        Start({QStringLiteral("--model-id"), QString::fromLatin1(model)});
        ExpectScreen(IsRefused);
        ExpectNothingUploaded();
        program_.reset();
    }
}

TEST_F(McubootTransport, AsksAUnitThatDoesNotAnswerEveryFourSecondsUntilItDoes)
{
    PlugIn();
    unit_->Command(QStringLiteral("fault drop-answer 1 1000"));
    StartProgram();
    ExpectScreen(IsWaiting);
    ExpectScreenStays(IsWaiting, 10s);
    auto const asked = CountInJournal(QStringLiteral("image-state"));
    EXPECT_GE(asked, 2);
    EXPECT_LE(asked, 4);
    unit_->Command(QStringLiteral("clear-faults"));
    UpdateToTheEnd();
}

TEST_F(McubootTransport, WaitsForAPortThatCannotBeOpenedYet)
{
    PlugIn();
    unit_->Command(QStringLiteral("block on"));
    StartProgram();
    ExpectScreen(IsWaiting);
    ExpectScreenStays(IsWaiting, 3s);
    unit_->Command(QStringLiteral("block off"));
    UpdateToTheEnd();
}

// ---- Updates that fail ----

TEST_F(McubootTransport, ShowsAnErrorCodeInMidUploadAsFailedAndUpdatesTheUnitWhenItIsBack)
{
    ExpectUpdateFailsWith(QStringLiteral("fault error-in-upload 20 1 7"));
    EXPECT_EQ(unit_->Journal().last(),
              QStringLiteral("upload 0x00006e11 1483 seq=19 keys=data,off nack rc=7"));
    Replug();
    UpdateToTheEnd();
}

TEST_F(McubootTransport, ShowsAUnitThatIsPulledOutInMidUploadAsFailedAndLivesOn)
{
    ExpectUpdateFailsWith(QStringLiteral("fault vanish-in-write 20"));
    Replug();
    UpdateToTheEnd();
}

TEST_F(McubootTransport, ShowsAMissingImageAsFailed)
{
    ASSERT_TRUE(QFile::remove(bundle_.FirmwarePath()));
    Start();
    StartUpdate();
    ExpectScreen(IsFailed);
    ExpectNothingUploaded();
    ExpectOneOutcomeEach(QStringLiteral("failed"));
}

struct UploadFault {
    char const* name;
    char const* command;
};

class EveryUploadFault : public McubootTransport,
                         public testing::WithParamInterface<UploadFault> {};

TEST_P(EveryUploadFault, FailsTheUpdateWithoutARestart)
{
    ExpectUpdateFailsWith(QString::fromLatin1(GetParam().command));
    EXPECT_EQ(CountInJournal(QStringLiteral("reset")), 0);
}

// An answer that is too late comes after twice the time-out, which is counted in waits of 3 ms: a
// busy machine makes each of them longer.
INSTANTIATE_TEST_SUITE_P(
    McubootTransport, EveryUploadFault,
    testing::Values(UploadFault{"WrongCheckValue", "fault wrong-check-value 20 1 1"},
                    UploadFault{"WrongLength", "fault wrong-count 20 1 4096"},
                    UploadFault{"HalfAnAnswer", "fault cut-answer 20 1 20"},
                    UploadFault{"NoMarker", "fault garbage-answer 20 1 65"},
                    UploadFault{"Silence", "fault silent-in-write 20"},
                    UploadFault{"SilenceFromTheStart", "fault silent-in-write 1"},
                    UploadFault{"FirstAnswerTooLate", "fault late-answer 1 1 20000"},
                    UploadFault{"NeverAdvances", "fault keep-offset 20 1000"},
                    UploadFault{"AlwaysRewinds", "fault ask-for-offset 3 1000 0"},
                    UploadFault{"NegativeOffset", "fault ask-for-offset 20 1 0xFFFFFFFF"}),
    [](testing::TestParamInfo<UploadFault> const& fault) { return std::string(fault.param.name); });

}  // namespace
