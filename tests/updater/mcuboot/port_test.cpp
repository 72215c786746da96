// The backend on a real port: how it is opened, what passes, and that nothing stays open. The unit
// behind it is simulated.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QEvent>
#include <QSemaphore>
#include <QSerialPort>
#include <QTemporaryDir>

#include "mcuboot/limits.h"
#include "simulator/simulated_unit.h"
#include "tests/support/collected_log.h"
#include "tests/support/files.h"
#include "tests/support/pattern_image.h"
#include "updater/mcuboot_serial_updater.h"

namespace {

using namespace std::chrono_literals;

class RecoveryPort : public testing::Test {
protected:
    RecoveryPort()
    {
        static auto const testbed = std::make_shared<simulator::UsbTestbed>();
        simulator::McubootRecoveryOptions recovery;
        recovery.otp[simulator::kModelIdKey] = {std::byte{12}};
        simulator::SimulatedUnitOptions options;
        options.bootloader = recovery;
        options.journal_sink = [this](simulator::JournalEntry const& entry) {
            restarts_.release(entry.command == "reset" ? 1 : 0);
        };
        unit_ = std::make_unique<simulator::SimulatedUnit>(testbed, options);
        unit_->Plug();
        name_ = QString::fromStdString(unit_->Status().pty_path);
    }

    bool IsFree() const
    {
        QSerialPort port(name_);
        return port.open(QIODevice::ReadWrite);
    }

    bool Upload(QByteArray const& image)
    {
        QTemporaryDir const folder;
        WriteFile(folder.filePath(QStringLiteral("image")), image);
        return updater_.upload(folder.filePath(QStringLiteral("image")), {});
    }

    CollectedLog const log_;  // keeps it off the console
    QSemaphore restarts_;
    std::unique_ptr<simulator::SimulatedUnit> unit_;
    QString name_;
    McubootSerialUpdater updater_{{}, 921600, false, {}, nullptr};
};

// ---- The line ----

TEST_F(RecoveryPort, CarriesBytesBothWaysAndLetsTimePass)
{
    QObject owner;
    auto const line = OpenSerialLine(name_, 921600, &owner);
    ASSERT_NE(line, nullptr);
    QByteArray const request =
        "\x06\x09"
        "AAwCAAACAAH/Bb//um4=\n";

    line->Write(request);
    QByteArray answer;
    for (QDeadlineTimer end(10s); !answer.endsWith('\n') && !end.hasExpired();) {
        answer += line->Read(0ms);  // looks, and fetches what is there
    }
    EXPECT_EQ(answer.size(), 27);

    line->Write(request);
    ASSERT_TRUE(owner.findChild<QSerialPort*>()->waitForReadyRead(10000));
    line->Clear();
    EXPECT_EQ(line->Read(0ms), "") << "cleared";

    QElapsedTimer timer;
    timer.start();
    line->Pause(20ms);
    EXPECT_GE(timer.elapsed(), 20);
    timer.restart();
    EXPECT_EQ(line->Read(20ms), "");
    EXPECT_GE(timer.elapsed(), 19) << "the system's clock is no finer than a millisecond";
}

// ---- The backend ----

TEST_F(RecoveryPort, IsOpenedWithTheGivenRateAndEightBitsWithoutParity)
{
    ASSERT_TRUE(updater_.connect(name_));
    // A pseudo-terminal knows neither parity nor another number of bits, so this asks the object.
    auto const* const port = updater_.findChild<QSerialPort*>();
    ASSERT_NE(port, nullptr);
    EXPECT_EQ(port->openMode(), QIODevice::ReadWrite);
    EXPECT_EQ(port->baudRate(QSerialPort::Input), 921600);
    EXPECT_EQ(port->baudRate(QSerialPort::Output), 921600);
    EXPECT_EQ(port->dataBits(), QSerialPort::Data8);
    EXPECT_EQ(port->parity(), QSerialPort::NoParity);
    EXPECT_EQ(port->stopBits(), QSerialPort::OneStop);
    EXPECT_EQ(port->flowControl(), QSerialPort::NoFlowControl);
    EXPECT_FALSE(IsFree());
}

TEST_F(RecoveryPort, CarriesAWholeUpdate)
{
    auto const image = PatternImage<QByteArray>(5000);
    ASSERT_TRUE(updater_.connect(name_));
    EXPECT_TRUE(updater_.verifyDeviceId({12}));
    EXPECT_TRUE(Upload(image));
    auto const flash = unit_->ReadMemory(simulator::kFlashStart, 5000);
    EXPECT_EQ(QByteArray(reinterpret_cast<char const*>(flash.data()), 5000), image);
    EXPECT_EQ(restarts_.available(), 0);
    updater_.reset();
    EXPECT_TRUE(restarts_.tryAcquire(1, 10000));
}

TEST_F(RecoveryPort, IsClosedAfterAFailedProbeAndLeavesNothingWhenItCannotBeOpened)
{
    EXPECT_FALSE(updater_.connect(QStringLiteral("/dev/no-such-port")));
    EXPECT_EQ(updater_.findChild<QSerialPort*>(), nullptr);
    EXPECT_TRUE(updater_.sendAndReceive("x", 30000).isEmpty());
    unit_->AddFault({simulator::FaultKind::kErrorCode, 1, 1, 5});
    EXPECT_FALSE(updater_.connect(name_));
    EXPECT_TRUE(IsFree());
    EXPECT_TRUE(updater_.connect(name_));
}

TEST_F(RecoveryPort, IsFreeAfterEveryDisconnectAndASecondConnectDropsTheFirst)
{
    ASSERT_TRUE(updater_.connect(name_));
    EXPECT_TRUE(updater_.connect(name_));
    updater_.disconnect();
    EXPECT_TRUE(IsFree());
    updater_.disconnect();
    EXPECT_TRUE(updater_.connect(name_));
    updater_.onDisconnectDevice();
    {
        McubootSerialUpdater updater({}, 921600, false, {}, nullptr);
        EXPECT_TRUE(updater.connect(name_));
    }
    EXPECT_TRUE(IsFree()) << "after the end of a connected backend";
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_EQ(updater_.findChild<QSerialPort*>(), nullptr) << "the port objects are deleted";
}

TEST_F(RecoveryPort, ThatIsPulledOutEndsAnExchangeSoon)
{
    ASSERT_TRUE(updater_.connect(name_));
    unit_->AddFault({simulator::FaultKind::kVanishInWrite, 1, 1, 0});
    QElapsedTimer timer;
    timer.start();
    EXPECT_FALSE(Upload("image"));
    EXPECT_LT(timer.elapsed(), (mcuboot::kFirstChunkTimeout / 2).count());
}

}  // namespace
