#include "bundle_check/prediction.h"

#include <algorithm>
#include <chrono>

#include "bundle_check/chips.h"
#include "mcuboot/limits.h"
#include "modules/stm32_updater/limits.h"

namespace bundle_check {

namespace {

using Seconds = std::chrono::duration<double>;

// The number of parts; the last one may be smaller.
double Divide(uint64_t amount, uint64_t part)
{
    uint64_t const parts = (amount + part - 1) / part;
    return static_cast<double>(parts);
}

double FlashSeconds(uint64_t bytes, Chip const& chip)
{
    auto const& figures = chip.Figures();
    return Divide(bytes, chip.flash.page_size) * figures.page_erase_seconds +
           Divide(bytes, figures.unit) * figures.unit_seconds;
}

double PredictSeconds(Config const& config, uint64_t bytes)
{
    auto const chip =
        std::ranges::max(GetChipsByOtp(config.Number(config_keys::kOtpAddress)), {},
                         [=](Chip const& candidate) { return FlashSeconds(bytes, candidate); });
    switch (config.Type()) {
        case TargetUsb:
            return PredictUsb(bytes, chip);
        case TargetMcubootSerial:
            return PredictMcuboot(bytes, chip, ReadMcubootConfig(config.Settings()).baud);
        case TargetUart:
            break;
    }
    return PredictUart(bytes, chip);
}

}  // namespace

double PredictUart(uint64_t bytes, Chip const& chip)
{
    constexpr double kByteSeconds = 11.0 / stm32_updater::kBaudRate;
    // Sent: command 2, address 5, count 1, check value 1. Received: 3 acknowledgements.
    constexpr double kBlockOverhead = 12;
    auto const blocks = Divide(bytes, stm32_updater::kMaxBlock);
    auto const sent = blocks * kBlockOverhead + static_cast<double>(bytes);
    return FlashSeconds(bytes, chip) + sent * kByteSeconds;
}

double PredictUsb(uint64_t bytes, Chip const& chip)
{
    return FlashSeconds(bytes, chip) + Divide(bytes, kDfuTransferSize) * kDfuTransferSeconds +
           Seconds(stm32_updater::kDfuPollInterval).count();
}

double PredictMcuboot(uint64_t bytes, Chip const& chip, unsigned baud)
{
    // Before a request, after it, and after the end of its answer.
    constexpr Seconds kPauses = mcuboot::kBeforeRequest + 2 * mcuboot::kPass;
    // Size 2, header 8, check value 2, map 23 ("data", "off", their lengths).
    constexpr double kChunkOverhead = 35;
    constexpr double kAnswerBytes = 60;
    constexpr double kBase64 = 4.0 / 3;
    constexpr double kBitsPerByte = 10;
    if (baud == 0) {
        return 0;
    }
    auto const chunks = Divide(bytes, mcuboot::kChunkSize);
    auto const sent = (chunks * kChunkOverhead + static_cast<double>(bytes)) * kBase64;
    return FlashSeconds(bytes, chip) + chunks * kPauses.count() +
           (sent + chunks * kAnswerBytes) * kBitsPerByte / baud;
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
