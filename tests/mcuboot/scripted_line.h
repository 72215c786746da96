// A line without a port, in virtual time: it plays a unit by a script, one entry for each line that
// is written, and keeps a journal of everything the conversation does. Nothing really waits.
#pragma once

#include <QByteArray>
#include <QCborMap>
#include <chrono>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "mcuboot/i_line.h"
#include "simulator/bootloaders/smp_line.h"

namespace mcuboot::test {

// "bf ff" or "bfff"
QByteArray FromHex(std::string_view hex);

// A start line with this base64 text.
QByteArray Line(QByteArray const& text);

// What a unit sends with this payload, as one line.
QByteArray AnswerWith(QByteArray const& payload);
QByteArray AnswerWith(QCborMap const& map);
QByteArray RcAnswer(qint64 rc);             // {"rc": rc}
QByteArray OffAnswer(qint64 offset);        // {"off": offset}
QByteArray OtpAnswer(QByteArray const& d);  // {"rc": 0, "data": d}

class ScriptedLine final : public ILine {
public:
    struct Piece {
        QByteArray bytes;
        std::chrono::milliseconds delay{0};  // after the piece before it, or after the request
    };

    ScriptedLine() = default;
    // A part of the script that was not played fails the test.
    ~ScriptedLine() override;
    ScriptedLine(ScriptedLine const&) = delete;
    ScriptedLine& operator=(ScriptedLine const&) = delete;

    // The script: one call for each line that will be written, in order. After its end the unit is
    // silent, or answers what AlwaysAnswers() was given.
    ScriptedLine& Answers(QByteArray const& raw) { return AnswersInPieces({{raw}}); }
    ScriptedLine& AnswersInPieces(std::vector<Piece> pieces);
    ScriptedLine& StaysSilent() { return AnswersInPieces({}); }
    void AlwaysAnswers(QByteArray const& raw) { afterwards_ = {{raw}}; }

    // The unit sends this unasked, `delay` from now.
    void Sends(QByteArray const& raw, std::chrono::milliseconds delay = {});

    // Time that has passed.
    std::chrono::milliseconds Now() const { return now_; }

    // "pause 10", "read 3", "clear" and "write 23", in milliseconds and bytes, in order.
    std::vector<std::string> const& Steps() const { return steps_; }

    // The lines that were written, and the same as requests: "operation group command sequence".
    // A line that is not a good request fails the test.
    std::vector<QByteArray> const& Lines() const { return lines_; }
    std::vector<std::string> Journal() const;
    // The request with this index. A missing one fails the test and is empty.
    simulator::SmpMessage Request(size_t index) const;

    void Write(QByteArray const& bytes) override;
    QByteArray Read(std::chrono::milliseconds time) override;
    void Clear() override;
    void Pause(std::chrono::milliseconds time) override;
    std::chrono::milliseconds Time() const override { return now_; }

private:
    struct Due {
        std::chrono::milliseconds at;
        QByteArray bytes;
    };

    QByteArray TakeDue();

    std::chrono::milliseconds now_{0};
    std::deque<std::vector<Piece>> script_;
    std::vector<Piece> afterwards_;
    std::deque<Due> coming_;  // in the order of their time
    std::vector<std::string> steps_;
    std::vector<QByteArray> lines_;
};

}  // namespace mcuboot::test
