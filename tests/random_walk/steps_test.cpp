// The seed alone decides a walk, and what it decides is within its limits.

#include "tests/random_walk/steps.h"

#include <gtest/gtest.h>

#include <QStringList>

using namespace Qt::StringLiterals;

namespace {

QStringList GetWalk(uint32_t seed, targetInterfaceType type)
{
    Random random(seed);
    QStringList walk{ChooseUnitOptions(random, type), QString::number(ChooseImageSize(random))};
    for (auto const& step : ChooseSteps(random, type, u"ttyUSB1"_s, u"ttyUSB2"_s)) {
        walk.append(Describe(step));
    }
    return walk;
}

TEST(RandomSteps, AreTheSameForTheSameSeedAndOthersForAnotherSeed)
{
    for (auto const type : {TargetUart, TargetMcubootSerial}) {
        EXPECT_EQ(GetWalk(7, type), GetWalk(7, type));
        EXPECT_NE(GetWalk(7, type), GetWalk(8, type));
    }
}

TEST(RandomSteps, DelayNoUpdateForLong)
{
    Random random(1);
    int delays = 0;
    for (int i = 0; i < 2000; ++i) {
        auto const words = ChooseFault(random, TargetUart).split(u' ');
        if (words[1] == u"late-answer"_s) {
            ++delays;
            EXPECT_LE(words[3].toInt() * words[4].toInt(), 10'000)
                << words.join(u' ').toStdString();
        }
    }
    EXPECT_GT(delays, 0);
}

}  // namespace
