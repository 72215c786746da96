// The UART backend when its connection is gone or was never there: every operation ends, within the
// engine's time limits, and the next connect works.
#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QTest>
#include <future>
#include <thread>
#include <vector>

#include "modules/stm32_updater/limits.h"
#include "tests/support/warnings.h"
#include "tests/updater/uart_unit.h"

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 kOneSecond = 1000;

class LostUartConnection : public UartUnitTest {
protected:
    LostUartConnection() : backend_(MakeBackend(MakeFile(QByteArray(4096, '\x5A')))) {}

    void Connect()
    {
        backend_->onConnectToDevice(port_, {kModel}, true);
        ASSERT_EQ(signals_, QStringList({u"Connected"_s}));
        signals_.clear();
    }

    void ExpectUpdateFailsWithin(qint64 limit)
    {
        QElapsedTimer timer;
        timer.start();
        backend_->onStartUpdate();
        EXPECT_LT(timer.elapsed(), limit);
        EXPECT_EQ(signals_.first(), u"started"_s);
        EXPECT_EQ(signals_.last(), u"finished false"_s);
        signals_.clear();
    }

    // The unit comes back, in its bootloader.
    void ExpectUpdateOfTheReturnedUnit()
    {
        unit_->ClearFaults();
        unit_->Unplug();
        unit_->Plug();
        Connect();
        backend_->onStartUpdate();
        EXPECT_EQ(signals_.last(), u"finished true"_s);
        EXPECT_EQ(Flash(4092), QByteArray(4092, '\x5A'));
    }

    std::unique_ptr<UartFirmwareUpdater> backend_;
};

// An update that was asked for while the disconnect was still queued.
TEST_F(LostUartConnection, FailsAnUpdateAtOnceWithoutAConnection)
{
    for (int i = 0; i < 2; ++i) {
        ExpectWarning("UartFirmwareUpdater: no unit is connected");
    }
    ExpectUpdateFailsWithin(kOneSecond);
    Connect();
    backend_->onDisconnectDevice();
    signals_.clear();
    ExpectUpdateFailsWithin(kOneSecond);

    EXPECT_FALSE(backend_->verifyDeviceId({kModel}));
    backend_->reset();
    EXPECT_EQ(unit_->Status().jump_address, std::nullopt);
    ExpectUpdateOfTheReturnedUnit();
}

TEST_F(LostUartConnection, FailsAnUpdateOfAReadyUnitThatWasPulledOutWithinTheAnswersTimeLimit)
{
    Connect();
    unit_->Unplug();
    ExpectUpdateFailsWithin(stm32_updater::kAnswerTimeout.count() + kOneSecond);
    ExpectUpdateOfTheReturnedUnit();
}

TEST_F(LostUartConnection, FailsAnUpdateOfAReadyUnitThatFadedWithinTheAnswersTimeLimit)
{
    Connect();
    unit_->Fade();
    ExpectUpdateFailsWithin(stm32_updater::kAnswerTimeout.count() + kOneSecond);
    ExpectUpdateOfTheReturnedUnit();
}

TEST_F(LostUartConnection, FailsAConnectDuringWhichThePlugBouncesAndTheNextOneSucceeds)
{
    auto bounce = std::async(std::launch::async, [this] {
        while (OpenPorts() == 0) {
            std::this_thread::yield();
        }
        unit_->Unplug();
        unit_->Plug();
    });
    backend_->onConnectToDevice(port_, {kModel}, true);
    bounce.wait();
    EXPECT_EQ(signals_, QStringList({u"Disconnected"_s}));
    signals_.clear();
    ExpectUpdateOfTheReturnedUnit();
}

// Without a pace, bytes may be on their way in either direction.
TEST_F(LostUartConnection, FailsAnUpdateWhereverTheUnitIsPulledOut)
{
    for (unsigned const write : {1U, 2U, 7U, 12U, 17U}) {
        SCOPED_TRACE(write);
        unit_->Unplug();
        unit_->Plug();
        Connect();
        unit_->AddFault({.kind = simulator::FaultKind::kVanishInWrite, .at = write});
        ExpectUpdateFailsWithin(stm32_updater::kAnswerTimeout.count() + 2 * kOneSecond);
        unit_->ClearFaults();
    }
    ExpectUpdateOfTheReturnedUnit();
}

// A long write is reported in pieces, each of which is a token. With one too many, an empty send,
// which is never reported, would return.
TEST_F(LostUartConnection, StartsEachSessionWithOneToken)
{
    auto* const adapter = backend_->findChild<UartInterface*>();
    ASSERT_NE(adapter, nullptr);
    Connect();
    adapter->Transmit(std::vector<std::byte>(100'000));
    // On a new line: what is left on the old one would spoil the unit's measurement of the speed.
    unit_->Unplug();
    unit_->Reset();
    unit_->Plug();
    Connect();

    auto sent = std::async(std::launch::async, [&] { adapter->Transmit({}); });

    EXPECT_EQ(sent.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
    unit_->Unplug();
    EXPECT_EQ(sent.wait_for(std::chrono::seconds(10)), std::future_status::ready);
}

}  // namespace
