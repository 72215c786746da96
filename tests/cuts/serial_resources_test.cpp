// What the serial backends take and keep: after many connects, disconnects and replugs, while a
// port is lost, and of what a unit prints unasked.
#include <gtest/gtest.h>

#include <QEventLoop>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <algorithm>
#include <chrono>
#include <ctime>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "tests/cuts/serial_client.h"
#include "tests/cuts/serial_transport.h"
#include "tests/cuts/serial_unit.h"
#include "tests/support/files.h"
#include "tests/support/process_resources.h"

namespace cuts {
namespace {

using namespace Qt::StringLiterals;

constexpr int kPatienceMs = 60'000;
constexpr int kKindsOfEnd = 5;

// A program and its unit, which is plugged in again and again.
class Visitor : public QObject {
public:
    Visitor(SerialTransport const& transport, QString const& folder, int number)
        : port_(folder + u"/unit%1"_s.arg(number)),
          unit_(transport.make_unit()),
          client_(transport.make_backend(folder + u"/image"_s), transport.type)
    {
        client_.on_event = [this](WindowEvent event) { TakeEvent(event); };
    }

    // Begins `visits` of them; `on_end` is called when nobody is connected any more.
    void Start(int visits, std::function<void()> const& on_end)
    {
        last_ += visits;
        on_end_ = on_end;
        PlugIn();
    }

    int Connects() const { return connects_; }

private:
    // How a visit ends, and whether the unit comes back under the same name. Only with the same
    // name has the window seen in between that the unit was gone.
    enum class End { kDisconnect, kHangUp, kHangUpAndOtherName, kFade, kFadeAndOtherName };

    void PlugIn()
    {
        unit_.Plug(port_);
        // One visit of ten meets a unit that does not answer.
        constexpr int kSilentVisit = 10;
        if (visit_ % kSilentVisit == kSilentVisit - 1) {
            unit_.Fade();
        }
        client_.Connect(port_, kUnitModel);
    }

    void TakeEvent(WindowEvent event)
    {
        if (event == WindowEvent::UnitDisconnected && is_leaving_) {
            is_leaving_ = false;
            Next();
        } else {
            connects_ += event == WindowEvent::UnitConnected ? 1 : 0;
            Leave();
        }
    }

    void Leave()
    {
        client_.TakeTexts();
        ++visit_;
        auto const end =
            visit_ == last_ ? End::kDisconnect : static_cast<End>(visit_ % kKindsOfEnd);
        if (end == End::kFade || end == End::kFadeAndOtherName) {
            unit_.Fade();
        } else if (end != End::kDisconnect) {
            unit_.Unplug();
        }
        if (end == End::kHangUpAndOtherName || end == End::kFadeAndOtherName) {
            port_ += u'x';
            Next();
            return;
        }
        is_leaving_ = true;
        client_.Disconnect();
    }

    void Next()
    {
        if (visit_ < last_) {
            PlugIn();
            return;
        }
        unit_.Unplug();
        on_end_();
    }

    QString port_;
    SerialUnit unit_;
    SerialClient client_;
    int visit_ = 0;
    int last_ = 0;
    int connects_ = 0;
    bool is_leaving_ = false;
    std::function<void()> on_end_;
};

// Many of them, side by side.
class Visitors {
public:
    Visitors(SerialTransport const& transport, int count)
    {
        for (int i = 0; i < count; ++i) {
            visitors_.push_back(std::make_unique<Visitor>(transport, folder_.path(), i));
        }
    }

    // False if it takes too long.
    bool Visit(int visits)
    {
        QEventLoop loop;
        auto waiting = visitors_.size();
        for (auto const& visitor : visitors_) {
            visitor->Start(visits, [&] {
                if (--waiting == 0) {
                    loop.quit();
                }
            });
        }
        QTimer::singleShot(kPatienceMs, &loop, &QEventLoop::quit);
        // Not QTest's, which looks for events once in 10 ms.
        loop.exec();
        return waiting == 0;
    }

