// What the tests of the UART engine need around it: a scripted line, virtual time, the message bus
// with a listener for the log, hooks and pauses that appear among the line's events, and the
// scripts of successful commands.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "modules/stm32_updater/stm32_uart_updater.h"
#include "runtime/dispatcher.h"
#include "runtime/logger.h"
#include "tests/modules/stm32_updater/scripted_uart.h"
#include "tests/modules/stm32_updater/virtual_time.h"

namespace stm32_updater::test {

struct LogLine {
    int level;
    std::string text;
    bool operator==(LogLine const&) const = default;
};

// Records everything that is logged while it exists. One at a time.
class LogRecorder final : IListener {
public:
    explicit LogRecorder(dispatcher::Dispatcher& dispatcher);
    std::vector<LogLine> const& Lines() const { return lines_; }

private:
    void OnMessage(std::span<std::byte const> message) override;

    std::vector<LogLine> lines_;
    MessageHelper sender_;
    logger::Logger logger_;
    ListenerCookie cookie_;
};

// What `act` prints to standard output.
std::string Printed(std::function<void()> const& act);

// "\nstm32_uart_updater.cpp:LINE MESSAGE" and nothing else.
::testing::Matcher<std::string> IsFailure(std::string const& message);

struct Options {
    uint8_t mcu_id = 0x05;
    bool mass_erase = false;
    hal::uart::IUartDriver::Rate rate = hal::uart::IUartDriver::Rate::kBootloader;
    bool real_waits = false;  // for bytes; pauses cost no time
};

// The command codes of a Get answer in the order of real chips' bootloaders.
inline constexpr std::initializer_list<int> kExtendedEraseCommands = {
    0x00, 0x01, 0x02, 0x11, 0x21, 0x31, 0x44, 0x63, 0x73, 0x82, 0x92};
inline constexpr std::initializer_list<int> kEraseCommands = {0x00, 0x01, 0x02, 0x11, 0x21,
                                                              0x31, 0x43, 0x63, 0x73};

class UpdaterTest : public ::testing::Test {
protected:
    UpdaterTest() { Rebuild(); }

    // A new engine on the same line.
    void Rebuild(Options options = {});

    // Scripts of single commands that succeed, with the ACK byte 0x79.
    void ExpectSync() { uart.Expect({0x7F}).Answer({0x79}); }
    void ExpectGet(std::initializer_list<int> commands = kExtendedEraseCommands,
                   int version = 0x31);
    void ExpectGetId(int high = 0x04, int low = 0x69);
    void ExpectGetVersion();
    void ExpectExtendedErase(std::initializer_list<int> pages_frame);
    // One Write Memory; `address` as its five bytes. `data` is at most 256 bytes.
    void ExpectWrite(Bytes const& address, Bytes const& data);
    void ExpectWrite(std::initializer_list<int> address, Bytes const& data)
    {
        ExpectWrite(ToBytes(address), data);
    }
    // The same up to and including the data, whose answer is left to the caller.
    Exchange& ExpectWriteUpToData(Bytes const& address, Bytes const& data);

    // Opens a session: the script of ConnectDevice, and the call.
    void Connect(std::initializer_list<int> commands = kExtendedEraseCommands, int id_low = 0x69);

    // Update with a callback that notes "progress STATE PERCENT" in the events.
    bool Update(Bytes const& image, unsigned address = 0x08000000);

    // An update that has to fail with exactly this message, printed and logged once.
    void ExpectUpdateFails(Bytes const& image, std::string const& message,
                           unsigned address = 0x08000000);

    // The events that begin with `prefix`, in order.
    std::vector<std::string> EventsWith(std::string const& prefix) const;

    // The trailer that the engine makes of the image's last eight bytes.
    static Bytes TrailerOf(Bytes const& image, int mcu_id = 0x05);

    ScriptedUart uart;
    VirtualTime time;
    dispatcher::Dispatcher bus{{}, 1};
    LogRecorder log{bus};
    std::mutex update_mutex;
    std::unique_ptr<Stm32UartUpdater> updater;
};

#define EXPECT_SCRIPT_DONE() EXPECT_TRUE(uart.Done()) << "script: " << uart.Rest()

}  // namespace stm32_updater::test
