// The message bus as an endpoint sees it: ids, registration, sending. The bus itself is in
// dispatcher.h; message_helper.h is a convenience for one endpoint.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <utility>

#include "runtime/message.h"

class IListener {
public:
    // Called on the sender's thread; `message` is valid during the call only.
    virtual void OnMessage(std::span<std::byte const> message) = 0;

protected:
    ~IListener() = default;
};

class IFastListener {
public:
    // Called on the sender's thread; `message` is valid during the call only.
    virtual void OnFastMessage(Receiver sender, std::span<std::byte const, 2> message) = 0;

protected:
    ~IFastListener() = default;
};

// One registration; destroying the cookie ends it. An empty cookie means that there is none. The
// pointer is only a mark and must never be dereferenced.
using ListenerCookie = std::unique_ptr<int, std::function<void(int*)>>;

// A cookie that calls `unregister` once, when it is destroyed.
ListenerCookie CreateListenerCookie(std::function<void(int*)> unregister);

// Must outlive every cookie that it returned; owns no listener. Any thread may send while listeners
// come and go, but fast listeners must be registered before anyone sends to them. Registering and
// unregistering are not thread-safe on the desktop: callers exclude each other.
class IDispatcher {
public:
    // The lowest free endpoint id. Throws std::bad_optional_access when all are taken.
    virtual Receiver GetNextDispatcherEndpointId() = 0;
    virtual void ReturnDispatcherEndpointId(Receiver id) = 0;

    // `listener` receives those of the given messages that are for `receiver` or for everyone,
    // except those that `receiver` sent; with receiver 0 it receives messages for anyone. It must
    // stay alive until the cookie is destroyed and every send that began before has returned. The
    // cookie is empty when no slot is free or a message is unknown; in the latter case the slot
    // stays taken for good and the messages before the unknown one stay registered.
    virtual ListenerCookie AddListener(Receiver receiver,
                                       std::span<std::pair<SubsystemId, MessageId> const> messages,
                                       IListener& listener) = 0;

    // `listener` receives every fast message except those of `receiver`. The cookie is empty when
    // no slot is free or the listener is already registered.
    virtual ListenerCookie AddFastListener(Receiver receiver, IFastListener& listener) = 0;

    // Calls the listeners before it returns. A message that is too short, unknown or without a
    // listener is dropped.
    virtual void SendMessage(std::span<std::byte const> message) const = 0;
    virtual void SendFastMessage(Receiver sender, std::span<std::byte const, 2> message) const = 0;

protected:
    ~IDispatcher() = default;
};
