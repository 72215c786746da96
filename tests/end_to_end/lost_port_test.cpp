// A serial port that is lost: the cable pulled out, a port that fades (it is listed no more, stays
// open and is silent), a plug that bounces. Whatever happens, the update ends in time, the unit is
// found again after it was plugged in anew, and the window closes.

#include <unistd.h>

#include <QCoreApplication>
#include <QDateTime>
#include <QFile>
#include <QRegularExpression>
#include <algorithm>
#include <optional>

#include "mcuboot/limits.h"
#include "modules/stm32_updater/limits.h"
#include "tests/end_to_end/transport.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

// The time between "update started" and the last line with "update failed" in the program's log.
std::optional<std::chrono::milliseconds> GetTimeToFail(QByteArray const& log)
{
    static QRegularExpression const pattern(
        u"(?:^|\n)(\\S+) [^\n]*window: update (started|failed)"_s);
    QDateTime started;
    std::optional<std::chrono::milliseconds> time;
    for (auto const& match : pattern.globalMatch(QString::fromUtf8(log))) {
        auto const at = QDateTime::fromString(match.captured(1), Qt::ISODateWithMs);
        if (match.captured(2) == u"started") {
            started = at;
        } else {
            time = std::chrono::milliseconds(started.msecsTo(at));
        }
    }
    return time;
}

