// Runs a whole session (connect, read the OTP area, update, restart) with a unit in the STM32
// bootloader that answers any bytes. The first byte chooses between mass erase and pages. Then, for
// each transmission of the engine, one byte counts the bytes of the answer, which follow. When the
// input has run out, the unit is silent.
//
// Time is virtual: waiting for a silent unit takes none.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>

#include "fuzz/require.h"
#include "modules/stm32_updater/limits.h"
#include "modules/stm32_updater/stm32_uart_updater.h"
#include "runtime/dispatcher.h"
#include "tests/hal/uart/uart_driver_stub.h"
#include "tests/modules/stm32_updater/virtual_time.h"

namespace {

class RandomUnit final : public hal::uart::test::UartDriverStub {
public:
    explicit RandomUnit(std::span<uint8_t const> answers) : answers_(answers) {}

    void Setup(Rate /*rate*/, Settings /*settings*/) override {}
    LineSetup GetSetup() const override { return {Rate::kDesktop, Settings::k8E1}; }

    void Transmit(std::span<std::byte const> data) override
    {
        Require(!data.empty() && data.size() <= 4 * stm32_updater::kMaxBlock,
                "the engine sends something, and no more than a list of all pages");
        if (answers_.empty() || !callback_) {
            return;
        }
        auto const count = std::min<size_t>(answers_[0], answers_.size() - 1);
        for (auto const value : answers_.subspan(1, count)) {
            callback_(std::byte{value});
        }
        answers_ = answers_.subspan(1 + count);
    }

    hal::uart::Subscription SubscribeOnRx(std::function<void(std::byte)> const& callback) override
    {
        callback_ = callback;
        return {};
    }

private:
    std::span<uint8_t const> answers_;
    std::function<void(std::byte)> callback_;
};

constexpr std::array<std::byte, 1032> kImage{};
constexpr unsigned kOtpAddress = 0x1FFF7000;
constexpr unsigned long kOtpSize = 512;
constexpr unsigned char kMcuId = 1;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    if (size == 0) {
        return 0;
    }
    using stm32_updater::kFlashStart;
    RandomUnit unit(std::span(data, size).subspan(1));
    dispatcher::Dispatcher dispatcher({}, 1);
    std::mutex mutex;
    stm32_updater::test::VirtualTime time;
    stm32_updater::Stm32UartUpdater updater(
        [](bool) {}, [](bool) {}, unit, dispatcher, mutex, kMcuId, (data[0] & 1) != 0, [] {}, [] {},
        hal::uart::IUartDriver::Rate::kBootloader, time.GetWaits());
    // Each step runs even if the one before it failed.
    updater.ConnectDevice();
    auto const otp = updater.GetOtp(kOtpAddress, kOtpSize);
    Require(otp.empty() || otp.size() == kOtpSize, "the OTP area is read completely or not at all");
    unsigned last = 0;
    auto const progress = [&last](IFwUpdater::State, unsigned percent) { last = percent; };
    updater.Update(kImage, progress, kFlashStart);
    Require(last <= 100, "no percentage is above 100");
    updater.DisconnectDevice();
    updater.ExitDfu(kFlashStart, kFlashStart);
    return 0;
}
