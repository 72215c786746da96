// The seed alone decides a walk, and what it decides is within its limits.

#include "tests/random_walk/steps.h"

#include <gtest/gtest.h>

#include <QSet>
#include <QStringList>
#include <algorithm>

#include "simulator/faults.h"

using namespace Qt::StringLiterals;

namespace {

QStringList GetWalk(uint32_t seed, targetInterfaceType type)
{
    Chance chance(seed);
    QStringList walk{ChooseUnitOptions(chance, type), QString::number(ChooseImageSize(chance))};
    for (auto const& step : ChooseSteps(chance, type, u"ttyUSB1"_s, u"ttyUSB2"_s)) {
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

// The first number of this generator for its usual seed is known.
TEST(RandomSteps, DoNotDependOnTheCompiler)
{
    EXPECT_EQ(Chance(5489).Below(0xFFFFFFFF), 3499211612U);
}

TEST(RandomSteps, UseEveryFaultOfATransportAndNoOther)
{
    for (auto const type : {TargetUart, TargetMcubootSerial}) {
        auto const bootloader = type == TargetUart ? simulator::kOnStm32 : simulator::kOnMcuboot;
        QSet<QString> expected;
        for (auto const& fault : simulator::kFaults) {
            if ((fault.bootloaders & bootloader) != 0) {
                expected.insert(QString::fromUtf8(fault.name));
            }
        }
        Chance chance(1);
        QSet<QString> chosen;
        for (int i = 0; i < 2000; ++i) {
            chosen.insert(ChooseFault(chance, type).section(u' ', 1, 1));
        }
        EXPECT_EQ(chosen, expected);
    }
}

TEST(RandomSteps, DelayNoUpdateForLong)
{
    Chance chance(1);
    for (int i = 0; i < 2000; ++i) {
        auto const words = ChooseFault(chance, TargetUart).split(u' ');
        if (words[1] == u"late-answer"_s) {
            EXPECT_LE(words[3].toInt() * words[4].toInt(), 10'000)
                << words.join(u' ').toStdString();
        }
    }
}

}  // namespace
