#include "mcuboot/upload.h"

#include <algorithm>
#include <array>
#include <limits>
#include <optional>
#include <span>

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

// Sends the chunk at `offset`. On success the result's offset is where to go on.
UploadResult UploadChunk(Exchange& exchange, QByteArray const& image, int32_t offset)
{
    auto const size = std::min(kChunkSize, static_cast<int32_t>(image.size()) - offset);
    auto const map = EncodeChunk(image, offset, size);
    if (!map) {
        return {Outcome::kNotEncoded, offset, 0};
    }
    auto const answer = exchange.Ask({kSmpWrite, kImageGroup, kUploadCommand, *map},
                                     offset == 0 ? kFirstChunkTimeout : kChunkTimeout);
    if (answer.outcome != Outcome::kSuccess) {
        return {answer.outcome, offset, answer.error_code};
    }
    auto const next = cborDecodeMapInt(answer.payload, "off").value_or(offset + size);
    return {next < 0 ? Outcome::kNegativeOffset : Outcome::kSuccess, next, 0};
}

}  // namespace

UploadResult Upload(Exchange& exchange, QByteArray const& image,
                    std::function<void(int)> const& progress)
{
    exchange.ResetSequence();
    auto const total = static_cast<int32_t>(image.size());
    StallGuard guard;
    int32_t offset = 0;
    while (offset < total) {
        auto const result = UploadChunk(exchange, image, offset);
        if (result.outcome != Outcome::kSuccess) {
            return result;
        }
        if (progress) {
            progress(GetPercent(result.offset, total));
        }
        if (!guard.Accept(offset, result.offset)) {
            return {Outcome::kStalled, result.offset, 0};
        }
        offset = result.offset;
    }
    return {Outcome::kSuccess, offset, 0};
}

}  // namespace mcuboot
