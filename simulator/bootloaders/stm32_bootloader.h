// The system bootloader of an STM32 on its UART, as ST's application note AN3155 describes it: the
// state machine alone, without port, thread or clock.
//
// The bootloader measures the line's speed from 0x7F, the first byte after a reset. If another byte
// comes first, the measurement is wrong and the bootloader deaf until the next reset. Once it is
// synchronised, 0x7F is a command code like any other: it waits for the complement, and refuses.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "simulator/bootloaders/serial_bootloader.h"
#include "simulator/chips/chips.h"

namespace simulator {

// The bytes with which the bootloader acknowledges and refuses.
struct AckPair {
    std::byte ack;
    std::byte nack;
};
inline constexpr AckPair kStandardAckPair{std::byte{0x79}, std::byte{0x1F}};
inline constexpr AckPair kAlternativeAckPair{std::byte{0x75}, std::byte{0x3F}};

// The commands that the bootloader lists and understands when it offers these erase commands.
enum class EraseCommands { kLegacy, kExtended, kBoth, kNone };
std::vector<uint8_t> ListCommands(EraseCommands erase_commands);

struct Stm32BootloaderOptions {
    Chip chip = kChips.front();
    uint8_t protocol_version = 0x31;
    // The codes that Get lists, in this order; every other code is refused.
    std::vector<uint8_t> commands = ListCommands(EraseCommands::kExtended);
    AckPair ack_pair = kStandardAckPair;
    // Loaded at the start of the chip's OTP area; the rest of the area is 0xFF.
    std::vector<std::byte> otp;
    // The address where the application looks for its boot-mode marker. An address outside flash,
    // OTP area and RAM gets a word of memory (a backup register).
    std::optional<uint32_t> boot_mode_address;
    // AN3155 erases everything by FF 00: FF and its check byte. A client that computes the check
    // byte over an empty list sends FF FF. Not every part accepts that; with false it is refused as
    // a wrong checksum.
    bool accept_ff_ff_erase = true;
    // With false, bytes before 0x7F are ignored, as by a chip that measures the speed in hardware
    // and rejects a byte of another shape.
    bool stray_bytes_spoil_sync = true;
    // Go is refused when the first word at its address, the stack pointer that the application
    // begins with, is not in RAM. AN3155 asks for an address in flash or RAM only.
    bool go_checks_stack = false;
    ChipTimes times;
};

// Not thread-safe.
class Stm32Bootloader final : public SerialBootloader {
public:
    using State = UnitState;

    explicit Stm32Bootloader(Stm32BootloaderOptions options);

    void Reset() override;
    UnitStatus Status() const override;

    State GetState() const { return state_; }
    std::optional<uint32_t> JumpAddress() const { return jump_address_; }  // of the last Go
    // The 4 bytes at the boot-mode address; empty without one.
    std::vector<std::byte> Marker() const;
    Stm32BootloaderOptions const& Options() const { return options_; }

private:
    // The meaning of the bytes being collected.
    enum class Phase {
        kCommand,
        kReadAddress,
        kReadCount,
        kGoAddress,
        kWriteAddress,
        kWriteData,
        kErasePages,
        kExtendedErasePages,
    };

    // A fault that will strike inside a write's data.
    struct WriteCut {
        FaultKind kind;
        size_t bytes;
    };

    void Take(std::byte byte) override;
    void Synchronise(std::byte byte);
    size_t BytesNeeded() const;
    void Handle(std::span<std::byte const> bytes);

    void HandleCommand(std::span<std::byte const> bytes);
    bool CommandFaultStrikes();
    bool WriteFaultStrikes();
    void Start(uint8_t code);
    void StartWith(Phase phase);
    void AnswerGet();
    void AnswerGetVersion();
    void AnswerGetId();
    void HandleReadAddress(std::span<std::byte const> bytes);
    void HandleReadCount(std::span<std::byte const> bytes);
    void HandleGoAddress(std::span<std::byte const> bytes);
    void HandleWriteAddress(std::span<std::byte const> bytes);
    void HandleWriteData(std::span<std::byte const> bytes);
    void HandleErasePages(std::span<std::byte const> bytes);
    void HandleExtendedErasePages(std::span<std::byte const> bytes);
    bool TakeAddress(std::span<std::byte const> bytes);
    bool CanStart(uint32_t address) const;
    void EraseList(std::vector<unsigned> const& pages);
    void EraseRange(std::string name, unsigned first_page, unsigned pages, unsigned banks);
    bool EraseFaultStrikes();
    void CutWriteIfDue();

    void Refuse(std::string reason);
    void Complete(std::chrono::microseconds busy = {}, std::string lost = {});
    void Acknowledge(std::chrono::microseconds busy = {});
    void SendCounted(std::vector<std::byte> bytes);

    Stm32BootloaderOptions options_;

    State state_ = State::kWaitingForSync;
    bool speed_is_wrong_ = false;
    Phase phase_ = Phase::kCommand;
    std::vector<std::byte> buffer_;  // bytes of the phase so far
    uint32_t address_ = 0;           // of the command in progress
    std::optional<WriteCut> write_cut_;

    std::optional<uint32_t> jump_address_;
    unsigned connects_ = 0;
    unsigned erased_pages_ = 0;
    unsigned writes_ = 0;
};

}  // namespace simulator
