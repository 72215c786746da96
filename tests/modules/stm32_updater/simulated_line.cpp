#include "tests/modules/stm32_updater/simulated_line.h"

#include <utility>

#include "modules/stm32_updater/limits.h"

namespace stm32_updater::test {

void SimulatedLine::SetReset(bool asserted)
{
    if (std::exchange(in_reset_, asserted) && !asserted) {
        unit_.Reset();
        late_.clear();
    }
}

void SimulatedLine::Transmit(std::span<std::byte const> data)
{
    Deliver(std::exchange(late_, {}));
    if (unit_.HasLeft()) {
        return;
    }
    for (auto const& answer : unit_.Receive(data)) {
        if (answer.busy > kExtendedEraseTimeout) {
            late_.insert(late_.end(), answer.bytes.begin(), answer.bytes.end());
        } else {
            Deliver(answer.bytes);
        }
    }
}

void SimulatedLine::Deliver(std::vector<std::byte> const& bytes) const
{
    for (auto const value : bytes) {
        if (callback_) {
            callback_(value);
        }
    }
}

hal::uart::Subscription SimulatedLine::SubscribeOnRx(std::function<void(std::byte)> const& callback)
{
    callback_ = callback;
    return {new int(0), [this](int* handle) {
                callback_ = nullptr;
                delete handle;
            }};
}

}  // namespace stm32_updater::test
