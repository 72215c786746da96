// The engine that runs dfu-util, over a stand-in for the tool, with short times and its signals in
// one list.
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

inline constexpr int kPatience = 15'000;  // ms, for what comes at once on an idle machine

// The signals of one engine, in order, whatever thread they are emitted on.
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

// Counts the timers that expire on this thread.
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
    static constexpr DfuUtilTimes kShort{.poll = std::chrono::milliseconds(20)};

    // Waits until the tool has made a file of this name.
    bool WaitForFile(QString const& name) const
    {
        return QTest::qWaitFor([&] { return tool_.Has(name); }, kPatience);
    }

    StandInTool tool_;
    Stm32DfuUtilUpdater updater_{nullptr, QStringLiteral("0483:df11"), tool_.Path(), kShort};
    SignalRecord signals_{updater_};
};

}  // namespace stm32_updater::test
