#include "mcuboot/upload.h"

#include <algorithm>
#include <array>
#include <limits>
#include <optional>
#include <span>

#include "mcuboot/causes.h"
#include "mcuboot/limits.h"
#include "mcuboot/request_maps.h"

namespace mcuboot {
namespace {

int GetPercent(int32_t offset, int32_t total)
{
    auto const percent = int64_t{offset} * 100 / total;
    return static_cast<int>(std::min<int64_t>(percent, std::numeric_limits<int>::max()));
}

// Judges by the offsets that the unit asks for whether an upload makes progress.
class StallGuard {
public:
    // `previous`: the offset that was sent; `offset`: the one that the unit asks for now. False
    // once the unit counts as stuck. Every upload ends, in this way or by success: between two
    // furthest offsets it may go back only so often, and can then take only so many steps forward.
    bool Accept(int32_t previous, int32_t offset)
    {
        if (offset == previous) {
            ++repeats_;
        } else if (offset < previous) {
            ++rewinds_;
        } else {
            repeats_ = 0;
        }
        if (offset > furthest_) {
            furthest_ = offset;
            rewinds_ = 0;
        }
        return repeats_ < kMaxStalls && rewinds_ < kMaxStalls;
    }

private:
    int32_t furthest_ = 0;
    int repeats_ = 0;  // since the last step forward
    int rewinds_ = 0;  // since the furthest offset
};

// The request's map for the chunk at `offset`; nothing when it does not fit its buffer.
std::optional<QByteArray> EncodeChunk(QByteArray const& image, int32_t offset, int32_t size)
{
    auto const chunk = std::span(reinterpret_cast<uint8_t const*>(image.constData()) + offset,
                                 static_cast<size_t>(size));
    std::array<uint8_t, kUploadBuffer> buffer;
    auto const map_size = cborEncodeUploadChunk(buffer, chunk, static_cast<uint32_t>(offset),
                                                static_cast<uint32_t>(image.size()), offset == 0);
    if (map_size < 0) {
        return std::nullopt;
    }
    return QByteArray(reinterpret_cast<char const*>(buffer.data()), map_size);
}

// "chunk 2 of 48 at offset 1483: " and the cause.
QString DescribeFailure(int32_t offset, int32_t total, QString const& cause)
{
    auto const chunks = total / kChunkSize + (total % kChunkSize != 0 ? 1 : 0);
    return QStringLiteral("chunk %1 of %2 at offset %3: ")
               .arg(offset / kChunkSize + 1)
               .arg(chunks)
               .arg(offset) +
           cause;
}

void NoteAnswer(UploadFigures& figures, int32_t offset, std::chrono::milliseconds time)
{
    if (offset == 0) {
        figures.first_answer = std::max(figures.first_answer.value_or(time), time);
    } else if (!figures.slowest_answer || time > *figures.slowest_answer) {
        figures.slowest_answer = time;
        figures.slowest_offset = offset;
    }
}

// Sends the chunk at `offset`. On success the result's offset is where to go on.
UploadResult UploadChunk(Exchange& exchange, QByteArray const& image, int32_t offset,
                         UploadFigures& figures)
{
    auto const total = static_cast<int32_t>(image.size());
    auto const size = std::min(kChunkSize, total - offset);
    auto const fail = [&](Answer const& answer) {
        return UploadResult{.outcome = answer.outcome,
                            .offset = offset,
                            .error_code = answer.error_code,
                            .cause = DescribeFailure(offset, total, DescribeCause(answer))};
    };
    auto const map = EncodeChunk(image, offset, size);
    if (!map) {
        return fail({.outcome = Outcome::kNotEncoded});
    }
    auto const answer = exchange.Ask({kSmpWrite, kImageGroup, kUploadCommand, *map},
                                     offset == 0 ? kFirstChunkTimeout : kChunkTimeout);
    if (answer.outcome != Outcome::kNoAnswer) {
        NoteAnswer(figures, offset, answer.time);
    }
    if (answer.outcome != Outcome::kSuccess) {
        return fail(answer);
    }
    auto const next = cborDecodeMapInt(answer.payload, "off").value_or(offset + size);
    if (next < 0) {
        auto const cause = QStringLiteral("the unit asks for offset %1").arg(next);
        return {.outcome = Outcome::kNegativeOffset,
                .offset = next,
                .cause = DescribeFailure(offset, total, cause)};
    }
    figures.acknowledged = std::max(figures.acknowledged, std::min(next, total));
    figures.repeated_chunks += next <= offset ? 1 : 0;
    return {.outcome = Outcome::kSuccess, .offset = next};
}

}  // namespace

UploadResult Upload(Exchange& exchange, QByteArray const& image,
                    std::function<void(int)> const& progress)
{
    exchange.ResetSequence();
    auto const total = static_cast<int32_t>(image.size());
    StallGuard guard;
    UploadFigures figures{.image_size = total};
    UploadResult result;
    while (result.outcome == Outcome::kSuccess && result.offset < total) {
        auto const offset = result.offset;
        result = UploadChunk(exchange, image, offset, figures);
        if (result.outcome != Outcome::kSuccess) {
            break;
        }
        if (progress) {
            progress(GetPercent(result.offset, total));
        }
        if (!guard.Accept(offset, result.offset)) {
            result.outcome = Outcome::kStalled;
            result.cause = DescribeFailure(
                offset, total,
                QStringLiteral("the unit asks for offset %1 again and gets no further")
                    .arg(result.offset));
        }
    }
    result.figures = figures;
    return result;
}

}  // namespace mcuboot
