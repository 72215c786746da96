// What the window sees: the signals that each slot ends in, and their order.
#include <gmock/gmock.h>

#include "tests/updater/mcuboot/updater_fixture.h"

namespace {

using mcuboot::test::FromHex;
using testing::ElementsAre;

class Slots : public UpdaterFixture {
protected:
    void MakeUpdater(QString const& fw_target_type = QString())
    {
        updater_ = std::make_unique<McubootSerialUpdater>(
            directory_.filePath(QStringLiteral("image")), 921600, false, fw_target_type, nullptr);
        auto* const updater = updater_.get();
        QObject::connect(updater, &FirmwareUpdaterBase::UpdateStarted,
                         [this] { signals_.push_back("started"); });
        QObject::connect(updater, &FirmwareUpdaterBase::ProgressUpdate, [this](int percent) {
            signals_.push_back("progress " + std::to_string(percent));
        });
        QObject::connect(updater, &FirmwareUpdaterBase::UpdateFinished, [this](bool status) {
            lines_at_end_ = unit_.WaitForLines(expected_lines_).size();
            signals_.push_back(status ? "finished" : "failed");
        });
        QObject::connect(updater, &FirmwareUpdaterBase::EraseStarted,
                         [this] { signals_.push_back("erase started"); });
        QObject::connect(updater, &FirmwareUpdaterBase::EraseFinished,
                         [this] { signals_.push_back("erase finished"); });
        QObject::connect(
            updater, &FirmwareUpdaterBase::UpdateConnectionStatus, [this](ConnectionStatus status) {
                signals_.push_back("status " + std::to_string(static_cast<int>(status)));
            });
    }

    void Connect(QList<uint8_t> const& device_ids, bool verify)
    {
        updater_->onConnectToDevice(unit_.PortName(), device_ids, verify);
    }

    size_t expected_lines_ = 0;  // what the unit must have by the end of an update
    size_t lines_at_end_ = 0;
    std::vector<std::string> signals_;
};

TEST_F(Slots, ConnectWithoutVerificationReadsNoOtp)
{
    MakeUpdater();
    unit_.Answers(RcAnswer(0));
    Connect({}, false);
    EXPECT_THAT(signals_, ElementsAre("status 0"));
    EXPECT_THAT(unit_.Journal(), ElementsAre("0 1 0 0"));
}

TEST_F(Slots, ConnectToAListedModelEndsInConnected)
{
    MakeUpdater();
    unit_.Answers(RcAnswer(0)).Answers(OtpAnswer(FromHex("0c")));
    Connect({12}, true);
    EXPECT_THAT(signals_, ElementsAre("status 0"));
    EXPECT_THAT(unit_.Journal(), ElementsAre("0 1 0 0", "0 64 0 1"));
}

TEST_F(Slots, ConnectToAnotherModelClosesThePortAndEndsInVerificationFailed)
{
    MakeUpdater();
    unit_.Answers(RcAnswer(0)).Answers(OtpAnswer(FromHex("0c")));
    Connect({13}, true);
    EXPECT_THAT(signals_, ElementsAre("status 2"));
    EXPECT_TRUE(updater_->sendSmpCommand(0, 0, 0, {}).isEmpty());
    EXPECT_EQ(unit_.Journal().size(), 2U);
}

TEST_F(Slots, ConnectAfterAFailedVerificationStartsFromScratch)
{
    MakeUpdater();
    unit_.Answers(RcAnswer(0)).Answers(OtpAnswer(FromHex("0c")));
    Connect({13}, true);
    unit_.Answers(RcAnswer(0)).Answers(OtpAnswer(FromHex("0d")));
    Connect({13}, true);
    EXPECT_THAT(signals_, ElementsAre("status 2", "status 0"));
    EXPECT_EQ(unit_.Journal().size(), 4U);
}

TEST_F(Slots, ConnectWithServiceFirmwareReadsNoOtp)
{
    MakeUpdater(QStringLiteral("service"));
    unit_.Answers(RcAnswer(0));
    Connect({}, true);
    EXPECT_THAT(signals_, ElementsAre("status 0"));
    EXPECT_THAT(unit_.Journal(), ElementsAre("0 1 0 0"));
}

TEST_F(Slots, ConnectThatFailsEndsInDisconnected)
{
    MakeUpdater();
    updater_->onConnectToDevice(QStringLiteral("/dev/no-such-port"), {12}, true);
    unit_.Answers(RcAnswer(1));
    Connect({12}, true);
    EXPECT_THAT(signals_, ElementsAre("status 1", "status 1"));
}

TEST_F(Slots, DisconnectClosesThePortAndTellsSo)
{
    MakeUpdater();
    unit_.Answers(RcAnswer(0));
    Connect({}, false);
    updater_->onDisconnectDevice();
    updater_->onDisconnectDevice();
    EXPECT_THAT(signals_, ElementsAre("status 0", "status 1", "status 1"));
    updater_->reset();
    EXPECT_THAT(unit_.Journal(), ElementsAre("0 1 0 0"));
}

TEST_F(Slots, UpdateEndsWithTheResetOnItsWay)
{
    MakeUpdater();
    WriteImage(QByteArray(2000, 'x'));
    unit_.Answers(RcAnswer(0)).Answers(OffAnswer(1483)).Answers(OffAnswer(2000));
    Connect({}, false);
    expected_lines_ = 4;
    updater_->onStartUpdate();
    EXPECT_THAT(signals_,
                ElementsAre("status 0", "started", "progress 74", "progress 100", "finished"));
    EXPECT_THAT(unit_.Journal(), ElementsAre("0 1 0 0", "2 1 1 0", "2 1 1 1", "2 0 5 2"));
    EXPECT_EQ(lines_at_end_, 4U);
}

TEST_F(Slots, UpdateWithAnEmptyImageOnlyResets)
{
    MakeUpdater();
    WriteImage({});
    unit_.Answers(RcAnswer(0));
    Connect({}, false);
    expected_lines_ = 2;
    updater_->onStartUpdate();
    EXPECT_THAT(signals_, ElementsAre("status 0", "started", "finished"));
    EXPECT_THAT(unit_.Journal(), ElementsAre("0 1 0 0", "2 0 5 0"));
}

TEST_F(Slots, UpdateThatFailsDoesNotResetAndLeavesThePortOpen)
{
    MakeUpdater();
    WriteImage(QByteArray(2000, 'x'));
    unit_.Answers(RcAnswer(0)).Answers(RcAnswer(2)).Answers(RcAnswer(0));
    Connect({}, false);
    updater_->onStartUpdate();
    EXPECT_THAT(signals_, ElementsAre("status 0", "started", "failed"));
    EXPECT_TRUE(updater_->readImageState());
    EXPECT_THAT(unit_.Journal(), ElementsAre("0 1 0 0", "2 1 1 0", "0 1 0 1"));
}

TEST_F(Slots, UpdateWithoutAConnectionFails)
{
    MakeUpdater();
    WriteImage("x");
    updater_->onStartUpdate();
    EXPECT_THAT(signals_, ElementsAre("started", "failed"));
}

TEST_F(Slots, TheClassHasAMetaObjectOfItsOwn)
{
    MakeUpdater();
    EXPECT_STREQ(updater_->metaObject()->className(), "McubootSerialUpdater");
}

}  // namespace
