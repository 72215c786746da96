// The message bus as an endpoint sees it: ids, registration, sending. The bus itself is
// dispatcher.h; message_helper.h makes the use by one endpoint easier.
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

// One registration; destroying it ends the registration. An empty cookie tells that there is none.
// The pointer is a mark, never to be followed.
using ListenerCookie = std::unique_ptr<int, std::function<void(int*)>>;

// A cookie that calls `unregister` once, when it is destroyed.
ListenerCookie CreateListenerCookie(std::function<void(int*)> unregister);

// Must outlive every cookie it gave out. Owns no listener. Sending is possible on any thread at any
// time; registering and unregistering need their callers' own exclusion on the desktop.
class IDispatcher {
public:
    // A free endpoint id, the lowest one. Throws std::bad_optional_access when all are taken.
    virtual Receiver GetNextDispatcherEndpointId() = 0;
    virtual void ReturnDispatcherEndpointId(Receiver id) = 0;

    // `listener` hears the given messages that are for `receiver` or for everyone, except those
    // that `receiver` sent; with receiver 0 it hears messages for anyone. It must stay alive until
    // the cookie is destroyed and no send that began before is under way. The cookie is empty when
    // no slot was free or a message is unknown; in the latter case the slot stays taken for good
    // and the messages before the unknown one stay registered.
    virtual ListenerCookie AddListener(Receiver receiver,
                                       std::span<std::pair<SubsystemId, MessageId> const> messages,
                                       IListener& listener) = 0;

    // `listener` hears every fast message except those of `receiver`. The cookie is empty when no
    // slot was free or the listener is registered already.
    virtual ListenerCookie AddFastListener(Receiver receiver, IFastListener& listener) = 0;

    // Calls the listeners before it returns. A message that is too short, unknown or wanted by
    // nobody vanishes.
    virtual void SendMessage(std::span<std::byte const> message) const = 0;
    virtual void SendFastMessage(Receiver sender, std::span<std::byte const, 2> message) const = 0;

protected:
    ~IDispatcher() = default;
};
