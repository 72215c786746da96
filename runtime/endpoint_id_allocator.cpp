#include "runtime/endpoint_id_allocator.h"

DispatcherEndpointIdAllocator::DispatcherEndpointIdAllocator(unsigned char reserved_ids)
{
    for (Receiver const id : std::array<Receiver, 3>{0, 19, 200}) {
        Take(id);
    }
    for (size_t id = 238; id < kIds; ++id) {
        Take(id);
    }
    for (size_t id = 1; id < reserved_ids; ++id) {
        Take(id);
    }
}

Receiver DispatcherEndpointIdAllocator::GetNextDispatcherEndpointId()
{
    // NOLINTNEXTLINE(bugprone-unchecked-optional-access): this form throws on purpose
    return TryGetNextDispatcherEndpointId().value();
}

std::optional<Receiver> DispatcherEndpointIdAllocator::TryGetNextDispatcherEndpointId()
{
    std::lock_guard const guard(mutex_);
    for (size_t id = 0; id < kIds; ++id) {
        if (!IsTaken(id)) {
            Take(id);
            return static_cast<Receiver>(id);
        }
    }
    return std::nullopt;
}

void DispatcherEndpointIdAllocator::ReturnDispatcherEndpointId(Receiver id)
{
    std::lock_guard const guard(mutex_);
    taken_[id >> 3] &= ~Bit(id);
}
