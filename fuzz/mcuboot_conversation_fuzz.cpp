// Runs a whole session (the probe at the connect, an OTP read, an upload, a reset) with a unit in
// serial recovery mode that does anything. For each line that the program writes, the fuzzer's
// bytes decide what is answered and when; once they have run out, the unit is silent. Time is
// virtual: a wait adds to a clock and returns.
//
// An answer is: one byte of flags (its low two bits count the pieces that follow, bit 2 stamps the
// content as a unit does, so that the fuzzer gets past the check value), one byte for the length,
// the content, and for each piece one byte of delay in milliseconds.
#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>

#include "fuzz/require.h"
#include "mcuboot/limits.h"
#include "mcuboot/queries.h"
#include "mcuboot/request_maps.h"
#include "mcuboot/upload.h"
#include "simulator/bootloaders/smp_line.h"

namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

class HostileLine final : public mcuboot::ILine {
public:
    explicit HostileLine(std::span<uint8_t const> input) : input_(input) {}

    // The longest waits that the next step may take: for each request, in passes of 3 ms.
    void Allow(milliseconds timeout)
    {
        allowed_ = (timeout + mcuboot::kPass - 1ms) / mcuboot::kPass;
    }
    size_t Requests() const { return requests_; }

    void Write(QByteArray const& bytes) override
    {
        Require(bytes.size() <= 2048, "a request fits the unit's line buffer");
        Require(simulator::ReadSmpRequest(bytes.chopped(1)).message.has_value(),
                "every line is a good request");
        ++requests_;
        passes_ = 0;
        Schedule(TakeAnswer());
    }

    QByteArray Read(milliseconds time) override
    {
        Require(time == 0ms || time == mcuboot::kPass, "no wait but those of 3 ms");
        passes_ += time == 0ms ? 0 : 1;
        Require(passes_ <= allowed_, "no more waits than the time-out has");
        auto const end = now_ + time;
        now_ = !coming_.empty() ? std::clamp(coming_.front().at, now_, end) : end;
        return TakeDue();
    }

    void Clear() override { TakeDue(); }

    void Pause(milliseconds time) override
    {
        Require(time > 0ms && time <= mcuboot::kAfterOpen, "the pauses are short");
        now_ += time;
    }

private:
    struct Due {
        milliseconds at;
        QByteArray bytes;
    };

    uint8_t Take()
    {
        if (input_.empty()) {
            return 0;
        }
        auto const value = input_.front();
        input_ = input_.subspan(1);
        return value;
    }

    std::pair<QByteArray, int> TakeAnswer()
    {
        auto const flags = Take();
        auto const size = std::min<size_t>(Take(), input_.size());
        QByteArray content(reinterpret_cast<char const*>(input_.data()),
                           static_cast<qsizetype>(size));
        input_ = input_.subspan(size);
        if ((flags & 4) != 0) {
            content = simulator::MakeSmpLines(simulator::MakeSmpAnswer({1, 1, 0, 0, content}));
        }
        return {content, 1 + (flags & 3)};
    }

    void Schedule(std::pair<QByteArray, int> const& answer)
    {
        auto const& [content, pieces] = answer;
        auto const piece_size = content.size() / pieces + 1;
        auto at = std::max(now_, coming_.empty() ? now_ : coming_.back().at);
        for (qsizetype offset = 0; offset < content.size(); offset += piece_size) {
            at += milliseconds(Take());
            coming_.push_back({at, content.mid(offset, piece_size)});
        }
    }

    QByteArray TakeDue()
    {
        QByteArray bytes;
        while (!coming_.empty() && coming_.front().at <= now_) {
            bytes += coming_.front().bytes;
            coming_.pop_front();
        }
        return bytes;
    }

    std::span<uint8_t const> input_;
    milliseconds now_{0};
    std::deque<Due> coming_;  // in the order of their time
    int64_t allowed_ = 0;
    int64_t passes_ = 0;  // since the last request
    size_t requests_ = 0;
};

void RequireSound(mcuboot::Answer const& answer)
{
    using mcuboot::Outcome;
    auto const has_payload =
        answer.outcome != Outcome::kNoAnswer && answer.outcome != Outcome::kUnusable;
    Require(answer.payload.isEmpty() != has_payload, "a payload comes with every good frame only");
    Require((answer.outcome == Outcome::kErrorCode) == (answer.error_code != 0),
            "an error code is an outcome of its own");
    Require((answer.outcome == Outcome::kUnusable) ==
                (answer.frame_error != mcuboot::FrameError::kNone),
            "what cannot be used has a reason");
}

void RunUpload(mcuboot::Exchange& exchange, HostileLine& line)
{
    QByteArray const image(4000, 'x');
    auto const requests_before = line.Requests();
    size_t acknowledged = 0;
    int last = 0;
    auto const result = mcuboot::Upload(exchange, image, [&](int percent) {
        Require(percent >= 0, "progress is never negative");
        last = percent;
        ++acknowledged;
    });
    auto const sent = line.Requests() - requests_before;
    Require(acknowledged <= sent && sent <= acknowledged + 1, "one answer a chunk, none repeated");
    auto const ok = result.outcome == mcuboot::Outcome::kSuccess;
    Require(!ok || (last >= 100 && result.offset >= image.size()), "success is the whole image");
    Require(ok || result.offset < 0 || last < 100, "a failure does not reach the end");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    HostileLine line(std::span(data, size));
    mcuboot::Exchange exchange;
    exchange.Attach(line);
    // Each step runs even if the one before it failed.
    line.Allow(mcuboot::kQueryTimeout);
    RequireSound(mcuboot::QueryImageState(exchange));
    auto const value = mcuboot::QueryOtp(exchange, 0x01234711);
    Require((value.answer.outcome == mcuboot::Outcome::kSuccess) == !value.data.isEmpty(),
            "a value is not empty");
    line.Allow(mcuboot::kFirstChunkTimeout);
    RunUpload(exchange, line);
    line.Allow(0ms);
    auto const requests = line.Requests();
    mcuboot::Reset(exchange);
    Require(line.Requests() == requests + 1, "the reset is one request and no wait");
    return 0;
}
