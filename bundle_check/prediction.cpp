#include "bundle_check/prediction.h"

#include <algorithm>

#include "bundle_check/address_checks.h"

namespace bundle_check {

namespace {

constexpr double kDoubleWordSeconds = 82e-6;  // DS12288, programming of 8 bytes

// How many parts it takes, the last one being smaller.
double Divide(uint64_t amount, uint64_t part)
{
    uint64_t const parts = (amount + part - 1) / part;
    return static_cast<double>(parts);
}

double ProgrammingSeconds(uint64_t bytes)
{
    return Divide(bytes, 8) * kDoubleWordSeconds;
}

double EraseSeconds(uint64_t bytes, uint64_t page_size)
{
    return Divide(bytes, page_size) * kPageEraseSeconds;
}

double PredictSeconds(Config const& config, uint64_t bytes)
{
    // The smallest pages take the longest to erase.
    auto const page_size = std::ranges::min(GetChips(config), {}, [](Chip const& chip) {
                               return chip.flash.page_size;
                           }).flash.page_size;
    switch (config.Type()) {
        case TargetUsb:
            return PredictUsb(bytes, page_size);
        case TargetMcubootSerial:
            return PredictMcuboot(bytes, page_size, ReadMcubootConfig(config.Settings()).baud);
        case TargetUart:
            break;
    }
    return PredictUart(bytes, page_size);
}

}  // namespace

double PredictUart(uint64_t bytes, uint64_t page_size)
{
    constexpr double kByteSeconds = 11.0 / 460800;
    constexpr uint64_t kBlock = 256;
    // Sent: command 2, address 5, count 1, check value 1. Received: 3 acknowledgements.
    constexpr double kBlockOverhead = 12;
    auto const sent = Divide(bytes, kBlock) * kBlockOverhead + static_cast<double>(bytes);
    return EraseSeconds(bytes, page_size) + sent * kByteSeconds + ProgrammingSeconds(bytes);
}

double PredictUsb(uint64_t bytes, uint64_t page_size)
{
    constexpr uint64_t kTransfer = 2048;
    constexpr double kTransferSeconds = 0.005;
    constexpr double kNoticeSeconds = 1;
    return EraseSeconds(bytes, page_size) + Divide(bytes, kTransfer) * kTransferSeconds +
           ProgrammingSeconds(bytes) + kNoticeSeconds;
}

double PredictMcuboot(uint64_t bytes, uint64_t page_size, unsigned baud)
{
    constexpr uint64_t kChunk = 1483;
    constexpr double kPauseSeconds = 0.016;  // 10 before, 3 behind a request, 3 behind its answer
    // Size 2, header 8, check value 2, map 23 ("data", "off", their lengths).
    constexpr double kChunkOverhead = 35;
    constexpr double kAnswerBytes = 60;
    constexpr double kBase64 = 4.0 / 3;
    constexpr double kBitsPerByte = 10;
    if (baud == 0) {
        return 0;
    }
    auto const chunks = Divide(bytes, kChunk);
    auto const sent = (chunks * kChunkOverhead + static_cast<double>(bytes)) * kBase64;
    return EraseSeconds(bytes, page_size) + chunks * kPauseSeconds +
           (sent + chunks * kAnswerBytes) * kBitsPerByte / baud + ProgrammingSeconds(bytes);
}

QList<Prediction> Predict(Config const& config, uint64_t bytes)
{
    auto const seconds = PredictSeconds(config, bytes);
    QList<Prediction> predictions;
    auto const products = ReadProducts(config.Settings());
    for (auto const& name : products.keys()) {
        if (seconds > 0) {
            predictions.append({name, seconds});
        }
    }
    return predictions;
}

}  // namespace bundle_check
