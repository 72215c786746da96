#include "tests/modules/stm32_updater/dfu_util_fixture.h"

#include <QCoreApplication>
#include <QEvent>

using namespace Qt::StringLiterals;

namespace stm32_updater::test {

SignalRecord::SignalRecord(Stm32DfuUtilUpdater& updater)
{
    QObject::connect(
        &updater, &Stm32DfuUtilUpdater::EraseStarted, &updater, [this] { Add(u"erase started"_s); },
        Qt::DirectConnection);
    QObject::connect(
        &updater, &Stm32DfuUtilUpdater::EraseFinished, &updater,
        [this] { Add(u"erase finished"_s); }, Qt::DirectConnection);
    QObject::connect(
        &updater, &Stm32DfuUtilUpdater::ProgressUpdate, &updater,
        [this](int percent) { Add(QString::number(percent)); }, Qt::DirectConnection);
    QObject::connect(
        &updater, &Stm32DfuUtilUpdater::UpdateFinished, &updater,
        [this](bool status) { Add(status ? u"finished true"_s : u"finished false"_s); },
        Qt::DirectConnection);
}

void SignalRecord::Add(QString const& signal)
{
    std::lock_guard const lock(mutex_);
    signals_.append(signal);
}

QStringList SignalRecord::All() const
{
    std::lock_guard const lock(mutex_);
    return signals_;
}

bool SignalRecord::WaitFor(QString const& signal) const
{
    return QTest::qWaitFor([&] { return All().contains(signal); }, kPatience);
}

bool SignalRecord::WaitForCount(qsizetype count) const
{
    return QTest::qWaitFor([&] { return All().size() >= count; }, kPatience);
}

TimerCounter::TimerCounter()
{
    QCoreApplication::instance()->installEventFilter(this);
}

bool TimerCounter::WaitForMore(int count)
{
    auto const enough = count_ + count;
    return QTest::qWaitFor([&] { return count_ >= enough; }, kPatience);
}

bool TimerCounter::eventFilter(QObject* object, QEvent* event)
{
    if (event->type() == QEvent::Timer) {
        ++count_;
    }
    return QObject::eventFilter(object, event);
}

}  // namespace stm32_updater::test
