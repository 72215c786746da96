#include "runtime/message_helper.h"

#include <fmt/format.h>

#include <array>
#include <iterator>

#include "runtime/bounded_string.h"
#include "runtime/log.h"

namespace {

class DummyListener final : public IListener {
public:
    void OnMessage(std::span<std::byte const>) override {}
};

DummyListener dummy_listener;

using dispatcher::kCommonSubsystem;

// The start of every answer: the header, then which request is answered.
template <size_t Size>
std::array<std::byte, Size> MakeAnswer(MessageId answer, Receiver to, Receiver from,
                                       SubsystemId subsystem, MessageId message)
{
    return {std::byte{kCommonSubsystem}, std::byte{answer}, std::byte{to}, std::byte{from},
            std::byte{subsystem},        std::byte{message}};
}

struct Request {
    Receiver sender;
    SubsystemId subsystem;
    MessageId message;
};

bool HasHeader(std::span<std::byte const> request)
{
    return request.size() >= dispatcher::kHeaderSize;
}

// HasHeader(request)
Request ReadRequest(std::span<std::byte const> request)
{
    return {std::to_integer<Receiver>(request[dispatcher::kSenderOffset]),
            std::to_integer<SubsystemId>(request[dispatcher::kSubsystemOffset]),
            std::to_integer<MessageId>(request[dispatcher::kMessageIdOffset])};
}

}  // namespace

MessageHelper::MessageHelper(IDispatcher& dispatcher)
    : MessageHelper(dispatcher, dispatcher.GetNextDispatcherEndpointId())
{}

MessageHelper::MessageHelper(IDispatcher& dispatcher, Receiver id)
    : MessageHelper(dispatcher, dummy_listener, id, {})
{}

MessageHelper::MessageHelper(IDispatcher& dispatcher, IListener& listener,
                             std::span<std::pair<SubsystemId, MessageId> const> messages)
    : MessageHelper(dispatcher, listener, dispatcher.GetNextDispatcherEndpointId(), messages)
{}

MessageHelper::MessageHelper(IDispatcher& dispatcher, IListener& listener, Receiver id,
                             std::span<std::pair<SubsystemId, MessageId> const> messages)
    : dispatcher_(dispatcher), id_(id), listener_(&listener)
{
    SetHandledMessages(messages);
}

MessageHelper::~MessageHelper()
{
    dispatcher_.ReturnDispatcherEndpointId(id_);
}

void MessageHelper::SetHandledMessages(std::span<std::pair<SubsystemId, MessageId> const> messages)
{
    // First, so that the new registration finds the slot of the old one free.
    cookie_.reset();
    cookie_ = dispatcher_.AddListener(id_, messages, *listener_);
}

void MessageHelper::SendOkResponse(Receiver to, SubsystemId subsystem, MessageId message) const
{
    DoSend(MakeAnswer<6>(dispatcher::kOkResponse, to, id_, subsystem, message));
}

void MessageHelper::SendOkResponse(std::span<std::byte const> const& request) const
{
    if (!HasHeader(request)) {
        return;
    }
    auto const [sender, subsystem, message] = ReadRequest(request);
    SendOkResponse(sender, subsystem, message);
}

void MessageHelper::SendFailResponse(Receiver to, SubsystemId subsystem, MessageId message,
                                     unsigned int code) const
{
    auto answer = MakeAnswer<10>(dispatcher::kFailResponse, to, id_, subsystem, message);
    for (size_t i = 0; i < 4; ++i) {
        answer[6 + i] = static_cast<std::byte>((code >> (8 * i)) & 0xFF);
    }
    DoSend(answer);
}

void MessageHelper::SendFailResponse(std::span<std::byte const> const& request,
                                     unsigned int code) const
{
    if (!HasHeader(request)) {
        return;
    }
    auto const [sender, subsystem, message] = ReadRequest(request);
    SendFailResponse(sender, subsystem, message, code);
}

void MessageHelper::SendSizeError(std::span<std::byte const> const& request, unsigned char first,
                                  unsigned char second) const
{
    if (!HasHeader(request)) {
        return;
    }
    auto const [sender, subsystem, message] = ReadRequest(request);
    auto answer = MakeAnswer<8>(dispatcher::kSizeError, sender, id_, subsystem, message);
    answer[6] = std::byte{first};
    answer[7] = std::byte{second};
    DoSend(answer);
}

void MessageHelper::DoSend(std::span<std::byte const> const& message) const
{
    dispatcher_.SendMessage(message);
}

void MessageHelper::ReportOverflow(SubsystemId subsystem, MessageId message,
                                   std::string_view name) const
{
    etl::string<256> text;
    fmt::format_to(std::back_inserter(text),
                   "Message size overflow, message subsystem/ID {}:{} ({})", subsystem, message,
                   name);
    detail::DoLog(common::log_level_t::kError, text);
}
