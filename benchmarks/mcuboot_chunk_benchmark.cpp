// Measures the CPU time of one chunk of an image over MCUboot serial recovery: its request map, its
// frame, and reading the unit's answer. The line needs some 20 ms for the same chunk.
#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <vector>

#include "mcuboot/limits.h"
#include "mcuboot/request_maps.h"
#include "mcuboot/smp_frame.h"
#include "simulator/bootloaders/smp_line.h"

namespace {

class Chunk {
public:
    // {"rc": 0, "off": 2966}
    QByteArray const answer = simulator::MakeSmpLines(
        simulator::MakeSmpAnswer({3, 1, 0, 1, QByteArray::fromHex("bf62726300636f6666190b96ff")}));

    QByteArray Encode()
    {
        auto const size =
            mcuboot::cborEncodeUploadChunk(buffer_, bytes_, mcuboot::kChunkSize, 262144, false);
        return {reinterpret_cast<char const*>(buffer_.data()), size};
    }

private:
    std::vector<uint8_t> const bytes_ = std::vector<uint8_t>(mcuboot::kChunkSize, 0xA5);
    std::array<uint8_t, mcuboot::kUploadBuffer> buffer_{};
};

void BM_WholeChunk(benchmark::State& state)
{
    Chunk chunk;
    uint8_t sequence = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            mcuboot::buildPacket(mcuboot::kSmpWrite, 1, 1, chunk.Encode(), sequence++));
        auto const answer = mcuboot::parseResponse(chunk.answer);
        benchmark::DoNotOptimize(mcuboot::cborDecodeMapInt(answer, "rc"));
        benchmark::DoNotOptimize(mcuboot::cborDecodeMapInt(answer, "off"));
    }
}
BENCHMARK(BM_WholeChunk);

void BM_EncodeChunk(benchmark::State& state)
{
    Chunk chunk;
    for (auto _ : state) {
        benchmark::DoNotOptimize(chunk.Encode());
    }
}
BENCHMARK(BM_EncodeChunk);

void BM_FrameChunk(benchmark::State& state)
{
    auto const payload = Chunk().Encode();
    for (auto _ : state) {
        benchmark::DoNotOptimize(mcuboot::buildPacket(mcuboot::kSmpWrite, 1, 1, payload, 0));
    }
}
BENCHMARK(BM_FrameChunk);

void BM_ParseAnswer(benchmark::State& state)
{
    Chunk const chunk;
    for (auto _ : state) {
        benchmark::DoNotOptimize(mcuboot::parseResponse(chunk.answer));
    }
}
BENCHMARK(BM_ParseAnswer);

}  // namespace
