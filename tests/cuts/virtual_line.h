// The MCUboot conversation's side of a virtual wire.
#pragma once

#include <QByteArray>
#include <array>
#include <chrono>
#include <cstddef>
#include <span>
#include <vector>

#include "mcuboot/i_line.h"
#include "mcuboot/limits.h"
#include "simulator/bootloaders/smp_line.h"
#include "tests/cuts/virtual_wire.h"

namespace cuts {

// A request, and how many bytes had gone in each direction when it began.
struct LineRequest {
    std::array<size_t, 2> begin;
    std::chrono::milliseconds limit;  // for its answer; 0 for the restart, which nobody waits for
};

class VirtualLine final : public mcuboot::ILine {
public:
    // The wire must outlive the line.
    explicit VirtualLine(VirtualWire& wire) : wire_(wire) {}

    std::vector<LineRequest> const& Requests() const { return requests_; }

    // Everything that has come, in its order.
    QByteArray const& Received() const { return received_; }

    void Write(QByteArray const& bytes) override
    {
        requests_.push_back({wire_.CountBytes(), GetLimit(bytes)});
        // Limits are counted in waits.
        waits_left_ = (requests_.back().limit + mcuboot::kPass - std::chrono::milliseconds(1)) /
                      mcuboot::kPass;
        wire_.Send(std::as_bytes(std::span(bytes.constData(), static_cast<size_t>(bytes.size()))));
    }

    QByteArray Read(std::chrono::milliseconds time) override
    {
        if (time.count() == 0) {
            return Keep(wire_.TakeArrived());
        }
        return Keep(wire_.Receive(time, --waits_left_ == 0 ? Chance::kLast : Chance::kLater));
    }

    void Clear() override { Keep(wire_.TakeArrived()); }
    void Pause(std::chrono::milliseconds time) override { wire_.Pass(time); }

private:
    static std::chrono::milliseconds GetLimit(QByteArray const& line)
    {
        auto const request = simulator::ReadSmpRequest(line.chopped(1)).message;
        bool const is_upload = request && request->operation == simulator::kWriteRequest &&
                               request->group == 1 && request->command == 1;
        if (is_upload) {
            // The first chunk has the image's size.
            return request->payload.contains("clen") ? mcuboot::kFirstChunkTimeout
                                                     : mcuboot::kChunkTimeout;
        }
        bool const is_query = request && request->operation == simulator::kReadRequest;
        return is_query ? mcuboot::kQueryTimeout : std::chrono::milliseconds(0);
    }

    QByteArray Keep(std::vector<std::byte> const& bytes)
    {
        if (bytes.empty()) {
            return {};  // nearly always
        }
        QByteArray const copy(reinterpret_cast<char const*>(bytes.data()),
                              static_cast<qsizetype>(bytes.size()));
        received_ += copy;
        return copy;
    }

    VirtualWire& wire_;
    std::vector<LineRequest> requests_;
    QByteArray received_;
    std::chrono::milliseconds::rep waits_left_ = 0;  // for the answer to the latest request
};

}  // namespace cuts
