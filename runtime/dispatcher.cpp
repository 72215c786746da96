#include "runtime/dispatcher.h"

#include <algorithm>
#include <bit>
#include <functional>
#include <mutex>
#include <utility>

namespace dispatcher {
namespace {

// The device firmware's subsystems 0 to 12.
constexpr std::array<unsigned char, 13> kHighestMessageIds{9, 27, 4,  4,  3,  43, 9,
                                                           8, 29, 12, 99, 24, 24};
constexpr unsigned char kHighestMessageIdElsewhere = 43;

constexpr unsigned char GetHighestMessageId(SubsystemId subsystem)
{
    return subsystem < kHighestMessageIds.size() ? kHighestMessageIds[subsystem]
                                                 : kHighestMessageIdElsewhere;
}

constexpr uint32_t GetSlotBit(size_t slot_index)
{
    return uint32_t{1} << slot_index;
}

}  // namespace

// Every atomic access has the default, sequentially consistent order. A sender that sees a slot as
// active therefore also sees its receiver and its listener, without a separate fence.

bool Dispatcher::ListenerSlot::Wants(Receiver destination, Receiver sender) const
{
    if (state.load() != SlotState::kActive) {
        return false;
    }
    Receiver const own = receiver.load();
    if (own == sender) {
        return false;
    }
    return destination == kAnyReceiver || own == destination || own == kAnyReceiver;
}

Dispatcher::Dispatcher(std::span<SubsystemId const> subsystems, unsigned char reserved_ids)
    : endpoint_ids_(reserved_ids)
{
    SetupSubsystem(kCommonSubsystem, GetHighestMessageId(kCommonSubsystem));
    for (auto const subsystem : subsystems) {
        SetupSubsystem(subsystem, GetHighestMessageId(subsystem));
    }
}

void Dispatcher::SetupSubsystem(SubsystemId subsystem, unsigned char highest_message_id)
{
    if (subsystems_.size() <= subsystem) {
        subsystems_.resize(size_t{subsystem} + 1);
    }
    subsystems_[subsystem] = std::make_unique<MaskTable>(size_t{highest_message_id} + 1);
}

Receiver Dispatcher::GetNextDispatcherEndpointId()
{
    return endpoint_ids_.GetNextDispatcherEndpointId();
}

void Dispatcher::ReturnDispatcherEndpointId(Receiver id)
{
    endpoint_ids_.ReturnDispatcherEndpointId(id);
}

ListenerCookie Dispatcher::AddListener(Receiver receiver,
                                       std::span<std::pair<SubsystemId, MessageId> const> messages,
                                       IListener& listener)
{
    std::lock_guard const guard(registration_lock_);
    auto const slot = std::ranges::find_if(listener_slots_, [](ListenerSlot const& candidate) {
        return candidate.state.load() == SlotState::kFree;
    });
    if (slot == listener_slots_.end()) {
        return {};
    }
    auto const slot_index = static_cast<size_t>(slot - listener_slots_.begin());
    // All memory is taken before the listener becomes visible: without a cookie, nobody could
    // unregister it.
    std::function<void(int*)> unregister =
        [this, slot_index, receiver, registered = std::vector(messages.begin(), messages.end())](
            int*) { RemoveListener(slot_index, receiver, registered); };
    slot->receiver.store(receiver);
    slot->listener.store(&listener);
    slot->state.store(SlotState::kActive);

    for (auto const& [subsystem, message] : messages) {
        auto* const mask = FindMask(subsystem, message);
        if (mask == nullptr) {
            return {};
        }
        mask->fetch_or(GetSlotBit(slot_index));
    }
    if (receiver != kAnyReceiver) {
        attached_[receiver].store(true);
    }
    return CreateListenerCookie(std::move(unregister));
}

void Dispatcher::RemoveListener(size_t slot_index, Receiver receiver,
                                std::span<std::pair<SubsystemId, MessageId> const> messages)
{
    std::lock_guard const guard(registration_lock_);
    auto& slot = listener_slots_[slot_index];
    slot.state.store(SlotState::kBeingRemoved);
    for (auto const& [subsystem, message] : messages) {
        // The subsystem may have been set up again since then, with fewer messages.
        if (auto* const mask = FindMask(subsystem, message)) {
            mask->fetch_and(~GetSlotBit(slot_index));
        }
    }
    // The flag is not a count: the first of several listeners of one receiver clears it.
    attached_[receiver].store(false);
    slot.state.store(SlotState::kFree);
}

ListenerCookie Dispatcher::AddFastListener(Receiver receiver, IFastListener& listener)
{
    std::lock_guard const guard(registration_lock_);
    auto const find = [this](IFastListener const* wanted) {
        return std::ranges::find(fast_listener_slots_, wanted, &FastListenerSlot::listener);
    };
    if (find(&listener) != fast_listener_slots_.end()) {
        return {};
    }
    auto const slot = find(nullptr);
    if (slot == fast_listener_slots_.end()) {
        return {};
    }
    *slot = {receiver, &listener};
    return CreateListenerCookie([this, &listener](int*) { RemoveFastListener(listener); });
}

void Dispatcher::RemoveFastListener(IFastListener const& listener)
{
    std::lock_guard const guard(registration_lock_);
    for (auto& slot : fast_listener_slots_) {
        if (slot.listener == &listener) {
            slot.listener = nullptr;
        }
    }
}

void Dispatcher::SendMessage(std::span<std::byte const> message) const
{
    if (message.size() < kHeaderSize) {
        return;
    }
    auto const* const mask = FindMask(std::to_integer<SubsystemId>(message[kSubsystemOffset]),
                                      std::to_integer<MessageId>(message[kMessageIdOffset]));
    if (mask == nullptr) {
        return;
    }
    auto const destination = std::to_integer<Receiver>(message[kDestinationOffset]);
    auto const sender = std::to_integer<Receiver>(message[kSenderOffset]);
    for (uint32_t waiting = mask->load(); waiting != 0; waiting &= waiting - 1) {
        auto const& slot = listener_slots_[static_cast<size_t>(std::countr_zero(waiting))];
        if (slot.Wants(destination, sender)) {
            slot.listener.load()->OnMessage(message);
        }
    }
}

void Dispatcher::SendFastMessage(Receiver sender, std::span<std::byte const, 2> message) const
{
    for (auto const& slot : fast_listener_slots_) {
        if (slot.listener != nullptr && slot.receiver != sender) {
            slot.listener->OnFastMessage(sender, message);
        }
    }
}

std::vector<std::pair<SubsystemId, MessageId>> Dispatcher::GetAllMessageIds() const
{
    std::vector<std::pair<SubsystemId, MessageId>> ids;
    for (size_t subsystem = 0; subsystem < subsystems_.size(); ++subsystem) {
        auto const& table = subsystems_[subsystem];
        for (size_t message = 0; table != nullptr && message < table->size(); ++message) {
            ids.emplace_back(static_cast<SubsystemId>(subsystem), static_cast<MessageId>(message));
        }
    }
    return ids;
}

bool Dispatcher::TaskIsAttached(Receiver receiver) const
{
    return attached_[receiver].load();
}

Dispatcher::Mask* Dispatcher::FindMask(SubsystemId subsystem, MessageId message) const
{
    if (subsystem >= subsystems_.size() || subsystems_[subsystem] == nullptr) {
        return nullptr;
    }
    auto& table = *subsystems_[subsystem];
    return message < table.size() ? &table[message] : nullptr;
}

}  // namespace dispatcher