    int CountConnects() const
    {
        int count = 0;
        for (auto const& visitor : visitors_) {
            count += visitor->Connects();
        }
        return count;
    }

private:
    QTemporaryDir folder_;
    std::vector<std::unique_ptr<Visitor>> visitors_;
};

// The figures are taken while nobody is connected, and while the backends live: their end would
// hide what they have kept.
void ExpectNothingIsKept(SerialTransport const& transport)
{
    constexpr int kVisitors = 20;
    constexpr int kVisits = 10;
    constexpr qint64 kMostMemoryLeft = 128 << 10;  // 20 KiB were measured
    ClientTexts const texts;
    Visitors visitors(transport, kVisitors);
    // Each kind of visit once: what is made once is not a leak.
    ASSERT_TRUE(visitors.Visit(kKindsOfEnd));
    auto const resources = GetProcessResources();
    auto const memory = GetAllocatedBytes();
    auto const connects = visitors.CountConnects();

    ASSERT_TRUE(visitors.Visit(kVisits));

    EXPECT_EQ(visitors.CountConnects() - connects, kVisitors * (kVisits - 1));
    EXPECT_TRUE(QTest::qWaitFor([&] { return GetProcessResources() == resources; }, kPatienceMs))
        << testing::PrintToString(GetProcessResources()) << ", before "
        << testing::PrintToString(resources);
    EXPECT_LE(GetAllocatedBytes() - memory, kMostMemoryLeft);
}

TEST(SerialResources, AreAsBeforeAfterTwoHundredConnectsAndReplugsOverUart)
{
    ExpectNothingIsKept(GetUartTransport());
}

TEST(SerialResources, AreAsBeforeAfterTwoHundredConnectsAndReplugsOverMcuboot)
{
    ExpectNothingIsKept(GetMcubootTransport());
}

// ---- Processor time ----

std::chrono::milliseconds GetProcessorTime()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
}

// QSerialPort reports the loss of an open port without end. After a connect that the unit did not
// answer, or while it is ready.
void ExpectLostPortTakesNoProcessorTime(SerialTransport const& transport, bool is_silent)
{
    constexpr int kLongMs = 500;
    constexpr auto kLittle = std::chrono::milliseconds(kLongMs / 5);
    ClientTexts const texts;
    QTemporaryDir const folder;
    SerialUnit unit(transport.make_unit());
    SerialClient client(transport.make_backend({}), transport.type);
    bool is_answered = false;
    client.on_event = [&](WindowEvent) { is_answered = true; };
    unit.Plug(folder.filePath(u"port"_s));
    if (is_silent) {
        unit.Fade();
    }
    client.Connect(folder.filePath(u"port"_s), kUnitModel);
    ASSERT_TRUE(QTest::qWaitFor([&] { return is_answered; }, kPatienceMs));

    unit.Unplug();
    auto const before = GetProcessorTime();
    EXPECT_FALSE(QTest::qWaitFor([&] { return GetProcessorTime() - before > kLittle; }, kLongMs));
}

TEST(SerialProcessorTime, IsNotTakenByALostPort)
{
    for (auto const* transport : {&GetUartTransport(), &GetMcubootTransport()}) {
        for (auto const is_silent : {false, true}) {
            SCOPED_TRACE(testing::Message()
                         << transport->type << (is_silent ? " silent" : " ready"));
            ExpectLostPortTakesNoProcessorTime(*transport, is_silent);
        }
    }
}

// ---- A talking unit ----

// Firmware that prints its console after the restart, while nobody reads it and the port is open.
void ExpectConsoleTakesNoMemory(SerialTransport const& transport)
{
    constexpr size_t kPrinted = size_t{32} << 20;
    constexpr qint64 kMostMemory = qint64{8} << 20;
    constexpr int kPiecesForEachLook = 100;
    auto* const measure = kHasAddressSanitizer ? &GetAllocatedBytes : &GetResidentBytes;
    ClientTexts const texts;
    QTemporaryDir const folder;
    auto const port = folder.filePath(u"port"_s);
    WriteFile(folder.filePath(u"image"_s), transport.image);
    SerialUnit unit(transport.make_unit());
    SerialClient client(transport.make_backend(folder.filePath(u"image"_s)), transport.type);
    std::optional<WindowEvent> last;
    client.on_event = [&](WindowEvent event) { last = event; };
    auto const update = [&] {
        unit.Plug(port);
        client.Connect(port, kUnitModel);
        ASSERT_TRUE(
            QTest::qWaitFor([&] { return last == WindowEvent::UnitConnected; }, kPatienceMs));
        client.Update();
        ASSERT_TRUE(QTest::qWaitFor([&] { return RunsFirmware(unit.Bootloader()); }, kPatienceMs));
        EXPECT_TRUE(
            QTest::qWaitFor([&] { return last == WindowEvent::UpdateSucceeded; }, kPatienceMs));
    };
    update();
    auto const before = measure();
    auto most = before;
    int pieces = 0;

    EXPECT_TRUE(unit.Print(kPrinted, [&] {
        if (++pieces % kPiecesForEachLook == 0) {
            most = std::max(most, measure());
        }
    }));

    EXPECT_GT(pieces, kPiecesForEachLook);
    EXPECT_LE(most - before, kMostMemory);
    EXPECT_LE(measure() - before, kMostMemory);
    update();
}

TEST(SerialConsole, ThatNobodyReadsTakesNoMemoryOverUart)
{
    ExpectConsoleTakesNoMemory(GetUartTransport());
}

TEST(SerialConsole, ThatNobodyReadsTakesNoMemoryOverMcuboot)
{
    ExpectConsoleTakesNoMemory(GetMcubootTransport());
}

}  // namespace
}  // namespace cuts
