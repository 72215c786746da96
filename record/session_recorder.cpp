#include "record/session_recorder.h"

#include <QFile>
#include <algorithm>
#include <utility>

namespace record {

SessionRecorder::Session::Session(Section const& section, qsizetype capacity, QString port_name)
    : buffer(section, capacity),
      epoch(static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                      std::chrono::system_clock::now().time_since_epoch())
                                      .count())),
      port(std::move(port_name))
{}

SessionRecorder::SessionRecorder(RecorderSetup setup)
    : setup_(std::move(setup)), folder_(setup_.folder, setup_.limits), thread_([this] { Run(); })
{}

SessionRecorder::~SessionRecorder()
{
    {
        std::lock_guard const lock(mutex_);
        Close();
        stops_ = true;
    }
    wake_.notify_one();
    thread_.join();
}

uint64_t SessionRecorder::GetTime(Session const& session)
{
    auto const passed = Clock::now() - session.start;
    return session.epoch +
           static_cast<uint64_t>(
               std::chrono::duration_cast<std::chrono::nanoseconds>(passed).count());
}

void SessionRecorder::BeginSession(QString const& port)
{
    {
        std::lock_guard const lock(mutex_);
        Close();
        if (sessions_.size() >= static_cast<size_t>(setup_.limits.waiting_sessions)) {
            return;
        }
        current_ = std::make_shared<Session>(setup_.section, setup_.limits.buffer, port);
        sessions_.push_back(current_);
        Add({QLatin1String(events::kConnect),
             {{QLatin1String(fields::kPort), port},
              {QLatin1String(fields::kTransport), setup_.transport}}});
    }
    wake_.notify_one();
}

uint32_t SessionRecorder::AddLine(QString const& name, QString const& description)
{
    constexpr uint32_t kNone = UINT32_MAX;
    std::lock_guard const lock(mutex_);
    if (!current_) {
        return kNone;
    }
    auto& lines = current_->lines;
    auto const known = lines.indexOf(name);
    if (known >= 0) {
        return static_cast<uint32_t>(known);
    }
    if (!current_->buffer.AddInterface({name, description})) {
        return kNone;
    }
    lines.append(name);
    return static_cast<uint32_t>(lines.size() - 1);
}

void SessionRecorder::AddBytes(uint32_t line, Direction direction, QByteArrayView bytes)
{
    bool wakes = false;
    {
        std::lock_guard const lock(mutex_);
        if (!current_ || line >= static_cast<size_t>(current_->lines.size())) {
            return;
        }
        auto const had_work = HasWork();
        auto const time = GetTime(*current_);
        for (qsizetype begin = 0; begin < bytes.size(); begin += kLargestPacket) {
            auto const size = std::min(kLargestPacket, bytes.size() - begin);
            current_->buffer.AddPacket({line, time, direction}, bytes.sliced(begin, size));
        }
        current_->is_kept |= direction == Direction::kIn && !bytes.isEmpty();
        wakes = IsUrgent() || (!had_work && HasWork());
    }
    if (wakes) {
        wake_.notify_one();
    }
}

void SessionRecorder::AddEvent(Event const& event)
{
    {
        std::lock_guard const lock(mutex_);
        if (!current_) {
            return;
        }
        Add(event);
    }
    wake_.notify_one();
}

void SessionRecorder::Add(Event const& event)
{
    current_->buffer.AddPacket({0, GetTime(*current_), Direction::kUnknown}, {},
                               FormatEvent(event));
    if (event.name == QLatin1String(events::kUpdateStarted)) {
        current_->has_update = true;
        current_->is_kept = true;
    }
}

void SessionRecorder::SetOutcome(QString const& outcome)
{
    std::lock_guard const lock(mutex_);
    if (current_) {
        current_->outcome = outcome;
    }
}

void SessionRecorder::EndSession()
{
    {
        std::lock_guard const lock(mutex_);
        if (!current_ || current_->end) {
            return;
        }
        current_->end = Clock::now() + setup_.limits.ending;
    }
    wake_.notify_one();
}

