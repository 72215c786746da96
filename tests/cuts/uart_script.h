// What a UART session of the updater must look like, byte for byte and from the outside: which
// waits it has, what each one means for the unit's flash, and which text each failure has. Written
// after AN3155 and shares no code with the engine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/bootloaders/stm32_bootloader.h"
#include "tests/cuts/virtual_wire.h"

namespace cuts {

struct UartSetup {
    std::string name;
    simulator::Stm32BootloaderOptions unit;
    bool mass_erase = false;
};

// Every chip with every set of erase commands, both pairs of answers and both protocol versions;
// the mass erases; a chip that ignores stray bytes before the first one, one whose Go looks at the
// stack pointer, and one that refuses the mass erase.
std::vector<UartSetup> ListUartSetups();

// Three blocks and a trailer. Each write begins with a whole programming unit of every chip.
inline constexpr size_t kUartTrailerSize = 8;
inline constexpr size_t kUartImageSize = 3 * 256 + kUartTrailerSize;
// Two reads. The model is in the second.
inline constexpr size_t kUartOtpSize = 64;
inline constexpr uint8_t kUartModel = 7;
inline constexpr uint32_t kUartMarkerAddress = 0x20014000;

// One wait of the engine for bytes.
struct UartWait {
    enum class Step { kConnect, kOtp, kUpdate, kRestart };
    enum class Effect { kNone, kErase, kWrite };

    Step step;
    std::string_view command;  // as a text names it
    size_t to_unit;            // bytes that the engine sends before it
    size_t to_host;            // bytes that it waits for
    // What the unit's flash goes through when the unit has those bytes.
    Effect effect = Effect::kNone;
    size_t begin = 0;  // of the image's bytes that are written
    size_t size = 0;
    Time limit = std::chrono::seconds(1);  // for each next byte
};

class UartScript {
public:
    explicit UartScript(UartSetup const& setup);

    std::vector<std::byte> const& Image() const { return image_; }
    std::vector<UartWait> const& Waits() const { return waits_; }

    // Whether a session without faults ends at the erase. The waits behind it are those of a
    // session in which the refusal is lost.
    bool RefusesErase() const { return setup_.mass_erase && !setup_.unit.accept_ff_ff_erase; }

    // The index of the wait to which a byte belongs.
    size_t Find(Direction direction, size_t position) const;

    // The unit's whole flash before the first session, and after so many waits of one that found
    // it as `flash`.
    std::vector<std::byte> const& FlashBefore() const { return flash_before_; }
    std::vector<std::byte> FlashAfter(size_t waits, std::vector<std::byte> flash) const;

    // Whether the firmware's start-up check would find an image's end in this flash.
    static bool HasTrailer(std::vector<std::byte> const& flash);

private:
    void AddConnect();
    void AddErase();
    void AddWrite(UartWait::Step step, size_t begin, size_t size);

    UartSetup setup_;
    std::vector<std::byte> image_;
    std::vector<std::byte> flash_before_;
    std::vector<UartWait> waits_;
};

// The command that a printed failure names or belongs to; nothing when the text does not begin like
// one of the engine's.
std::optional<std::string> FindCommand(std::string const& text);

}  // namespace cuts
