// What the window sees: the signals that each slot ends in, their order, and what was sent by then.
#include <gmock/gmock.h>

#include <tuple>

#include "tests/support/backend_signals.h"
#include "tests/updater/mcuboot/updater_on_line.h"

using namespace Qt::StringLiterals;

namespace {

using mcuboot::test::OffAnswer;
using mcuboot::test::OtpAnswer;
using mcuboot::test::RcAnswer;
using testing::ElementsAre;

class RecoverySlots : public UpdaterOnLine {
protected:
    void MakeUpdater(QString const& fw_target_type = {})
    {
        UpdaterOnLine::MakeUpdater(false, fw_target_type);
        NoteSignals(*updater_, [this](QString const& signal) {
            signals_.append(signal);
            lines_at_end_ = line_.Lines().size();
        });
    }

    size_t lines_at_end_ = 0;  // at the last signal
    QStringList signals_;
};

TEST_F(RecoverySlots, ConnectEndsInOneStatus)
{
    using Row = std::tuple<char const*, QString, bool, std::vector<QByteArray>, char const*, bool>;
    for (auto const& [name, type, verify, answers, status, open] : {
             Row{"no verification", {}, false, {RcAnswer(0)}, "Connected", true},
             Row{"a listed model", {}, true, {RcAnswer(0), OtpAnswer("A")}, "Connected", true},
             Row{"another model",
                 {},
                 true,
                 {RcAnswer(0), OtpAnswer("B")},
                 "VerificationFailed",
                 false},
             Row{"no model", {}, true, {RcAnswer(0), RcAnswer(5)}, "VerificationFailed", false},
             Row{"service", u"service"_s, true, {RcAnswer(0)}, "Connected", true},
             Row{"an error code", {}, true, {RcAnswer(5)}, "Disconnected", false},
             Row{"noise", {}, true, {"noise\n"}, "Disconnected", false},
             Row{"silence", {}, true, {""}, "Disconnected", false},
         }) {
        MakeUpdater(type);
        signals_.clear();
        auto const sent = line_.Lines().size();
        for (auto const& answer : answers) {
            line_.Answers(answer);
        }
        updater_->onConnectToDevice(kPort, {'A'}, verify);
        EXPECT_EQ(signals_, QStringList({QString::fromLatin1(status)})) << name;
        EXPECT_EQ(line_.Lines().size() - sent, answers.size()) << name;
        EXPECT_EQ(open_lines_, open ? 1 : 0) << name;
    }
}

TEST_F(RecoverySlots, ConnectStartsFromScratchWhateverCameBefore)
{
    MakeUpdater();
    line_.Answers(RcAnswer(0)).Answers(OtpAnswer("B"));
    updater_->onConnectToDevice(kPort, {'A'}, true);
    updater_->onConnectToDevice(QStringLiteral("missing port"), {'A'}, true);
    for (int i = 0; i < 2; ++i) {  // the second time over an open port
        line_.Answers(RcAnswer(0)).Answers(OtpAnswer("A"));
        updater_->onConnectToDevice(kPort, {'A'}, true);
    }
    EXPECT_EQ(signals_, QStringList({u"VerificationFailed"_s, u"Disconnected"_s, u"Connected"_s,
                                     u"Connected"_s}));
    EXPECT_THAT(line_.Journal(),
                ElementsAre("0 1 0 0", "0 64 0 1", "0 1 0 2", "0 64 0 3", "0 1 0 4", "0 64 0 5"));
}

TEST_F(RecoverySlots, DisconnectClosesThePortAndReportsItEachTimeAndSoDoesTheUpdatersEnd)
{
    Connect();
    updater_.reset();
    EXPECT_EQ(open_lines_, 0);
    MakeUpdater();
    EXPECT_STREQ(updater_->metaObject()->className(), "McubootSerialUpdater");
    updater_->disconnect();
    line_.Answers(RcAnswer(0));
    updater_->onConnectToDevice(kPort, {}, false);
    updater_->onDisconnectDevice();
    EXPECT_EQ(open_lines_, 0);
    updater_->onDisconnectDevice();
    updater_->reset();
    EXPECT_EQ(signals_, QStringList({u"Connected"_s, u"Disconnected"_s, u"Disconnected"_s}));
    EXPECT_EQ(line_.Lines().size(), 2U);
}

TEST_F(RecoverySlots, UpdateEndsWithTheResetSent)
{
    MakeUpdater();
    WriteImage(QByteArray(2000, 'x'));
    line_.Answers(RcAnswer(0)).Answers(OffAnswer(1483)).Answers(OffAnswer(2000));
    updater_->onConnectToDevice(kPort, {}, false);
    updater_->onStartUpdate();
    EXPECT_EQ(signals_,
              QStringList({u"Connected"_s, u"started"_s, u"74"_s, u"100"_s, u"finished true"_s}));
    EXPECT_THAT(line_.Journal(), ElementsAre("0 1 0 0", "2 1 1 0", "2 1 1 1", "2 0 5 2"));
    EXPECT_EQ(lines_at_end_, 4U);
    EXPECT_EQ(line_.Steps().back(), "write 23") << "no answer to the reset is awaited";
}

TEST_F(RecoverySlots, UpdateWithAnEmptyImageOnlyResets)
{
    MakeUpdater();
    WriteImage({});
    line_.Answers(RcAnswer(0));
    updater_->onConnectToDevice(kPort, {}, false);
    updater_->onStartUpdate();
    EXPECT_EQ(signals_, QStringList({u"Connected"_s, u"started"_s, u"finished true"_s}));
    EXPECT_THAT(line_.Journal(), ElementsAre("0 1 0 0", "2 0 5 0"));
}

TEST_F(RecoverySlots, UpdateThatFailsDoesNotResetAndLeavesThePortOpen)
{
    MakeUpdater();
    WriteImage("image");
    updater_->onStartUpdate();
    line_.Answers(RcAnswer(0)).Answers(RcAnswer(2)).Answers(RcAnswer(0));
    updater_->onConnectToDevice(kPort, {}, false);
    updater_->onStartUpdate();
    EXPECT_EQ(signals_, QStringList({u"started"_s, u"finished false"_s, u"Connected"_s,
                                     u"started"_s, u"finished false"_s}));
    EXPECT_TRUE(updater_->readImageState());
    EXPECT_THAT(line_.Journal(), ElementsAre("0 1 0 1", "2 1 1 0", "0 1 0 1"))
        << "without a port the update took number 0";
}

}  // namespace
