// The MCUboot conversation's side of a virtual wire.
#pragma once

#include <QByteArray>
#include <array>
#include <chrono>
#include <cstddef>
#include <vector>

#include "mcuboot/i_line.h"
#include "tests/cuts/virtual_wire.h"

namespace cuts {

class VirtualLine final : public mcuboot::ILine {
public:
    // The wire must outlive the line.
    explicit VirtualLine(VirtualWire& wire) : wire_(wire) {}

    // How many bytes had gone in each direction when each request began.
    std::vector<std::array<size_t, 2>> const& Requests() const { return requests_; }

    // Everything that has come, in its order.
    QByteArray const& Received() const { return received_; }

    void Write(QByteArray const& bytes) override;
    QByteArray Read(std::chrono::milliseconds time) override;
    void Clear() override { Keep(wire_.TakeArrived()); }
    void Pause(std::chrono::milliseconds time) override { wire_.Pass(time); }

private:
    QByteArray Keep(std::vector<std::byte> const& bytes);

    VirtualWire& wire_;
    std::vector<std::array<size_t, 2>> requests_;
    QByteArray received_;
    int waits_left_ = 0;  // for the answer to the latest request
};

}  // namespace cuts
