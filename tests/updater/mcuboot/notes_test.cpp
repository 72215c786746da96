// What the support log says about each way in which a session over MCUboot can end.
#include <gmock/gmock.h>

#include <QFile>
#include <tuple>

#include "tests/updater/mcuboot/updater_on_line.h"

using namespace Qt::StringLiterals;

namespace {

using mcuboot::test::OffAnswer;
using mcuboot::test::OtpAnswer;
using mcuboot::test::RcAnswer;
using testing::ElementsAre;
using testing::MatchesRegex;

class RecoveryNotes : public UpdaterOnLine {
protected:
    void MakeNotingUpdater(QString const& fw_target_type = {})
    {
        MakeUpdater(false, fw_target_type);
        updater_->SetNotes([this](QString const& line) { notes_.push_back(line.toStdString()); });
    }

    // What is noted about an update to whose chunks the unit answers so.
    std::vector<std::string> NotesOfAnUpdate(std::vector<QByteArray> const& answers)
    {
        MakeNotingUpdater(u"service"_s);
        line_.Answers(RcAnswer(0));
        updater_->onConnectToDevice(kPort, {}, true);
        notes_.clear();
        for (auto const& answer : answers) {
            line_.Answers(answer);
        }
        updater_->onStartUpdate();
        return notes_;
    }

    std::vector<std::string> notes_;
};

TEST_F(RecoveryNotes, NameWhatAConnectFoundOrWhyItFailed)
{
    using Row = std::tuple<QString, std::vector<QByteArray>, char const*>;
    for (auto const& [type, answers, note] : {
             Row{{},
                 {RcAnswer(0), OtpAnswer("A")},
                 "unit found on port: MCUboot serial recovery; model 65; this firmware is for 65"},
             Row{u"service"_s,
                 {RcAnswer(0)},
                 "unit found on port: MCUboot serial recovery; model not checked: service "
                 "firmware"},
             Row{{},
                 {RcAnswer(0), OtpAnswer("B")},
                 "unit refused on port: MCUboot serial recovery; model 66; this firmware is for "
                 "65"},
             Row{{},
                 {RcAnswer(0), RcAnswer(5)},
                 "unit refused on port: MCUboot serial recovery; no model: OTP value 0x01234711: "
                 "error code 5 after 6 ms; this firmware is for 65"},
             Row{{},
                 {RcAnswer(8)},
                 "unit refused on port: MCUboot serial recovery; image state: error code 8 after 6 "
                 "ms"},
             Row{{},
                 {"noise\n"},
                 "no unit answers on port: image state: 6 bytes after 6 ms, not a good answer: no "
                 "line of it is a frame: \"noise\\x0a\""},
             Row{{},
                 {"\n"},
                 "no unit answers on port: image state: 1 byte after 6 ms, not a good answer: no "
                 "line of it is a frame: \"\\x0a\""},
             Row{{}, {""}, "no unit answers on port: image state: no answer within 2001 ms"},
         }) {
        MakeNotingUpdater(type);
        notes_.clear();
        for (auto const& answer : answers) {
            line_.Answers(answer);
        }
        updater_->onConnectToDevice(kPort, {'A'}, true);
        EXPECT_THAT(notes_, ElementsAre(note));
    }
    notes_.clear();
    updater_->onConnectToDevice(u"other"_s, {'A'}, true);
    EXPECT_THAT(notes_, ElementsAre("no unit answers on other: the port cannot be opened: no such "
                                    "port"));
}

TEST_F(RecoveryNotes, CountTheBytesOfAnUpdateAndNameTheChunkThatFailed)
{
    WriteImage(QByteArray(4000, 'x'));
    EXPECT_THAT(
        NotesOfAnUpdate({OffAnswer(1483), OffAnswer(1483), OffAnswer(2966), OffAnswer(4000)}),
        ElementsAre(MatchesRegex("update succeeded: 4000 bytes in .* s, .* kB/s; first answer, "
                                 "with the erase, 0.0 s, 1 repeated chunk, slowest other answer 6 "
                                 "ms at offset 1483")));
    EXPECT_THAT(NotesOfAnUpdate({OffAnswer(1483), RcAnswer(7)}),
                ElementsAre(MatchesRegex("update failed after 1483 of 4000 bytes and .* s: chunk 2 "
                                         "of 3 at offset 1483: error code 7 after 6 ms; .*")));
    EXPECT_THAT(NotesOfAnUpdate({OffAnswer(4000)}),
                ElementsAre(MatchesRegex("update succeeded: .* kB/s; first answer, with the erase, "
                                         "0.0 s, 0 repeated chunks")));
    EXPECT_THAT(NotesOfAnUpdate({""}),
                ElementsAre(MatchesRegex("update failed after 0 of 4000 bytes and .* s: chunk 1 of "
                                         "3 at offset 0: no answer within [0-9]+ ms")));
    QFile::remove(ImagePath());
    EXPECT_THAT(NotesOfAnUpdate({}), ElementsAre(MatchesRegex("update failed after 0 of 0 bytes "
                                                              "and .* s: the image cannot be "
                                                              "read")));
    WriteImage(QByteArray(4000, 'x'));
    EXPECT_THAT(NotesOfAnUpdate({OffAnswer(1483), ""}),
                ElementsAre(MatchesRegex("update failed after 1483 of 4000 bytes and .* s: chunk 2 "
                                         "of 3 at offset 1483: no answer within 3000 ms; .*")));
    notes_.clear();
    updater_->disconnect();
    updater_->onStartUpdate();
    EXPECT_THAT(notes_, ElementsAre(MatchesRegex("update failed after 0 of 4000 bytes and .* s: no "
                                                 "unit is connected")));
}

}  // namespace
