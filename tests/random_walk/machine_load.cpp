#include "tests/random_walk/machine_load.h"

#include <QDir>
#include <QThread>
#include <algorithm>
#include <stdexcept>

#include "tests/support/files.h"

using namespace Qt::StringLiterals;

namespace {

// The wait that the program's conversations are counted in.
constexpr unsigned long kShortWait = 3;
constexpr int kMeasuredWaits = 4;
// Weight of one measurement in the average: the last few seconds count.
constexpr double kWeight = 0.05;

constexpr double kSpinPart = 0.9;   // of the time in which it ran or wanted to
constexpr double kLeastPart = 0.1;  // of the time in which it ran

}  // namespace

void LoadMeter::Wait(std::chrono::milliseconds time)
{
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < kMeasuredWaits; ++i) {
        QThread::msleep(kShortWait);
    }
    auto const now =
        static_cast<double>(timer.nsecsElapsed()) / (1e6 * kMeasuredWaits * kShortWait);
    factor_ = std::max(1.0, factor_ + kWeight * (now - factor_));
    if (auto const left = time.count() - timer.elapsed(); left > 0) {
        QThread::msleep(static_cast<unsigned long>(left));
    }
}

std::chrono::milliseconds LoadMeter::Stretch(std::chrono::milliseconds limit) const
{
    return std::chrono::milliseconds(
        static_cast<int64_t>(static_cast<double>(limit.count()) * factor_));
}

QString LoadMeter::Describe() const
{
    return u"waits take %1 times as long as they should, load average %2"_s.arg(factor_, 0, 'f', 2)
        .arg(QString::fromLatin1(ReadFile(u"/proc/loadavg"_s)).trimmed());
}

// schedstat: nanoseconds on a processor, nanoseconds waiting for one, how often.
std::map<QString, SpinWatch::Times> SpinWatch::ReadThreads(pid_t process)
{
    std::map<QString, Times> threads;
    auto const folder = u"/proc/%1/task"_s.arg(process);
    for (auto const& id : QDir(folder).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        auto const fields = ReadFile(folder + u'/' + id + u"/schedstat"_s).split(' ');
        if (fields.size() >= 2) {
            auto const name = ReadFile(folder + u'/' + id + u"/comm"_s).trimmed();
            threads[id + u' ' + QString::fromUtf8(name)] = {fields[0].toDouble() / 1e9,
                                                            fields[1].toDouble() / 1e9};
        }
    }
    return threads;
}

QString SpinWatch::Look(pid_t process)
{
    if (process != process_) {
        process_ = process;
        threads_ = ReadThreads(process);
        if (threads_.empty()) {
            throw std::runtime_error("the system does not give the times of threads");
        }
        timer_.start();
        return {};
    }
    if (timer_.elapsed() < period_.count()) {
        return {};
    }
    auto const seconds = static_cast<double>(timer_.elapsed()) / 1e3;
    QString spinning;
    auto const threads = ReadThreads(process);
    for (auto const& [id, now] : threads) {
        auto const before = threads_.find(id);
        if (before == threads_.end()) {
            continue;
        }
        auto const ran = (now.ran - before->second.ran) / seconds;
        auto const wanted = ran + (now.waited - before->second.waited) / seconds;
        highest_ = std::max(highest_, ran);
        if (wanted > kSpinPart && ran > kLeastPart) {
            spinning = u"thread %1 ran for %2 and wanted to run for %3 of %4 s"_s.arg(id)
                           .arg(ran, 0, 'f', 2)
                           .arg(wanted, 0, 'f', 2)
                           .arg(seconds, 0, 'f', 1);
        }
    }
    threads_ = threads;
    timer_.start();
    return spinning;
}