void SessionRecorder::Close()
{
    if (current_) {
        Add({QLatin1String(events::kEnd), {{QLatin1String(fields::kOutcome), current_->outcome}}});
        current_->has_ended = true;
        current_.reset();
    }
}

// ---- The recorder's thread ----

bool SessionRecorder::HasWork() const
{
    return !sessions_.empty() &&
           (sessions_.front()->has_ended ||
            (sessions_.front()->is_kept && !sessions_.front()->buffer.IsEmpty()));
}

bool SessionRecorder::IsUrgent() const
{
    return stops_ || (!sessions_.empty() &&
                      (sessions_.front()->has_ended || sessions_.front()->buffer.IsHalfFull()));
}

void SessionRecorder::Run()
{
    folder_.NameLeftOvers();
    blocks_.reserve(setup_.limits.buffer);
    std::unique_lock lock(mutex_);
    while (true) {
        WaitForWork(lock);
        if (current_ && current_->end && Clock::now() >= *current_->end) {
            Close();
        }
        if (HasWork()) {
            WriteFirst(lock);
        } else if (stops_) {
            return;
        }
    }
}

// Returns when there is something to do: at once if it is urgent, otherwise after a moment in which
// more may come.
void SessionRecorder::WaitForWork(std::unique_lock<std::mutex>& lock)
{
    auto const has_end = [this] { return current_ && current_->end; };
    wake_.wait(lock, [&] { return HasWork() || stops_ || has_end(); });
    auto until = Clock::now() + setup_.limits.flush;
    if (has_end()) {
        until = std::min(until, *current_->end);
    }
    wake_.wait_until(lock, until, [this] { return IsUrgent(); });
}

void SessionRecorder::WriteFirst(std::unique_lock<std::mutex>& lock)
{
    auto const session = sessions_.front();
    auto const has_ended = session->has_ended;
    auto const is_kept = session->is_kept;
    if (is_kept) {
        session->buffer.Take(blocks_);
    }
    lock.unlock();
    if (is_kept) {
        Write(session->begin);
    }
    if (has_ended) {
        Finish(*session);
    }
    lock.lock();
    if (has_ended) {
        sessions_.pop_front();
    }
}

void SessionRecorder::Write(QDateTime const& begin)
{
    if (output_.has_failed) {
        return;
    }
    if (!output_.file) {
        if (!folder_.Create()) {
            return Fail(folder_.GetPath(), QStringLiteral("the folder cannot be created"));
        }
        folder_.RemoveOldest(true);
        output_.file = std::make_unique<SessionFile>(folder_.MakePath(begin, setup_.transport),
                                                     setup_.limits.record);
        if (!output_.file->Create()) {
            auto const failed = std::move(output_.file);
            return Fail(failed->GetPath(), failed->GetError());
        }
    }
    if (!output_.file->Append(blocks_)) {
        Fail(output_.file->GetPath(), output_.file->GetError());
    }
}

void SessionRecorder::Finish(Session const& session)
{
    auto const file = std::move(output_.file);
    if (file && !file->Finish(SessionFolder::GetFinishedPath(file->GetPath(), session.outcome))) {
        Fail(file->GetPath(), file->GetError());
    }
    output_ = {};
    if (!file) {
        return;
    }
    auto const ending =
        session.has_update ? QString() : session.port + QLatin1Char('/') + session.outcome;
    if (!ending.isEmpty() && ending == last_ending_) {
        QFile::remove(last_path_);
    }
    last_ending_ = ending;
    last_path_ = file->GetPath();
    folder_.RemoveOldest(false);
}

void SessionRecorder::Fail(QString const& what, QString const& why)
{
    output_.has_failed = true;
    if (!std::exchange(has_reported_, true) && setup_.report) {
        setup_.report(QStringLiteral("no record of the session is kept: %1: %2").arg(what, why));
    }
}

}  // namespace record
