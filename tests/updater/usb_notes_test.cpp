// What the support log says about each way in which a session over USB can end.
#include <gmock/gmock.h>

#include <QDir>
#include <QFileInfo>
#include <QTest>
#include <memory>

#include "tests/support/backend_signals.h"
#include "tests/support/stand_in_tool.h"
#include "tests/support/warnings.h"
#include "updater/usb_firmware_updater.h"

using namespace Qt::StringLiterals;

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

constexpr char kOnUsb[] = " on USB: a DFU device with the ids 0483:df11; ";

class UsbNotes : public testing::Test {
protected:
    void MakeBackend(QString const& fw_target_type = {})
    {
        tool_.Write(u"image"_s, QByteArray(2000, 'x'));
        backend_ = std::make_unique<UsbFirmwareUpdater>(tool_.FilePath(u"image"_s), tool_.Path(),
                                                        0x08004000, 0x1FFF7800, 512, fw_target_type,
                                                        nullptr);
        NoteSignals(*backend_, [this](QString const& signal) { signals_.append(signal); });
        backend_->SetNotes([this](QString const& line) { notes_.push_back(line.toStdString()); });
        notes_.clear();
        signals_.clear();
    }

    // What is noted about a connect with a tool that does this.
    std::vector<std::string> NotesOfAConnect(QByteArray const& commands, QList<uint8_t> models,
                                             QString const& fw_target_type = {})
    {
        tool_.Does(commands);
        MakeBackend(fw_target_type);
        backend_->onConnectToDevice({}, std::move(models), true);
        return notes_;
    }