// Seconds of processor time that the process has used, in all its threads.
double GetProcessorTime(pid_t process)
{
    QFile stat(u"/proc/%1/stat"_s.arg(process));
    EXPECT_TRUE(stat.open(QIODevice::ReadOnly));
    auto const line = stat.readAll();
    auto const fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
    constexpr int kUserTime = 11;
    auto const ticks = fields.value(kUserTime).toDouble() + fields.value(kUserTime + 1).toDouble();
    return ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// `Base` is one transport's fixture.
template <class Base>
class LostPortOf : public Base {
protected:
    using Base::bundle_;
    using Base::program_;
    using Base::unit_;

    pid_t Updater() const
    {
        return FindChildProcess(QCoreApplication::applicationPid(), "firmware_updater");
    }

    bool HasOpen(QString const& path) const
    {
        auto const open = QDir(u"/proc/%1/fd"_s.arg(Updater()))
                              .entryInfoList(QDir::NoDotAndDotDot | QDir::System | QDir::Files);
        return std::ranges::any_of(
            open, [&](auto const& entry) { return entry.symLinkTarget() == path; });
    }

    // Presses while the program still takes the unit for ready, that is, before it looks again. A
    // look that comes first leaves nothing to press, so the unit is plugged in once more.
    void PressAfter(QStringList const& events)
    {
        for (int attempt = 0; attempt < 5; ++attempt) {
            this->ExpectScreen(IsReady);
            for (auto const& event : events) {
                unit_->Command(event);
            }
            program_->PressUpdate();
            if (WaitUntil([this] { return program_->ReadLog().contains("update started"); }, 1s)) {
                return;
            }
            this->Replug();
        }
        FAIL() << "the program looked for the unit before each press";
    }

    // The error text may be replaced at once: a look that found no unit waits for the update's end.
    void ExpectUpdateFailsWithin(std::chrono::milliseconds limit)
    {
        std::optional<std::chrono::milliseconds> time;
        auto const has_failed = [&] {
            time = GetTimeToFail(program_->ReadLog());
            return time.has_value();
        };
        ASSERT_TRUE(WaitUntil(has_failed, limit + Program::kLimit))
            << program_->ReadLog().toStdString();
        this->ExpectScreen([](Screen const& screen) { return !IsUpdating(screen); });
        EXPECT_LE(*time, limit + 1s);
        this->ExpectOneOutcomeEach(u"failed"_s);
    }

    void ExpectUnitIsUpdatedAndProgramEnds()
    {
        this->Replug();
        this->UpdateToTheEnd();
        program_->CloseWindow();
        EXPECT_EQ(program_->WaitForExit(), 0);
    }

    // Events before the press, and the longest that the update may then take.
    void PlayLossBeforePress(char const* events, std::chrono::milliseconds limit)
    {
        this->Start();
        PressAfter(QString::fromLatin1(events).replace(u"%1"_s, OtherName()).split(u','));
        ExpectUpdateFailsWithin(limit);
        ExpectUnitIsUpdatedAndProgramEnds();
    }

    void PlayLossInWrite(QString const& place, std::chrono::milliseconds limit)
    {
        this->Start();
        this->PressUpdateWith(u"fault vanish-in-write %1"_s.arg(place));
        ExpectUpdateFailsWithin(limit);
        ExpectUnitIsUpdatedAndProgramEnds();
    }

    // The window may show what it likes meanwhile.
    void ExpectProgramIsIdle()
    {
        auto const before = GetProcessorTime(Updater());
        this->ExpectScreenStays([](Screen const&) { return true; }, 3s);
        EXPECT_LT(GetProcessorTime(Updater()) - before, 1.0);
    }

    // A name that no other test uses.
    QString OtherName() const
    {
        return u"ttyUSB%1"_s.arg(1'000'001 + 2 * QCoreApplication::applicationPid());
    }
};

using UartLostPort = LostPortOf<UartTransport>;
using McubootLostPort = LostPortOf<McubootTransport>;

// ---- Ready, lost, and UPDATE pressed before the program looks again ----

// The time-outs count waits, and a wait that should take 3 ms takes up to 5.
constexpr auto kFirstChunkWaits =
    mcuboot::kFirstChunkTimeout / mcuboot::kPass * (mcuboot::kPass + 2ms);

// What happens to the unit, as commands of the simulated unit.
Row const kLosses[] = {{"Unplugged", "unplug"},
                       {"Faded", "fade"},
                       {"Returned", "unplug,plug"},
                       {"ReturnedUnderAnotherName", "unplug,plug 1 %1"}};

class EveryUartLoss : public UartLostPort, public testing::WithParamInterface<Row> {};

TEST_P(EveryUartLoss, OfAReadyUnitFailsTheUpdateInTimeAndTheUnitIsFoundAgain)
{
    PlayLossBeforePress(GetParam().value, stm32_updater::kAnswerTimeout);
}

INSTANTIATE_TEST_SUITE_P(, EveryUartLoss, testing::ValuesIn(kLosses), NameOf);

class EveryMcubootLoss : public McubootLostPort, public testing::WithParamInterface<Row> {};

TEST_P(EveryMcubootLoss, OfAReadyUnitFailsTheUpdateInTimeAndTheUnitIsFoundAgain)
{
    PlayLossBeforePress(GetParam().value, kFirstChunkWaits);
}

INSTANTIATE_TEST_SUITE_P(, EveryMcubootLoss, testing::ValuesIn(kLosses), NameOf);

// ---- At other moments ----

// The program opens the port and lets some time pass before it sends the first byte.
TEST_F(UartLostPort, DuringAConnectIsNoticedAndTheNextConnectSucceeds)
{
    Start(u"--units 0"_s);
    ExpectScreen(IsWaiting);
    static QRegularExpression const pty(u"pty=(\\S+)"_s);
    auto const path = pty.match(unit_->Ask(u"plug"_s)).captured(1);
    ASSERT_TRUE(WaitUntil([&] { return HasOpen(path); }, Program::kLimit));
    unit_->Command(u"unplug"_s);
    unit_->Command(u"plug"_s);
    ExpectUnitIsUpdatedAndProgramEnds();
}

// The port is closed as soon as it reports its loss, and the connect does not wait for the answer
// until its time-out.
TEST_F(McubootLostPort, DuringAConnectEndsThatConnectAtOnceAndTheNextOneSucceeds)
{
    PlugIn();
    unit_->Command(u"fault drop-answer 1"_s);
    StartProgram();
    auto const has_asked = [&] { return unit_->Ask(u"status"_s).contains(u"fault-strikes=1"); };
    ASSERT_TRUE(WaitUntil(has_asked, Program::kLimit));
    unit_->Command(u"unplug"_s);

    static QRegularExpression const failure(
        u"no unit answers on .*: image state: no answer within (\\d+) ms"_s);
    QRegularExpressionMatch failed;
    auto const has_failed = [&] {
        failed = failure.match(QString::fromUtf8(program_->ReadLog()));
        return failed.hasMatch();
    };
    ASSERT_TRUE(WaitUntil(has_failed, Program::kLimit)) << program_->ReadLog().toStdString();
    EXPECT_LT(std::chrono::milliseconds(failed.captured(1).toInt()), mcuboot::kQueryTimeout);
    ExpectLogged(u"info: lost port .* because of: "_s);

    unit_->Command(u"plug"_s);
    ExpectUnitIsUpdatedAndProgramEnds();
}

// A connect that nobody answered leaves its port open.
TEST_F(UartLostPort, OfASilentUnitTakesNoProcessorTime)
{
    PlugIn();
    unit_->Command(u"silent on"_s);
    StartProgram();
    auto const failed_connect = [this] { return program_->ReadLog().contains("command Init con"); };
    ASSERT_TRUE(WaitUntil(failed_connect, Program::kLimit));
    unit_->Command(u"unplug"_s);
    ExpectProgramIsIdle();
    unit_->Command(u"silent off"_s);
    ExpectUnitIsUpdatedAndProgramEnds();
}

// The program looks for ports only, so the unit that came back is the ready one to it.
TEST_F(McubootLostPort, BetweenTwoLooksTakesNoProcessorTime)
{
    Start();
    ExpectScreen(IsReady);
    unit_->Command(u"unplug"_s);
    unit_->Command(u"plug 1 "_s + OtherName());
    ExpectProgramIsIdle();
    ExpectUnitIsUpdatedAndProgramEnds();
}

TEST_F(UartLostPort, DoesNotKeepTheProgramWhoseWindowIsClosed)
{
    Start();
    PressAfter({u"unplug"_s});
    program_->CloseWindow();
    EXPECT_EQ(program_->WaitForExit(), 0);
}

class EveryUartWrite : public UartLostPort, public testing::WithParamInterface<Row> {};

// Without a pace, bytes may be on their way in either direction.
TEST_P(EveryUartWrite, MayBeTheLastOneBeforeThePortIsLost)
{
    PlayLossInWrite(QString::fromLatin1(GetParam().value), stm32_updater::kExtendedEraseTimeout);
}

INSTANTIATE_TEST_SUITE_P(, EveryUartWrite,
                         testing::Values(Row{"First", "1"}, Row{"Second", "2"}, Row{"Fifth", "5"},
                                         Row{"Twentieth", "20"}),
                         NameOf);

TEST_F(McubootLostPort, InTheFirstChunkFailsTheUpdateInTime)
{
    PlayLossInWrite(u"1"_s, kFirstChunkWaits);
}

}  // namespace
