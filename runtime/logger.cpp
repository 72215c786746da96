#include "runtime/logger.h"

#include <algorithm>
#include <array>

namespace logger {
namespace {

Logger* active_logger = nullptr;

// The header, then level and text length.
constexpr size_t kTextOffset = dispatcher::kHeaderSize + 2;

// The log's own endpoint, whichever helper carries the line.
constexpr Receiver kLogSender = 0xEE;

}  // namespace

Logger::Logger(MessageHelper& helper) : helper_(helper)
{
    if (active_logger == nullptr) {
        active_logger = this;
    }
}

Logger::~Logger()
{
    active_logger = nullptr;
}

void Logger::DoLog(common::log_level_t level, std::string_view text)
{
    if (active_logger != nullptr) {
        active_logger->Send(level, text);
    }
}

void Logger::Send(common::log_level_t level, std::string_view text) const
{
    std::array<std::byte, dispatcher::kMaxMessageSize> message{
        std::byte{dispatcher::kCommonSubsystem}, std::byte{dispatcher::kLogMessage},
        std::byte{dispatcher::kAnyReceiver}, std::byte{kLogSender}};
    if (text.size() + kTextOffset > message.size()) {
        helper_.ReportOverflow(dispatcher::kCommonSubsystem, dispatcher::kLogMessage, "LogMessage");
        return;
    }
    message[4] = static_cast<std::byte>(level);
    message[5] = static_cast<std::byte>(text.size());
    std::ranges::copy(std::as_bytes(std::span(text)), message.begin() + kTextOffset);
    helper_.DoSend(std::span(message).first(kTextOffset + text.size()));
}

}  // namespace logger

namespace detail {

void DoLog(common::log_level_t level, std::string_view text)
{
    logger::Logger::DoLog(level, text);
}

}  // namespace detail