    // What is noted about an update with a tool that does this.
    std::vector<std::string> NotesOfAnUpdate(QByteArray const& commands)
    {
        tool_.Does(commands);
        MakeBackend();
        backend_->onStartUpdate();
        EXPECT_TRUE(QTest::qWaitFor([&] { return !notes_.empty(); }, 15'000));
        return notes_;
    }

    StandInTool tool_;
    QStringList signals_;
    std::vector<std::string> notes_;
    std::unique_ptr<UsbFirmwareUpdater> backend_;
};

QByteArray const kAreaOfModel7 = QByteArray("\x11\x47\x23\x01\x07", 5).leftJustified(512, '\xFF');

}  // namespace

TEST_F(UsbNotes, NameWhatAConnectFoundOrWhyItFailed)
{
    tool_.Write(u"area"_s, kAreaOfModel7);
    tool_.Write(u"empty"_s, QByteArray(512, '\xFF'));
    EXPECT_THAT(
        NotesOfAConnect("read_unit_as area\n", {7, 12}),
        ElementsAre("unit found" + std::string(kOnUsb) + "model 7; this firmware is for 7, 12"));
    EXPECT_THAT(
        NotesOfAConnect("", {}, u"service"_s),
        ElementsAre("unit found" + std::string(kOnUsb) + "model not checked: service firmware"));
    auto const refused = "unit refused" + std::string(kOnUsb);
    EXPECT_THAT(NotesOfAConnect("read_unit_as area\n", {12}),
                ElementsAre(refused + "model 7; this firmware is for 12"));
    EXPECT_THAT(NotesOfAConnect("read_unit_as empty\n", {12}),
                ElementsAre(refused + "no model record in 512 bytes of OTP; this firmware is for "
                                      "12"));
    EXPECT_THAT(NotesOfAConnect("echo 'dfu-util: No DFU capable device' >&2\nexit 74\n", {12}),
                ElementsAre(refused + "the OTP area cannot be read: dfu-util ended with exit code "
                                      "74: dfu-util: No DFU capable device"));
}

TEST_F(UsbNotes, NameAFileThatIsInTheWayOrIsNotTheTools)
{
    auto const refused = "unit refused" + std::string(kOnUsb) +
                         "the OTP area cannot be read: " + tool_.OtpPath().toStdString();
    ExpectWarning(HasSubstr("is in the way and cannot be removed"));
    ExpectWarning(HasSubstr("was not written by this run of dfu-util"));
    ASSERT_TRUE(QDir().mkpath(tool_.OtpPath()));
    EXPECT_THAT(NotesOfAConnect("", {12}),
                ElementsAre(refused + " is in the way and cannot be removed"));
    ASSERT_TRUE(QDir().rmdir(tool_.OtpPath()));
    EXPECT_THAT(NotesOfAConnect("ln -s /dev/null \"$last_argument\"\n", {12}),
                ElementsAre(refused + " was not written by this run of dfu-util"));
    EXPECT_THAT(NotesOfAConnect("exit 3\n", {12}),
                ElementsAre(HasSubstr("dfu-util ended with exit code 3")));
}

TEST_F(UsbNotes, NameATemporaryFolderInWhichNoFileCanBeMade)
{
    ExpectWarning(HasSubstr("the OTP area is not read: no file can be made in "));
    auto const folder = QFileInfo(tool_.OtpPath()).path();
    // Even root can make no file in a file.
    ASSERT_TRUE(QDir().rmdir(folder));
    tool_.Write(QFileInfo(folder).fileName(), {});
    EXPECT_THAT(NotesOfAConnect("", {12}),
                ElementsAre(MatchesRegex("unit refused.*the OTP area cannot be read: no file can "
                                         "be made in " +
                                         folder.toStdString() + ": Not a directory")));
}

TEST_F(UsbNotes, NameADfuUtilThatIsMissing)
{
    MakeBackend();
    backend_->onConnectToDevice({}, {7}, true);
    backend_->onStartUpdate();
    ASSERT_TRUE(QTest::qWaitFor([&] { return notes_.size() > 1; }));
    EXPECT_THAT(notes_,
                ElementsAre(MatchesRegex("unit refused.*the OTP area cannot be read: dfu-util did "
                                         "not run to its end: .*No such file.*"),
                            MatchesRegex("update failed after 0 of 2000 bytes and .*: dfu-util did "
                                         "not run to its end: .*No such file[^;]*")));
}

TEST_F(UsbNotes, NameHowAnUpdateEnded)
{
    EXPECT_THAT(NotesOfAnUpdate("exit 0\n"),
                ElementsAre(MatchesRegex("update succeeded: 2000 bytes in .* s, [0-9.]+ kB/s")));
    EXPECT_THAT(NotesOfAnUpdate("for n in 1 2 3 4 5 6; do echo \"line $n\" >&2; done\nexit 74\n"),
                ElementsAre("the window shows \"DONE\" although dfu-util ended with exit code 74: "
                            "line 2 | line 3 | line 4 | line 5 | line 6"));
    EXPECT_THAT(NotesOfAnUpdate("echo half >&2\nkill -9 $$\n"),
                ElementsAre(MatchesRegex("update failed after 0 of 2000 bytes and .* s: dfu-util "
                                         "crashed or was killed: half")));
}

// A tool whose progress was not seen has no phases: the notes above have none.
TEST_F(UsbNotes, NameTheTimesOfErasingAndWritingIfTheToolsProgressWasSeen)
{
    tool_.Does("printf 'Download [==] 42%%'; wait_for_test\n");
    MakeBackend();
    backend_->onStartUpdate();
    ASSERT_TRUE(QTest::qWaitFor([&] { return signals_.contains(u"erase finished"_s); }, 15'000));
    tool_.LetGo();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !notes_.empty(); }, 15'000));
    EXPECT_THAT(notes_, ElementsAre(MatchesRegex("update succeeded: .* kB/s; erase [1-9][0-9.]* s, "
                                                 "writing [0-9.]+ s")));
}

TEST_F(UsbNotes, CountNoMoreBytesThanTheImageHas)
{
    tool_.Does("printf 'Download [==] 999%%'; wait_for_test; kill -9 $$\n");
    MakeBackend();
    backend_->onStartUpdate();
    ASSERT_TRUE(QTest::qWaitFor([&] { return signals_.contains(u"erase finished"_s); }, 15'000));
    tool_.LetGo();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !notes_.empty(); }, 15'000));
    EXPECT_THAT(notes_, ElementsAre(MatchesRegex("update failed after 2000 of 2000 bytes .*")));
}

TEST_F(UsbNotes, LeaveTheToolsErrorsOnTheTerminal)
{
    testing::internal::CaptureStderr();
    NotesOfAnUpdate("echo 'for the terminal' >&2\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "for the terminal\n");
}
