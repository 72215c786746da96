// A driver of dfu-util over a stand-in for the tool, its signals kept in one list, and its times
// cut short.
#pragma once

#include <gtest/gtest.h>

#include <QObject>
#include <QStringList>
#include <QTest>
#include <functional>
#include <mutex>

#include "modules/stm32_updater/stm32_dfu_util_updater.h"
#include "tests/support/stand_in_tool.h"

namespace stm32_updater::test {

// Of one driver, in order, on whatever thread they are emitted.
class SignalRecord {
public:
    explicit SignalRecord(Stm32DfuUtilUpdater& updater);

    QStringList All() const;
    bool WaitFor(QString const& signal) const;
    bool WaitForCount(qsizetype count) const;

private:
    void Add(QString const& signal);

    mutable std::mutex mutex_;
    QStringList signals_;
};

// Counts the timers that run out on this thread.
class TimerCounter : public QObject {
public:
    TimerCounter();
    bool WaitForMore(int count);
    int Count() const { return count_; }

    bool eventFilter(QObject* object, QEvent* event) override;

private:
    int count_ = 0;
};

class DfuUtilTest : public testing::Test {
protected:
    static constexpr int kPatience = 15'000;  // milliseconds
    static constexpr DfuUtilTimes kShort{.poll = std::chrono::milliseconds(20)};

    // Runs one download to its last report.
    void Download(std::string const& file = "fw.bin", unsigned address = 0x08000000);

    StandInTool tool_;
    Stm32DfuUtilUpdater updater_{nullptr, QStringLiteral("0483:df11"), tool_.Path(), kShort};
    SignalRecord signals_{updater_};
};

}  // namespace stm32_updater::test
