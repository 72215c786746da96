// One endpoint of the bus: its id, its registration and the standard answers that it sends.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>
#include <utility>

#include "runtime/i_dispatcher.h"

// The dispatcher and the listener must outlive the helper. Every helper takes one listener slot,
// even with an empty message list. Any thread may send.
//
// The destructor first returns the endpoint id to the dispatcher, even one that was passed to the
// constructor, and then ends the registration. A failure to return the id ends the program.
class MessageHelper {
public:
    // Takes a fresh id and no messages. Throws std::bad_optional_access when no id is free.
    explicit MessageHelper(IDispatcher& dispatcher);

    MessageHelper(IDispatcher& dispatcher, Receiver id);

    // Takes a fresh id, as above.
    MessageHelper(IDispatcher& dispatcher, IListener& listener,
                  std::span<std::pair<SubsystemId, MessageId> const> messages);

    MessageHelper(IDispatcher& dispatcher, IListener& listener, Receiver id,
                  std::span<std::pair<SubsystemId, MessageId> const> messages);

    ~MessageHelper();

    MessageHelper(MessageHelper const&) = delete;
    MessageHelper& operator=(MessageHelper const&) = delete;

    // Replaces the registration. If the dispatcher refuses the new one, the endpoint receives
    // nothing; this is not reported.
    void SetHandledMessages(std::span<std::pair<SubsystemId, MessageId> const> messages);

    // Answer the message `message` of `subsystem`. The forms with a request answer its sender and
    // ignore a request without a whole header.
    void SendOkResponse(Receiver to, SubsystemId subsystem, MessageId message) const;
    void SendOkResponse(std::span<std::byte const> const& request) const;
    void SendFailResponse(Receiver to, SubsystemId subsystem, MessageId message,
                          unsigned int code) const;
    void SendFailResponse(std::span<std::byte const> const& request, unsigned int code) const;
    void SendSizeError(std::span<std::byte const> const& request, unsigned char first,
                       unsigned char second) const;

    // Sends `message` as it is, header included: at most 255 bytes.
    void DoSend(std::span<std::byte const> const& message) const;

    // Logs that the message called `name` was too long to be sent.
    void ReportOverflow(SubsystemId subsystem, MessageId message, std::string_view name) const;

private:
    IDispatcher& dispatcher_;
    Receiver id_;
    IListener* listener_;
    ListenerCookie cookie_;
};
