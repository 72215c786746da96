#include "tests/cuts/virtual_line.h"

#include <span>

#include "simulator/bootloaders/smp_line.h"

namespace cuts {
namespace {

using namespace std::chrono_literals;

constexpr auto kOneWait = 3ms;

// How often the program waits for the answer to this request.
int CountWaits(QByteArray const& line)
{
    auto const request = simulator::ReadSmpRequest(line.chopped(1)).message;
    if (!request) {
        return 0;
    }
    bool const is_upload = request->operation == 2 && request->group == 1 && request->command == 1;
    auto const limit = !is_upload                          ? 2000ms
                       : request->payload.contains("clen") ? 10000ms  // with the image's size
                                                           : 3000ms;
    return static_cast<int>((limit + kOneWait - 1ms) / kOneWait);
}

}  // namespace

void VirtualLine::Write(QByteArray const& bytes)
{
    requests_.push_back({wire_.SentToUnit(), wire_.SentToHost()});
    waits_left_ = CountWaits(bytes);
    wire_.Send(std::as_bytes(std::span(bytes.constData(), static_cast<size_t>(bytes.size()))));
}

QByteArray VirtualLine::Read(std::chrono::milliseconds time)
{
    if (time == 0ms) {
        return Keep(wire_.TakeArrived());
    }
    return Keep(wire_.Receive(time, --waits_left_ == 0 ? Chance::kLast : Chance::kLater));
}

QByteArray VirtualLine::Keep(std::vector<std::byte> const& bytes)
{
    if (bytes.empty()) {
        return {};
    }
    QByteArray const copy(reinterpret_cast<char const*>(bytes.data()),
                          static_cast<qsizetype>(bytes.size()));
    received_ += copy;
    return copy;
}

}  // namespace cuts
