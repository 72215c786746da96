#include "tests/mcuboot/scripted_line.h"

#include <gtest/gtest.h>

#include <QCborValue>
#include <utility>

using namespace Qt::StringLiterals;

namespace mcuboot::test {

QByteArray FromHex(std::string_view hex)
{
    return QByteArray::fromHex(QByteArray(hex.data(), static_cast<qsizetype>(hex.size())));
}

QByteArray Line(QByteArray const& text)
{
    return "\x06\x09" + text + '\n';
}

QByteArray AnswerWith(QByteArray const& payload)
{
    return simulator::MakeSmpLines(simulator::MakeSmpAnswer({1, 1, 0, 0, payload}));
}

QByteArray AnswerWith(QCborMap const& map)
{
    return AnswerWith(QCborValue(map).toCbor());
}

QByteArray RcAnswer(qint64 rc)
{
    return AnswerWith(QCborMap{{u"rc"_s, rc}});
}

QByteArray OffAnswer(qint64 offset)
{
    return AnswerWith(QCborMap{{u"off"_s, offset}});
}

QByteArray OtpAnswer(QByteArray const& d)
{
    return AnswerWith(QCborMap{{u"rc"_s, 0}, {u"data"_s, d}});
}

ScriptedLine::~ScriptedLine()
{
    EXPECT_EQ(script_.size(), 0U) << "requests of the script that were never sent";
}

ScriptedLine& ScriptedLine::AnswersInPieces(std::vector<Piece> pieces)
{
    script_.push_back(std::move(pieces));
    return *this;
}

void ScriptedLine::Sends(QByteArray const& raw, std::chrono::milliseconds delay)
{
    coming_.push_back({now_ + delay, raw});
}

std::vector<std::string> ScriptedLine::Journal() const
{
    std::vector<std::string> journal;
    for (size_t i = 0; i < lines_.size(); ++i) {
        auto const request = Request(i);
        journal.push_back(std::to_string(request.operation) + " " + std::to_string(request.group) +
                          " " + std::to_string(request.command) + " " +
                          std::to_string(request.sequence));
    }
    return journal;
}

simulator::SmpMessage ScriptedLine::Request(size_t index) const
{
    if (index >= lines_.size()) {
        ADD_FAILURE() << "request " << index << " was never sent";
        return {};
    }
    auto const& line = lines_[index];
    auto const request = simulator::ReadSmpRequest(line.chopped(1));
    EXPECT_TRUE(request.message && line.endsWith('\n')) << request.problem << ": " << index;
    return request.message.value_or(simulator::SmpMessage());
}

void ScriptedLine::Write(QByteArray const& bytes)
{
    steps_.push_back("write " + std::to_string(bytes.size()));
    lines_.push_back(bytes);
    auto pieces = afterwards_;
    if (!script_.empty()) {
        pieces = std::move(script_.front());
        script_.pop_front();
    }
    auto at = now_;
    for (auto const& piece : pieces) {
        at += piece.delay;
        coming_.push_back({at, piece.bytes});
    }
}

QByteArray ScriptedLine::Read(std::chrono::milliseconds time)
{
    steps_.push_back("read " + std::to_string(time.count()));
    auto const end = now_ + time;
    if (!coming_.empty() && coming_.front().at <= end) {
        now_ = std::max(now_, coming_.front().at);
    } else {
        now_ = end;
    }
    return TakeDue();
}

void ScriptedLine::Clear()
{
    steps_.emplace_back("clear");
    TakeDue();
}

void ScriptedLine::Pause(std::chrono::milliseconds time)
{
    steps_.push_back("pause " + std::to_string(time.count()));
    now_ += time;
}

QByteArray ScriptedLine::TakeDue()
{
    QByteArray bytes;
    while (!coming_.empty() && coming_.front().at <= now_) {
        bytes += coming_.front().bytes;
        coming_.pop_front();
    }
    return bytes;
}

}  // namespace mcuboot::test
