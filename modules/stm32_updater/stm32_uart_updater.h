// Updates an STM32 microcontroller through its system bootloader over a UART (ST AN3155): the
// conversation (which command, which answers, which waits) and the order of an update. The bytes
// are made in command_bytes.h; the line is whatever implements hal::uart::IUartDriver.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <source_location>
#include <span>
#include <string>
#include <vector>

#include "hal/uart/i_uart_driver.h"
#include "modules/stm32_updater/command_bytes.h"
#include "modules/stm32_updater/flash_config.h"
#include "modules/stm32_updater/i_stm32_updater.h"
#include "modules/stm32_updater/limits.h"
#include "modules/stm32_updater/rx_queue.h"
#include "modules/stm32_updater/session_facts.h"
#include "runtime/i_dispatcher.h"
#include "runtime/task.h"
#include "runtime/time.h"

namespace stm32_updater {

// How the engine waits. The defaults wait in real time; tests pass in functions that end a wait at
// once and record how long it would have been.
struct Waits {
    using Signal = task::counting_semaphore<1>;

    // Takes a token of `signal`, waiting for it up to `timeout`; false when none has come.
    std::function<bool(Signal& signal, Milliseconds timeout)> acquire =
        [](Signal& signal, Milliseconds timeout) { return signal.try_acquire_for_ms(timeout); };

    // Blocks for `duration`.
    std::function<void(Milliseconds duration)> pause = [](Milliseconds duration) {
        kelvane::time::delay(duration);
    };

    // Only measures: nothing that the engine does depends on it.
    std::function<std::chrono::steady_clock::time_point()> now = [] {
        return std::chrono::steady_clock::now();
    };
};

// All operations run on one thread and block it; received bytes may come from another one. Every
// reference given to the constructor must outlive the updater. A protocol failure is printed to
// standard output, logged at level 3 and reported by the result; it throws nothing.
//
// Order of calls: ConnectDevice, then GetOtp and Update in any order, then DisconnectDevice, and
// finally ExitDfu to start the new firmware.
class Stm32UartUpdater : public IStm32Updater {
public:
    using Rate = hal::uart::IUartDriver::Rate;

    // set_line_a drives the unit's reset line, set_line_b its boot-select line, where the board has
    // them; true asserts the line. first_hook and second_hook run before and after the two lines
    // change, when the bootloader is entered and after a successful update. mass_erase: erase the
    // whole flash rather than the pages that the image covers.
    Stm32UartUpdater(
        std::function<void(bool)> set_line_a, std::function<void(bool)> set_line_b,
        hal::uart::IUartDriver& uart, IDispatcher& dispatcher, std::mutex& update_mutex,
        unsigned char mcu_id, bool mass_erase, std::function<void()> first_hook = [] {},
        std::function<void()> second_hook = [] {}, Rate rate = Rate::kBootloader, Waits waits = {});

    bool Update(std::span<std::byte const> image, ProgressCallback const& progress) override;

    // Serialised by the update mutex. image.size() must be a multiple of 4; below 8 bytes nothing
    // is sent and the result is false. The last four bytes of the image are replaced by the MCU ID
    // and three zero bytes. There is no read-back: the bootloader's acknowledgement of each block
    // is the only confirmation. An exception of a callback ends the program.
    bool Update(std::span<std::byte const> image, ProgressCallback const& progress,
                unsigned address) noexcept override;

    uint8_t GetMcuId() const override { return mcu_id_; }
    void ExitDfu(unsigned start_address, unsigned boot_mode_address) override;
    std::vector<std::byte> GetOtp(unsigned address, unsigned long size) override;
    bool ConnectDevice() override;
    void DisconnectDevice() override;

    // Since the last ConnectDevice. Only on the thread of the operations, and between them.
    SessionFacts const& Facts() const { return facts_; }

private:
    // The session (ConnectDevice).
    uint16_t Connect();
    void Subscribe();
    void SendFailureLog(char const* text);

    // `name` goes into the error texts, `request` into the facts: AN3155's own name.
    void Begin(char const* name, char const* request);
    // Notes the cause, and throws the message. The default argument makes the location that of the
    // caller, which the message then names.
    [[noreturn]] void Fail(std::string const& message, std::string const& cause,
                           std::source_location const& location = std::source_location::current());
    std::string DescribeStep() const;
    std::chrono::milliseconds TimeSinceSent() const;

    // The update, step by step.
    bool DoUpdate(std::span<std::byte const> image, ProgressCallback const& progress,
                  unsigned address);
    void EraseFlash(size_t image_size);
    void WriteImage(std::span<std::byte const> image, unsigned address);
    void RunClosingHooks();
    void JumpTo(uint32_t start_address);  // does not wait for the bootloader's last answer

    // Bootloader commands; each throws kelvane::ExceptionString on any failure.
    uint32_t CmdGet();          // (mask of supported commands << 16) | protocol version
    std::byte CmdGetVerRops();  // bootloader version
    uint16_t CmdGetId();        // product ID
    std::span<std::byte const> CmdRead(uint32_t address, size_t n);  // valid until the next wait
    void CmdWrite(uint32_t address, std::span<std::byte const> const& data);
    void CmdErase(std::span<std::byte const> const& pages);
    void CmdEraseExt(std::span<uint16_t const> const& pages);

    // One Write Memory, repeated while the bootloader refuses it; 1 <= block.size() <= kMaxBlock.
    void WriteBlock(uint32_t address, std::span<std::byte const> block);
    bool StartWrite(uint32_t address);  // command and address; false when either was refused

    // Sending and waiting. A time-out applies to each next byte, not to the whole answer.
    void SendToDfu(std::span<std::byte const> const& data);
    void SendCommand(Command command);
    void WaitForDfuAck(Milliseconds timeout);
    bool WaitForDfuAckNack(Milliseconds timeout);  // true for ACK, false for NACK
    void LearnAck(uint8_t answer);
    size_t WaitForNBytesToReceive(Milliseconds timeout);
    std::span<std::byte const> WaitForData(size_t n, Milliseconds timeout);

    void OnByteReceived(std::byte value);  // serial thread

    std::function<void(bool)> set_line_a_;
    std::function<void(bool)> set_line_b_;
    hal::uart::IUartDriver& uart_;
    // Only the device firmware's build of this engine needs it; the commands do not use it.
    [[maybe_unused]] IDispatcher& dispatcher_;
    Waits::Signal rx_signal_{0};  // one token for each received byte
    ProgressCallback progress_;
    std::mutex& update_mutex_;
    std::optional<FlashConfig> flash_config_;
    RxQueue rx_queue_;
    std::vector<std::byte> rx_data_;
    uint8_t ack_byte_ = 0;
    bool ack_learned_ = false;
    uint8_t nack_byte_ = 0;
    uint16_t commands_ = 0;
    // 14 for protocol version 0x31, 15 for 0x33: written by Connect, read by no command.
    uint16_t get_variant_ = 0;
    hal::uart::Subscription rx_subscription_;
    hal::uart::IUartDriver::LineSetup saved_setup_;
    uint8_t mcu_id_;
    std::function<void()> first_hook_;
    std::function<void()> second_hook_;
    bool mass_erase_;
    Rate rate_;
    Waits waits_;
    char const* command_name_ = "";

    SessionFacts facts_;
    char const* request_ = "";         // that is in progress, for the facts
    std::optional<uint32_t> address_;  // of that request
    // Where the image is written; nothing while something else is.
    std::optional<uint32_t> image_address_;
    std::chrono::steady_clock::time_point sent_at_;
};

}  // namespace stm32_updater
