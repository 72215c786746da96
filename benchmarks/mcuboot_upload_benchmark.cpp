// Measures how close an upload over MCUboot serial recovery comes to what its line and its required
// pauses allow: 256 KiB to the simulated unit, whose line keeps the pace of 921600 baud 8N1.
//
// Each chunk is one request and one answer, and costs three sleeps that the unit and its USB bridge
// need: 10 ms before the request, 3 ms after it, and 3 ms after the answer to see that nothing
// follows. The second passes while the request is still on its way, so two sums are printed: the
// wire and all three, and the wire and the two during which the line is idle.

#include <fmt/format.h>

#include <QCoreApplication>
#include <QTemporaryDir>
#include <algorithm>
#include <chrono>
#include <limits>

#include "benchmarks/benchmark_image.h"
#include "config/startup_config.h"
#include "mcuboot/limits.h"
#include "tests/support/unit_process.h"
#include "updater/mcuboot_serial_updater.h"

namespace {

using benchmarks::Require;
using mcuboot::kChunkSize;

constexpr unsigned kBaud = kDefaultMcubootBaud;
constexpr double kBitsPerByte = 10;
constexpr int kImageSize = 256 * 1024;
constexpr int kRepeats = 3;

// Seconds a chunk.
constexpr double kIdleWaits =
    std::chrono::duration<double>(mcuboot::kBeforeRequest + mcuboot::kPass).count();
constexpr double kAllWaits = kIdleWaits + std::chrono::duration<double>(mcuboot::kPass).count();

// Bytes that a number takes in a request map.
constexpr int GetNumberSize(int number)
{
    return number < 24 ? 1 : number < 0x100 ? 2 : number < 0x10000 ? 3 : 5;
}

// A line with a map of that size: marker, base64 of length, header, map and check value, newline.
constexpr int GetLineSize(int map_size)
{
    int const body_size = 2 + 8 + map_size + 2;
    return 2 + (body_size + 2) / 3 * 4 + 1;
}

// {"data": chunk, "off": offset}, at the beginning also {"len": size, "image": 0}.
constexpr int GetRequestSize(int offset)
{
    int const chunk_size = std::min(kChunkSize, kImageSize - offset);
    int const first_keys = offset == 0 ? 4 + GetNumberSize(kImageSize) + 6 + 1 : 0;
    return GetLineSize(2 + 5 + GetNumberSize(chunk_size) + chunk_size + 4 + GetNumberSize(offset) +
                       first_keys);
}

// {"rc": 0, "off": next offset}
constexpr int GetAnswerSize(int next_offset)
{
    return GetLineSize(2 + 3 + 1 + 4 + GetNumberSize(next_offset));
}

static_assert(GetRequestSize(0) == 2039);

constexpr int kChunks = (kImageSize + kChunkSize - 1) / kChunkSize;

double GetWireSeconds()
{
    int bytes = 0;
    for (int offset = 0; offset < kImageSize; offset += kChunkSize) {
        bytes += GetRequestSize(offset) + GetAnswerSize(std::min(offset + kChunkSize, kImageSize));
    }
    return bytes * kBitsPerByte / kBaud;
}

double UploadOnce(QString const& image)
{
    UnitProcess unit({QStringLiteral("--protocol"), QStringLiteral("mcuboot"),
                      QStringLiteral("--baud"), QString::number(kBaud)});
    McubootSerialUpdater updater(image, kBaud, false, {}, nullptr);
    Require(updater.connect(unit.Property(QStringLiteral("pty"))), "the updater does not connect");
    auto const start = std::chrono::steady_clock::now();
    Require(updater.upload(image, {}), "the upload failed");
    std::chrono::duration<double> const taken = std::chrono::steady_clock::now() - start;
    Require(unit.Status(QStringLiteral("stored")).toInt() == kImageSize, "not all was stored");
    return taken.count();
}

}  // namespace

int main(int argc, char** argv)
{
    QCoreApplication const application(argc, argv);
    QTemporaryDir const directory;
    auto const image = benchmarks::WriteImage(directory, kImageSize);

    // The quickest of several tries counts: a disturbance can only add time.
    double taken = std::numeric_limits<double>::max();
    for (int i = 0; i < kRepeats; ++i) {
        taken = std::min(taken, UploadOnce(image));
    }
    auto const wire = GetWireSeconds();
    fmt::print("{} chunks, {} baud 8N1: {:.3f} s on the wire\n", kChunks, kBaud, wire);
    fmt::print("upload: {:.3f} s, {:.3f} ms a chunk beside the wire\n", taken,
               1e3 * (taken - wire) / kChunks);
    fmt::print("/ (wire + all waits):  {:.3f}\n", taken / (wire + kChunks * kAllWaits));
    fmt::print("/ (wire + idle waits): {:.3f}\n", taken / (wire + kChunks * kIdleWaits));
    return 0;
}
