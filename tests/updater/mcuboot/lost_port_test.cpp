// The serial line of MCUboot when its port is lost, and while nobody asks.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QSerialPort>
#include <QTest>
#include <memory>
#include <optional>
#include <string>

#include "simulator/host/pseudo_terminal.h"
#include "tests/support/collected_log.h"
#include "updater/mcuboot_serial_updater.h"

namespace {

using namespace std::chrono_literals;

constexpr unsigned kLostLineBaud = 921600;
constexpr int kLostLineTimeoutMs = 10000;

class LostLine : public testing::Test {
protected:
    LostLine()
    {
        QObject::connect(&Port(), &QSerialPort::errorOccurred, [this](auto error) {
            errors_ += error == QSerialPort::TimeoutError ? 0 : 1;
        });
    }

    QSerialPort& Port() { return *owner_.findChild<QSerialPort*>(); }

    void HangUp() { unit_.reset(); }

    bool WaitForClose()
    {
        return QTest::qWaitFor([&] { return !Port().isOpen(); }, kLostLineTimeoutMs);
    }

    CollectedLog const log_;
    std::optional<simulator::PseudoTerminal> unit_{std::in_place};
    QObject owner_;
    int errors_ = 0;
    std::unique_ptr<mcuboot::ILine> line_ =
        OpenSerialLine(QString::fromStdString(unit_->Path()), kLostLineBaud, &owner_);
};

// An open port would report the same error without end.
TEST_F(LostLine, IsClosedAtItsFirstErrorWhileNobodyAsks)
{
    HangUp();
    ASSERT_TRUE(WaitForClose());
    EXPECT_FALSE(QTest::qWaitFor([&] { return errors_ > 1; }, 100));
}

TEST_F(LostLine, IsClosedByEachOperationThatMeetsTheError)
{
    struct {
        char const* name;
        void (*run)(mcuboot::ILine& line);
    } const rows[] = {
        {"write", [](auto& line) { line.Write("a"); }},
        {"read", [](auto& line) { line.Read(100ms); }},
    };
    for (auto const& [name, run] : rows) {
        QObject owner;
        std::optional<simulator::PseudoTerminal> unit(std::in_place);
        auto const line =
            OpenSerialLine(QString::fromStdString(unit->Path()), kLostLineBaud, &owner);
        unit.reset();
        run(*line);
        EXPECT_FALSE(owner.findChild<QSerialPort*>()->isOpen()) << name;
    }
}

// Qt 6.8 is silent about the end of a line; older ones are made so.
TEST_F(LostLine, IsNoticedWhenThePortReportsNothing)
{
    Port().blockSignals(true);
    HangUp();
    EXPECT_EQ(line_->Read(100ms), "");
    EXPECT_FALSE(Port().isOpen());
}

TEST_F(LostLine, TakesWhatIsWrittenAndReturnsNothingAtOnce)
{
    HangUp();
    ASSERT_TRUE(WaitForClose());
    QElapsedTimer timer;
    timer.start();
    line_->Write("a");
    line_->Clear();
    EXPECT_EQ(line_->Read(10s), "");
    EXPECT_LT(timer.elapsed(), 1000);
    EXPECT_LE(errors_, 1);
    EXPECT_EQ(log_.Lines().size(), 1U)
        << "the loss alone; no complaint about a port that is closed";
}

// A unit that prints its console after the restart.
TEST_F(LostLine, DiscardsWhatComesWhileNobodyAsks)
{
    qint64 received = 0;
    qint64 kept = 0;
    QObject::connect(&Port(), &QSerialPort::readyRead, [&] {
        ++received;
        kept = std::max<qint64>(kept, Port().bytesAvailable());
    });
    for (int i = 1; i <= 20; ++i) {
        unit_->Send(std::string(1000, 'x'));
        auto const before = received;
        ASSERT_TRUE(QTest::qWaitFor([&] { return received > before; }, kLostLineTimeoutMs));
    }
    EXPECT_EQ(kept, 0);

    unit_->Send("answer");
    QByteArray answer;
    for (int i = 0; i < 1000 && answer.size() < 6; ++i) {
        answer += line_->Read(10ms);
    }
    EXPECT_TRUE(answer.endsWith("answer"));
}

// ---- The backend ----

TEST(McubootWithoutAConnection, FailsAnUpdateAtOnce)
{
    CollectedLog const log;
    McubootSerialUpdater updater(QCoreApplication::applicationFilePath(), kLostLineBaud, false, {},
                                 nullptr);
    QStringList events;
    QObject::connect(&updater, &FirmwareUpdaterBase::UpdateStarted,
                     [&] { events.append(QStringLiteral("started")); });
    QObject::connect(&updater, &FirmwareUpdaterBase::UpdateFinished, [&](bool status) {
        events.append(status ? QStringLiteral("succeeded") : QStringLiteral("failed"));
    });
    QElapsedTimer timer;
    timer.start();
    updater.onStartUpdate();
    EXPECT_LT(timer.elapsed(), 1000);
    EXPECT_EQ(events, QStringList({QStringLiteral("started"), QStringLiteral("failed")}));
}

}  // namespace
