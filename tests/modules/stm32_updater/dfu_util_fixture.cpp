#include "tests/modules/stm32_updater/dfu_util_fixture.h"

#include <QCoreApplication>
#include <QEvent>

using namespace Qt::StringLiterals;

namespace stm32_updater::test {

namespace {

constexpr int kSignalPatience = 15'000;  // milliseconds

}  // namespace

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
    return QTest::qWaitFor([&] { return All().contains(signal); }, kSignalPatience);
}

bool SignalRecord::WaitForCount(qsizetype count) const
{
    return QTest::qWaitFor([&] { return All().size() >= count; }, kSignalPatience);
}

TimerCounter::TimerCounter()
{
    QCoreApplication::instance()->installEventFilter(this);
}

bool TimerCounter::WaitForMore(int count)
{
    auto const enough = count_ + count;
    return QTest::qWaitFor([&] { return count_ >= enough; }, kSignalPatience);
}

bool TimerCounter::eventFilter(QObject* object, QEvent* event)
{
    if (event->type() == QEvent::Timer) {
        ++count_;
    }
    return QObject::eventFilter(object, event);
}

void DfuUtilTest::Download(std::string const& file, unsigned address)
{
    ASSERT_TRUE(updater_.Update(file, address));
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            auto const all = signals_.All();
            return all.size() >= 2 && all.last() == u"100"_s &&
                   all[all.size() - 2].startsWith(u"finished"_s);
        },
        kPatience));
}

}  // namespace stm32_updater::test
