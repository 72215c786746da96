// Random walks of the finished program over both serial transports. FW_WALK_SECONDS and
// FW_WALK_SEED set how long they go on and where they begin; see docs/recipes.md.

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <cstdio>
#include <ostream>
#include <random>
#include <string>

#include "tests/random_walk/walk.h"

using namespace Qt::StringLiterals;

namespace {

constexpr uint32_t kFixedSeed = 1;
// No walk gets so long that it cannot be repeated quickly.
constexpr int kRoundsOfAWalk = 3;

struct WalkRow {
    char const* name;
    char const* staged_bundle;
    bool has_fixed_seed;

    friend void PrintTo(WalkRow const& row, std::ostream* stream) { *stream << row.name; }
};

constexpr WalkRow kRows[] = {
    {"UartWithTheFixedSeed", FW_STAGED_BUNDLE, true},
    {"UartWithANewSeed", FW_STAGED_BUNDLE, false},
    {"McubootWithTheFixedSeed", FW_STAGED_MCUBOOT_BUNDLE, true},
    {"McubootWithANewSeed", FW_STAGED_MCUBOOT_BUNDLE, false},
};

class RandomWalk : public testing::TestWithParam<WalkRow> {
protected:
    static uint32_t ChooseSeed()
    {
        bool is_given = false;
        auto const given = qEnvironmentVariable("FW_WALK_SEED").toUInt(&is_given);
        constexpr uint32_t kSeeds = 1'000'000;  // easy to type
        return is_given                    ? given
               : GetParam().has_fixed_seed ? kFixedSeed
                                           : std::random_device()() % kSeeds;
    }

    static qint64 GetMilliseconds()
    {
        constexpr int kSeconds = 30;
        bool is_given = false;
        auto const given = qEnvironmentVariableIntValue("FW_WALK_SECONDS", &is_given);
        return 1000 * (is_given ? given : kSeconds);
    }
};

// Each walk has the seed after that of the walk before, and can be repeated by itself.
TEST_P(RandomWalk, LeavesNoProgramStuckAndAlwaysUpdatesAFreshUnit)
{
    WalkTotals totals;
    QElapsedTimer timer;
    timer.start();
    auto seed = ChooseSeed();
    int failures = 0;
    do {
        std::printf(
            "walk with seed %u; to repeat it: FW_WALK_SEED=%u FW_WALK_SECONDS=120 tests/run "
            "'*RandomWalk*/%s'\n",
            seed, seed, GetParam().name);
        std::fflush(stdout);
        try {
            Walk walk(QString::fromUtf8(GetParam().staged_bundle), seed, totals);
            int rounds = 0;
            do {
                walk.PlayRound();
                ++rounds;
            } while (rounds < kRoundsOfAWalk && timer.elapsed() < GetMilliseconds());
            walk.End();
        } catch (std::exception const& failure) {
            ++failures;
            ADD_FAILURE() << failure.what();
        }
        ++seed;
    } while (timer.elapsed() < GetMilliseconds());
    std::printf("%s: %lld s, %s; %d failures\n", GetParam().name,
                static_cast<long long>(timer.elapsed() / 1000),
                totals.ToText().toStdString().c_str(), failures);
    EXPECT_GT(totals.counts[GetEventName(WindowEvent::UpdateSucceeded)], 0);
}

INSTANTIATE_TEST_SUITE_P(, RandomWalk, testing::ValuesIn(kRows),
                         [](testing::TestParamInfo<WalkRow> const& row) {
                             return std::string(row.param.name);
                         });

}  // namespace
