// The engine that runs dfu-util, over a stand-in for the tool, with short times and its signals in
// one list.
#pragma once

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QEvent>
#include <QObject>
#include <QStringList>
#include <QTest>
#include <mutex>

#include "modules/stm32_updater/stm32_dfu_util_updater.h"
#include "tests/support/stand_in_tool.h"

namespace stm32_updater::test {

inline constexpr int kPatience = 15'000;  // ms, for what comes at once on an idle machine

// The signals of one engine, in order, whatever thread they are emitted on.
class SignalRecord {
public:
    explicit SignalRecord(Stm32DfuUtilUpdater& updater)
    {
        auto const record = [&](auto signal, auto const& text) {
            QObject::connect(
                &updater, signal, &updater, [this, text](auto... value) { Add(text(value...)); },
                Qt::DirectConnection);
        };
        record(&Stm32DfuUtilUpdater::EraseStarted, [] { return QStringLiteral("erase started"); });
        record(&Stm32DfuUtilUpdater::EraseFinished,
               [] { return QStringLiteral("erase finished"); });
        record(&Stm32DfuUtilUpdater::ProgressUpdate,
               [](int value) { return QString::number(value); });
        record(&Stm32DfuUtilUpdater::UpdateFinished, [](bool status) {
            return status ? QStringLiteral("finished true") : QStringLiteral("finished false");
        });
    }

    QStringList All() const
    {
        std::lock_guard const lock(mutex_);
        return signals_;
    }
    bool WaitFor(QString const& signal) const
    {
        return QTest::qWaitFor([&] { return All().contains(signal); }, kPatience);
    }
    bool WaitForCount(qsizetype count) const
    {
        return QTest::qWaitFor([&] { return All().size() >= count; }, kPatience);
    }

private:
    void Add(QString const& signal)
    {
        std::lock_guard const lock(mutex_);
        signals_.append(signal);
    }

    mutable std::mutex mutex_;
    QStringList signals_;
};

// Counts the timers that expire on this thread.
class TimerCounter : public QObject {
public:
    TimerCounter() { QCoreApplication::instance()->installEventFilter(this); }

    int Count() const { return count_; }
    bool WaitForMore(int count)
    {
        auto const enough = count_ + count;
        return QTest::qWaitFor([&] { return count_ >= enough; }, kPatience);
    }

    bool eventFilter(QObject* object, QEvent* event) override
    {
        count_ += event->type() == QEvent::Timer ? 1 : 0;
        return QObject::eventFilter(object, event);
    }

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
    Stm32DfuUtilUpdater updater_{nullptr, QStringLiteral("1209:0001"), tool_.Path(), kShort};
    SignalRecord signals_{updater_};
};

}  // namespace stm32_updater::test
