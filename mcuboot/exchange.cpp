#include "mcuboot/exchange.h"

#include "mcuboot/limits.h"
#include "mcuboot/request_maps.h"

namespace mcuboot {
namespace {

using namespace std::chrono_literals;

// Judges the bytes of an answer, in the same order for all requests.
Answer Judge(QByteArray const& raw)
{
    Answer answer;
    answer.raw = raw;
    if (raw.isEmpty()) {
        answer.outcome = Outcome::kNoAnswer;
        return answer;
    }
    auto const frame = ReadFrame(raw);
    if (frame.error != FrameError::kNone) {
        answer.outcome = Outcome::kUnusable;
        answer.frame_error = frame.error;
        return answer;
    }
    answer.payload = frame.payload;
    answer.error_code = cborDecodeMapInt(frame.payload, "rc").value_or(0);
    answer.outcome = answer.error_code == 0 ? Outcome::kSuccess : Outcome::kErrorCode;
    return answer;
}

}  // namespace

QByteArray SendAndReceive(ILine& line, QByteArray const& packet, std::chrono::milliseconds timeout)
{
    line.Pause(kBeforeRequest);
    line.Read(0ms);
    line.Clear();
    line.Write(packet);
    line.Pause(kPass);

    QByteArray answer;
    for (auto elapsed = 0ms; elapsed < timeout; elapsed += kPass) {
        answer.append(line.Read(kPass));
        if (!answer.endsWith('\n')) {
            continue;
        }
        line.Pause(kPass);
        auto const more = line.Read(0ms);
        if (more.isEmpty()) {
            return answer;
        }
        answer.append(more);
    }
    return answer;
}

void Exchange::Attach(ILine& line)
{
    line_ = &line;
    line.Clear();
    line.Pause(kAfterOpen);
    line.Read(0ms);
}

QByteArray Exchange::SendAndReceive(QByteArray const& packet, std::chrono::milliseconds timeout)
{
    return line_ == nullptr ? QByteArray() : mcuboot::SendAndReceive(*line_, packet, timeout);
}

Answer Exchange::Ask(Request const& request, std::chrono::milliseconds timeout)
{
    auto const packet = BuildNextPacket(request);
    if (line_ == nullptr) {
        return Judge({});
    }
    auto const start = line_->Time() + kBeforeRequest;
    auto answer = Judge(SendAndReceive(packet, timeout));
    answer.time = line_->Time() - start;
    return answer;
}

void Exchange::Send(Request const& request)
{
    if (line_ != nullptr) {
        line_->Write(BuildNextPacket(request));
    }
}

QByteArray Exchange::BuildNextPacket(Request const& request)
{
    return buildPacket(request.operation, request.group, request.command, request.payload,
                       sequence_++);
}

}  // namespace mcuboot
