// What the serial backends take and keep: after many connects, disconnects and replugs, while a
// port is lost, and of what a unit prints unasked.
#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <algorithm>
#include <atomic>
#include <barrier>
#include <chrono>
#include <ctime>
#include <memory>
#include <vector>

#include "hal/uart/port_watch.h"
#include "tests/cuts/serial_client.h"
#include "tests/cuts/serial_transport.h"
#include "tests/cuts/serial_unit.h"
#include "tests/support/files.h"
#include "tests/support/process_resources.h"

namespace cuts {
namespace {

using namespace Qt::StringLiterals;

// How a visit ends, and whether the unit comes back under the same name. Only with the same name
// has the window seen in between that the unit was gone.
enum class VisitEnd { kDisconnect, kHangUp, kHangUpAndOtherName, kFade, kFadeAndOtherName };
constexpr int kKindsOfEnd = 5;

// A program and its unit, which is plugged in again and again.
class Visitor {
public:
    Visitor(SerialTransport const& transport, QString const& port)
        : port_(port),
          unit_(transport.make_unit()),
          client_(transport.make_backend({}), transport.type)
    {}

    // Returns how many connects succeeded. Nobody is connected any more.
    int Visit(int visits)
    {
        int connects = 0;
        for (int left = visits; left > 0; --left) {
            unit_.Plug(port_);
            // One visit of ten meets a unit that does not answer.
            if (++visit_ % 10 == 0) {
                unit_.Fade();
            }
            client_.Connect(port_);
            connects += client_.WaitForEvent() == WindowEvent::UnitConnected ? 1 : 0;
            client_.TakeTexts();
            End(left == 1 ? VisitEnd::kDisconnect : static_cast<VisitEnd>(visit_ % kKindsOfEnd));
        }
        unit_.Unplug();
        return connects;
    }

private:
    void End(VisitEnd end)
    {
        using enum VisitEnd;
        if (end == kFade || end == kFadeAndOtherName) {
            unit_.Fade();
        } else if (end != kDisconnect) {
            unit_.Unplug();
        }
        if (end == kHangUpAndOtherName || end == kFadeAndOtherName) {
            port_ += u'x';
            return;
        }
        client_.Disconnect();
        EXPECT_EQ(client_.WaitForEvent(), WindowEvent::UnitDisconnected);
    }

    QString port_;
    SerialUnit unit_;
    SerialClient client_;
    int visit_ = 0;
};

// The figures are taken while nobody is connected, and while the backends live: their end would
// hide what they have kept.
void ExpectNothingIsKept(SerialTransport const& transport)
{
    constexpr int kVisitors = 20;
    constexpr int kVisits = 10;
    constexpr qint64 kMostMemoryLeft = 128 << 10;  // 20 KiB were measured
    ClientTexts const texts;
    QTemporaryDir const folder;
    std::barrier pause(kVisitors + 1);
    std::atomic<int> connects = 0;
    auto const visit = [&](int number) {
        Visitor visitor(transport, folder.filePath(u"unit%1"_s.arg(number)));
        // Each kind of visit once: what is made once is not a leak.
        visitor.Visit(kKindsOfEnd);
        pause.arrive_and_wait();
        pause.arrive_and_wait();
        connects += visitor.Visit(kVisits);
        pause.arrive_and_wait();
        pause.arrive_and_wait();
    };
    std::vector<std::unique_ptr<QThread>> threads;
    for (int i = 0; i < kVisitors; ++i) {
        threads.emplace_back(QThread::create(visit, i));
        threads.back()->start();
    }
    pause.arrive_and_wait();
    auto const resources = GetProcessResources();
    auto const memory = GetAllocatedBytes();
    pause.arrive_and_wait();

    pause.arrive_and_wait();
    EXPECT_EQ(connects, kVisitors * (kVisits - 1));
    EXPECT_TRUE(QTest::qWaitFor([&] { return HoldsNoMore(GetProcessResources(), resources); }))
        << testing::PrintToString(GetProcessResources()) << ", before "
        << testing::PrintToString(resources);
    EXPECT_LE(GetAllocatedBytes() - memory, kMostMemoryLeft);
    pause.arrive_and_wait();
    for (auto const& thread : threads) {
        thread->wait();
    }
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

// QSerialPort reports the loss of an open port without end, or reads from it without end until the
// watch looks. After a connect that the unit did not answer, or while it is ready.
void ExpectLostPortTakesNoProcessorTime(SerialTransport const& transport, bool is_silent)
{
    constexpr int kLongMs = 1000;
    constexpr auto kLittle = hal::uart::PortWatch::kInterval + std::chrono::milliseconds(150);
    ClientTexts const texts;
    QTemporaryDir const folder;
    SerialUnit unit(transport.make_unit());
    SerialClient client(transport.make_backend({}), transport.type);
    unit.Plug(folder.filePath(u"port"_s));
    if (is_silent) {
        unit.Fade();
    }
    client.Connect(folder.filePath(u"port"_s));
    ASSERT_TRUE(client.WaitForEvent());

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
    auto const update = [&] {
        unit.Plug(port);
        ASSERT_EQ(client.Attempt(port), WindowEvent::UpdateSucceeded);
        EXPECT_TRUE(WaitUntil([&] { return RunsFirmware(unit.Bootloader()); }));
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
