// Opening and closing the port, and the probe that decides whether a unit is there.
#include <gmock/gmock.h>

#include <QSerialPort>

#include "tests/updater/mcuboot/updater_fixture.h"

namespace {

using mcuboot::test::FromHex;
using mcuboot::test::MakeAnswer;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

class Connection : public UpdaterFixture {
protected:
    std::unique_ptr<McubootSerialUpdater> MakeUpdater(bool verbose = false)
    {
        return std::make_unique<McubootSerialUpdater>(QString(), 921600, verbose, QString(),
                                                      nullptr);
    }

    bool IsPortFree() const
    {
        QSerialPort port(unit_.PortName());
        return port.open(QIODevice::ReadWrite);
    }
};

TEST_F(Connection, ProbesTheUnitForItsImageState)
{
    unit_.Answers(RcAnswer(0));
    auto const updater = MakeUpdater();
    EXPECT_TRUE(updater->connect(unit_.PortName()));
    EXPECT_THAT(unit_.WaitForLines(1), ElementsAre(QByteArray("\x06\x09"
                                                              "AAwAAAACAAEAAL//xLc=\n")));
    EXPECT_FALSE(IsPortFree());
    EXPECT_THAT(log_.Lines(), IsEmpty());
}

TEST_F(Connection, SetsTheLineToTheGivenRateAndEightBitsWithoutParity)
{
    unit_.Answers(RcAnswer(0));
    auto const updater = MakeUpdater();
    ASSERT_TRUE(updater->connect(unit_.PortName()));
    // Not the line's own: a pty knows no parity and no other number of bits.
    auto const* const port = updater->findChild<QSerialPort*>();
    ASSERT_NE(port, nullptr);
    EXPECT_EQ(port->openMode(), QIODevice::ReadWrite);
    EXPECT_EQ(port->baudRate(QSerialPort::Input), 921600);
    EXPECT_EQ(port->baudRate(QSerialPort::Output), 921600);
    EXPECT_EQ(port->dataBits(), QSerialPort::Data8);
    EXPECT_EQ(port->parity(), QSerialPort::NoParity);
    EXPECT_EQ(port->stopBits(), QSerialPort::OneStop);
    EXPECT_EQ(port->flowControl(), QSerialPort::NoFlowControl);
}

TEST_F(Connection, FailsForAPortThatCannotBeOpened)
{
    auto const updater = MakeUpdater(true);
    EXPECT_FALSE(updater->connect(QStringLiteral("/dev/no-such-port")));
    EXPECT_TRUE(updater->sendAndReceive("x", 1).isEmpty());
    EXPECT_THAT(log_.Lines(), IsEmpty());
}

TEST_F(Connection, FailsAndClosesThePortWhenTheUnitIsSilent)
{
    unit_.StaysSilent();
    auto const updater = MakeUpdater();
    EXPECT_FALSE(updater->connect(unit_.PortName()));
    EXPECT_TRUE(IsPortFree());
    EXPECT_THAT(log_.Lines(), IsEmpty());
}

TEST_F(Connection, FailsAndClosesThePortWhenTheUnitTellsOfAnError)
{
    unit_.Answers(RcAnswer(5));
    auto const updater = MakeUpdater();
    EXPECT_FALSE(updater->connect(unit_.PortName()));
    EXPECT_TRUE(IsPortFree());
    EXPECT_THAT(log_.Lines(),
                ElementsAre(MatchesRegex("W: McubootSerialUpdater::readImageState: rc= ?5")));
}

TEST_F(Connection, SucceedsOnceTheUnitAnswersThoughItDidNotBefore)
{
    unit_.Answers("garbage\n").Answers(RcAnswer(0));
    auto const updater = MakeUpdater();
    EXPECT_FALSE(updater->connect(unit_.PortName()));
    EXPECT_TRUE(updater->connect(unit_.PortName()));
}

TEST_F(Connection, ThrowsAwayWhatTheUnitSentBeforeTheRequest)
{
    ConnectUpdater();
    unit_.Sends(RcAnswer(5));
    unit_.Answers(RcAnswer(0));
    EXPECT_TRUE(updater_->readImageState());
    EXPECT_THAT(log_.Lines(), IsEmpty());
}

TEST_F(Connection, ASecondConnectDropsThePortOfTheFirst)
{
    ConnectUpdater();
    unit_.Answers(RcAnswer(0));
    EXPECT_TRUE(updater_->connect(unit_.PortName()));
    updater_->disconnect();
    EXPECT_TRUE(IsPortFree());
}

TEST_F(Connection, DisconnectOfAnUpdaterThatWasNeverConnectedDoesNothing)
{
    auto const updater = MakeUpdater();
    updater->disconnect();
    updater->disconnect();
    EXPECT_THAT(log_.Lines(), IsEmpty());
}

TEST_F(Connection, DisconnectFreesThePortAndMayBeRepeated)
{
    ConnectUpdater();
    updater_->disconnect();
    EXPECT_TRUE(IsPortFree());
    updater_->disconnect();
    unit_.Answers(RcAnswer(0));
    EXPECT_TRUE(updater_->connect(unit_.PortName()));
}

TEST_F(Connection, TheDestructorFreesThePort)
{
    ConnectUpdater();
    updater_.reset();
    EXPECT_TRUE(IsPortFree());
}

}  // namespace
