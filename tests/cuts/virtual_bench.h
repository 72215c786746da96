// Whole sessions in virtual time, the same for every transport: a bench updates a simulated unit
// over a wire with faults, and then a second time, after a reset, over one without. It judges how
// both ended, as the user and the unit see it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "simulator/faults.h"
#include "tests/cuts/virtual_wire.h"

namespace cuts {

enum class SessionEnd {
    kUpdated,           // reported as updated, and the unit runs the new firmware
    kNotRestarted,      // reported as updated; the image is complete, but the unit did not restart
    kWrongFlash,        // reported as updated, but the flash is not as it must be
    kRefused,           // refused by the model check; the flash is as before
    kFailedUntouched,   // reported as failed; the flash is as before
    kFailedIncomplete,  // reported as failed; the image is incomplete, and its end is missing
    kFailedComplete,    // reported as failed, though the image is complete
    kFailedWrongFlash,  // reported as failed; the image is incomplete, but its end is there
};

// What a table calls them.
inline constexpr std::array kSessionEnds{
    "updated",
    "\"DONE\", not restarted",
    "\"DONE\", wrong flash",
    "refused as another model",
    "failed, old image intact",
    "failed, image incomplete",
    "failed, image complete",
    "failed, incomplete image with an end",
};

struct SessionVerdict {
    SessionEnd end = SessionEnd::kUpdated;
    std::string problem;  // empty when all is as it must be
    // Why a fault that damages bytes did not make the session fail; empty when it did.
    std::string explanation;
    std::string report;  // the texts or results of the first attempt
    uint64_t trace_hash = 0;

    // "problem (end; report)"
    std::string ToText() const;
};

// Faults of the line, and faults that the unit itself has.
struct SessionFaults {
    std::vector<WireFault> wire;
    std::vector<simulator::Fault> unit;
};

// A fault of the matrix: what its table calls it, and what it is at one byte.
struct MatrixFault {
    char const* name;
    WireFaultKind kind;
    std::function<std::byte(size_t position)> value = [](size_t) { return std::byte{0}; };
};

// Runs sessions with one simulated unit, each from the same beginning.
class Bench {
public:
    virtual ~Bench() = default;
    Bench(Bench const&) = delete;
    Bench& operator=(Bench const&) = delete;

    std::string const& Name() const { return name_; }  // of the unit

    // Of a session without faults, by direction.
    std::array<size_t, 2> CountBytes() const { return bytes_; }

    virtual std::vector<MatrixFault> ListFaults() const = 0;

    // Exactly one fault, after which only what a table of exceptions names may go undetected.
    virtual SessionVerdict RunWithOne(WireFault const& fault) = 0;

    // Any faults. Only what holds whatever the line does is a problem.
    virtual SessionVerdict RunWithMany(SessionFaults const& faults) = 0;

protected:
    // What is known after an attempt to update, whatever the transport.
    struct Attempt {
        bool is_refused = false;  // by the model check
        bool is_updated = false;
        bool is_running = false;  // the new firmware
        WireNotes wire;
        std::vector<std::byte> flash;
    };

    explicit Bench(std::string name) : name_(std::move(name)) {}

    SessionEnd Classify(Attempt const& attempt) const;

    // Whether a look at its end alone would take this flash for a complete image.
    virtual bool HasEnd(std::vector<std::byte> const& flash) const = 0;

    // For the constructors of the transports' benches.
    std::array<size_t, 2> bytes_{};
    // The unit's whole flash before a session and after one without faults.
    std::vector<std::byte> flash_before_;
    std::vector<std::byte> new_flash_;

private:
    std::string name_;
};

template <typename AnyBench, typename Setup>
std::vector<std::unique_ptr<Bench>> MakeBenches(std::vector<Setup> const& setups)
{
    std::vector<std::unique_ptr<Bench>> benches;
    for (auto const& setup : setups) {
        benches.push_back(std::make_unique<AnyBench>(setup));
    }
    return benches;
}

// What the tests of all transports need to know about one of them.
struct VirtualTransport {
    char const* name;
    char const* table;  // of the matrix
    // One for every chip and every option of the bootloader.
    std::vector<std::unique_ptr<Bench>> (*make_benches)();
    std::span<simulator::FaultKind const> unit_faults;
    // Bytes that mean something to the receiver, and so are more dangerous than others.
    std::span<std::byte const> telling;
};

VirtualTransport const& GetVirtualUart();
VirtualTransport const& GetVirtualMcuboot();

// The bit is another one at each of eight neighbouring bytes.
constexpr std::byte OneBit(size_t position)
{
    return static_cast<std::byte>(1 << (position % 8));
}

}  // namespace cuts
