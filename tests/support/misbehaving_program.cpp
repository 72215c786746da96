// Tests that end in every way a test can end, for run_program_test.py. Not a test of the project.
#include <gtest/gtest.h>

#include <QDebug>
#include <QStringList>
#include <csignal>
#include <cstdlib>
#include <string>

#include "tests/support/collected_log.h"
#include "tests/support/qt_printing.h"
#include "tests/support/warnings.h"

TEST(Misbehaving, Passes) {}

TEST(Misbehaving, Fails)
{
    EXPECT_EQ((QStringList{QStringLiteral("a reason"), QStringLiteral("b")}), QStringList());
    EXPECT_EQ(QByteArray("bytes"), QByteArray());
}

TEST(Misbehaving, IsSkipped)
{
    GTEST_SKIP() << "no such hardware";
}

TEST(Misbehaving, Crashes)
{
    std::raise(SIGKILL);
}

TEST(Misbehaving, EndsTheProgram)
{
    std::_Exit(0);
}

TEST(Misbehaving, Hangs)
{
    for (;;) {
        raise(SIGSTOP);
    }
}

TEST(Misbehaving, LogsAWarning)
{
    qWarning() << "smoke";
}

TEST(Misbehaving, LogsAnErrorWithoutTheExpectedOne)
{
    ExpectWarning(std::string("fire"));
    qCritical() << "smoke";
}

TEST(Misbehaving, LogsWhatItExpects)
{
    ExpectWarning(std::string("fire"));
    qInfo() << "smoke";
    qCritical() << "fire";
}

TEST(Misbehaving, LogsIntoACollectedLog)
{
    CollectedLog const log;
    qWarning() << "smoke";
    EXPECT_EQ(log.Warnings().size(), 1u);
}

TEST(Misbehaving, PassesAfterAllOfThem) {}
