// The time that bytes take, calculated; and how well a thread keeps to it.
#include "simulator/line/line_pacer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>

namespace simulator {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;

LinePacer::TimePoint At(nanoseconds since_epoch)
{
    return LinePacer::TimePoint(since_epoch);
}

TEST(LinePacer, CountsElevenBitsAByteWithParityAndTenWithout)
{
    EXPECT_EQ(LinePacer(110000).WireTime(3), microseconds(300));
    EXPECT_EQ(LinePacer(100000, kBitsPerByte8N1).WireTime(3), microseconds(300));
    EXPECT_EQ(LinePacer(0).WireTime(1000), nanoseconds(0));
}

TEST(LinePacer, ReceivedBytesHaveArrivedWhenTheWireHasCarriedThem)
{
    LinePacer pacer(110000);

    pacer.Receive(At(milliseconds(5)), 4);

    EXPECT_EQ(pacer.ReceivedAt(1), At(microseconds(5100)));
    EXPECT_EQ(pacer.ReceivedAt(4), At(microseconds(5400)));
}

TEST(LinePacer, ABurstCountsFromItsFirstByteHoweverItsPiecesCome)
{
    LinePacer pacer(110000);
    pacer.Receive(At(milliseconds(5)), 2);

    pacer.Receive(At(microseconds(5170)), 2);
    EXPECT_EQ(pacer.ReceivedAt(2), At(microseconds(5400)));

    pacer.Receive(At(microseconds(5500)), 1);
    EXPECT_EQ(pacer.ReceivedAt(1), At(microseconds(5600)));
}

TEST(LinePacer, ManySmallPiecesGatherNoRoundingError)
{
    LinePacer pacer(460800);
    for (int i = 0; i < 46080; ++i) {
        pacer.Receive(At(nanoseconds(0)), 1);
    }

    EXPECT_EQ(pacer.ReceivedAt(1), At(milliseconds(1100)));
}

TEST(LinePacer, SentBytesFollowEachOther)
{
    LinePacer pacer(110000);

    EXPECT_EQ(pacer.Send(At(milliseconds(1)), 1), At(microseconds(1100)));
    EXPECT_EQ(pacer.Send(At(milliseconds(1)), 2), At(microseconds(1300)));
    EXPECT_EQ(pacer.SentAt(), At(microseconds(1300)));
    EXPECT_EQ(pacer.Send(At(milliseconds(2)), 1), At(microseconds(2100)));
}

TEST(WaitUntil, EndsNeitherEarlyNorMuchTooLate)
{
    UseFineTimers();
    std::array<LinePacer::Clock::duration, 51> lateness{};
    for (auto& late : lateness) {
        auto const moment = LinePacer::Clock::now() + milliseconds(1);
        WaitUntil(moment);
        late = LinePacer::Clock::now() - moment;
    }
    std::ranges::sort(lateness);

    EXPECT_GE(lateness.front(), nanoseconds(0));
    EXPECT_LT(lateness[lateness.size() / 2], microseconds(200));
}

TEST(WaitUntil, ReturnsAtOnceForAMomentThatIsPast)
{
    auto const start = LinePacer::Clock::now();

    WaitUntil(start - std::chrono::hours(1));
    WaitUntil(LinePacer::TimePoint{} - std::chrono::hours(1));

    EXPECT_LT(LinePacer::Clock::now() - start, milliseconds(500));
}

}  // namespace
}  // namespace simulator
