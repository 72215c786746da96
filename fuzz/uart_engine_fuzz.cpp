// Any bytes as what a unit in the STM32 bootloader answers to a whole session: connect, read the
// OTP area, update, restart. The first byte chooses between mass erase and pages; then, for each
// transmission of the engine, one byte counts the bytes that come in answer, and these follow. When
// they have run out, the unit is silent.
//
// The engine's delays and waits are replaced by ones that end at once (CMakeLists.txt), so that a
// silent unit costs no time.
#include <QDeadlineTimer>
#include <QSemaphore>
#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>

#include "fuzz/require.h"
#include "modules/stm32_updater/stm32_uart_updater.h"
#include "runtime/dispatcher.h"

extern "C" {

// The linker's names for kelvane::time::delay and for the two forms of QSemaphore::tryAcquire.
void __wrap__ZN7kelvane4time5delayENSt6chrono8durationIjSt5ratioILl1ELl1000000EEEE(
    std::chrono::duration<uint32_t, std::micro> /*duration*/)
{}

bool __real__ZN10QSemaphore10tryAcquireEii(QSemaphore* semaphore, int n, int timeout);

bool __wrap__ZN10QSemaphore10tryAcquireEii(QSemaphore* semaphore, int n, int /*timeout*/)
{
    return __real__ZN10QSemaphore10tryAcquireEii(semaphore, n, 0);
}

#if QT_VERSION >= QT_VERSION_CHECK(6, 6, 0)
bool __real__ZN10QSemaphore10tryAcquireEi14QDeadlineTimer(QSemaphore* semaphore, int n,
                                                          QDeadlineTimer timer);

bool __wrap__ZN10QSemaphore10tryAcquireEi14QDeadlineTimer(QSemaphore* semaphore, int n,
                                                          QDeadlineTimer /*timer*/)
{
    return __real__ZN10QSemaphore10tryAcquireEi14QDeadlineTimer(semaphore, n, QDeadlineTimer(0));
}
#endif
}

namespace {

class RandomUnit final : public hal::uart::IUartDriver {
public:
    explicit RandomUnit(std::span<uint8_t const> answers) : answers_(answers) {}

    void Setup(Rate /*rate*/, Settings /*settings*/) override {}
    LineSetup GetSetup() const override { return {Rate::kDesktop, Settings::k8E1}; }

    void Transmit(std::span<std::byte const> data) override
    {
        Require(!data.empty() && data.size() <= 1024,
                "the engine sends something, and not at length");
        if (answers_.empty() || !callback_) {
            return;
        }
        auto const count = std::min<size_t>(answers_[0], answers_.size() - 1);
        for (auto const value : answers_.subspan(1, count)) {
            callback_(std::byte{value});
        }
        answers_ = answers_.subspan(1 + count);
    }

    uint32_t TransmitHighPriority(std::span<std::byte const, 2> /*data*/) override { return 0; }
    void TransmitBreak() override {}

    hal::uart::Subscription SubscribeOnRx(std::function<void(std::byte)> const& callback) override
    {
        callback_ = callback;
        return {};
    }
    hal::uart::Subscription SubscribeOnError(std::function<void(unsigned)> const&) override
    {
        return {};
    }
    hal::uart::Subscription SubscribeOnBreak(std::function<void()> const&) override { return {}; }
    hal::uart::Subscription SubscribeOnTransmitComplete(std::function<void()> const&) override
    {
        return {};
    }
    bool TransmitterActive() const override { return false; }

private:
    std::span<uint8_t const> answers_;
    std::function<void(std::byte)> callback_;
};

constexpr std::array<std::byte, 1032> kImage{};
constexpr unsigned kFlash = 0x08000000;
constexpr unsigned kOtpAddress = 0x1FFF7000;
constexpr unsigned long kOtpSize = 512;
constexpr unsigned char kMcuId = 1;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    if (size == 0) {
        return 0;
    }
    RandomUnit unit(std::span(data, size).subspan(1));
    dispatcher::Dispatcher dispatcher({}, 1);
    std::mutex mutex;
    stm32_updater::Stm32UartUpdater updater([](bool) {}, [](bool) {}, unit, dispatcher, mutex,
                                            kMcuId, (data[0] & 1) != 0);
    // Each step is tried whatever became of the one before it.
    updater.ConnectDevice();
    auto const otp = updater.GetOtp(kOtpAddress, kOtpSize);
    Require(otp.empty() || otp.size() == kOtpSize, "the OTP area comes whole or not at all");
    unsigned last = 0;
    auto const progress = [&last](IFwUpdater::State, unsigned percent) { last = percent; };
    updater.Update(kImage, progress, kFlash);
    Require(last <= 100, "no percentage beyond 100");
    updater.DisconnectDevice();
    updater.ExitDfu(kFlash, kFlash);
    return 0;
}
