// The in-process message bus: it registers listeners and delivers messages to them. message.h
// describes the messages, i_dispatcher.h the bus as an endpoint uses it.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "runtime/endpoint_id_allocator.h"
#include "runtime/i_dispatcher.h"
#include "runtime/task.h"

namespace dispatcher {

// The bus as its owner sees it: an endpoint's view and questions about all endpoints.
class IMasterDispatcher : public IDispatcher {
public:
    // All messages of all subsystems that are set up, in ascending order.
    virtual std::vector<std::pair<SubsystemId, MessageId>> GetAllMessageIds() const = 0;

    // True when a listener was registered for `receiver` and none was unregistered since.
    virtual bool TaskIsAttached(Receiver receiver) const = 0;

    virtual ~IMasterDispatcher() = default;
};

// Holds at most 32 listeners and 8 fast listeners. Sending neither locks nor allocates. Any thread
// may send while listeners come and go; fast listeners must be registered before anyone sends.
class Dispatcher : public IMasterDispatcher {
public:
    // Sets up subsystem 0 and `subsystems`. Endpoint ids below `reserved_ids` are not handed out.
    Dispatcher(std::span<SubsystemId const> subsystems, unsigned char reserved_ids);

    Dispatcher(Dispatcher const&) = delete;
    Dispatcher& operator=(Dispatcher const&) = delete;

    // Makes the messages 0 to `highest_message_id` of `subsystem` known; registrations for it are
    // lost. Must not be called while another thread sends.
    void SetupSubsystem(SubsystemId subsystem, unsigned char highest_message_id);

    Receiver GetNextDispatcherEndpointId() override;
    void ReturnDispatcherEndpointId(Receiver id) override;
    ListenerCookie AddListener(Receiver receiver,
                               std::span<std::pair<SubsystemId, MessageId> const> messages,
                               IListener& listener) override;
    ListenerCookie AddFastListener(Receiver receiver, IFastListener& listener) override;
    void SendMessage(std::span<std::byte const> message) const override;
    void SendFastMessage(Receiver sender, std::span<std::byte const, 2> message) const override;
    std::vector<std::pair<SubsystemId, MessageId>> GetAllMessageIds() const override;
    bool TaskIsAttached(Receiver receiver) const override;

private:
    enum class SlotState : uint8_t { kFree = 0, kActive = 1, kBeingRemoved = 2 };

    // A sender may still look at a slot while it is freed and taken again, so every field is
    // atomic. The state publishes the other two.
    struct ListenerSlot {
        std::atomic<Receiver> receiver{0};
        std::atomic<SlotState> state{SlotState::kFree};
        std::atomic<IListener*> listener{nullptr};

        bool Wants(Receiver destination, Receiver sender) const;
    };

    struct FastListenerSlot {
        Receiver receiver = 0;
        IFastListener* listener = nullptr;
    };

    // Bit k set: listener slot k wants the message.
    using Mask = std::atomic<uint32_t>;
    using MaskTable = std::vector<Mask>;  // indexed by MessageId

    // Null when the message is unknown.
    Mask* FindMask(SubsystemId subsystem, MessageId message) const;

    void RemoveListener(size_t slot_index, Receiver receiver,
                        std::span<std::pair<SubsystemId, MessageId> const> messages);
    void RemoveFastListener(IFastListener const& listener);

    std::array<ListenerSlot, 32> listener_slots_;
    std::vector<std::unique_ptr<MaskTable>> subsystems_;
    std::array<FastListenerSlot, 8> fast_listener_slots_;
    task::scheduler_lock registration_lock_;
    std::array<std::atomic<bool>, 256> attached_{};
    DispatcherEndpointIdAllocator endpoint_ids_;
};

}  // namespace dispatcher
