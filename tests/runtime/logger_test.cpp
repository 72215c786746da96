#include "runtime/logger.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "runtime/dispatcher.h"
#include "tests/runtime/recording_listener.h"

using common::log_level_t;
using dispatcher::Dispatcher;
using logger::Logger;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

std::vector<uint8_t> LogMessage(uint8_t level, uint8_t length, std::string const& text)
{
    std::vector<uint8_t> message{0x00, 0x07, 0x00, 0xEE, level, length};
    std::ranges::copy(text, std::back_inserter(message));
    return message;
}

class LoggerTest : public testing::Test {
protected:
    Dispatcher bus_{{}, 1};
    RecordingListener log_;
    ListenerCookie cookie_ = bus_.AddListener(0, MessageList{{0, 7}}, log_);
    MessageHelper helper_{bus_};
};

}  // namespace

TEST_F(LoggerTest, DropsLinesWithoutAnActiveLogger)
{
    detail::DoLog(log_level_t::kError, "lost");
    Logger::DoLog(log_level_t::kError, std::string(300, 'x'));

    EXPECT_THAT(log_.heard, IsEmpty());
}

TEST_F(LoggerTest, SendsALineOfAnyLevelAsABroadcastOfTheLogsOwnEndpoint)
{
    Logger log(helper_);

    detail::DoLog(log_level_t::kError, "Hi!");
    log.DoLog(static_cast<log_level_t>(0xFF), "");

    EXPECT_THAT(log_.heard,
                ElementsAre(ElementsAre(0x00, 0x07, 0x00, 0xEE, 0x03, 0x03, 'H', 'i', '!'),
                            ElementsAre(0x00, 0x07, 0x00, 0xEE, 0xFF, 0x00)));
}

TEST_F(LoggerTest, SendsATextOf249CharactersAndReportsALongerOneEvenIfItIsSuchAReport)
{
    Logger const log(helper_);
    std::string const text(249, 't');

    detail::DoLog(log_level_t::kError, text);
    detail::DoLog(static_cast<log_level_t>(1), text + 't');
    helper_.ReportOverflow(1, 2, std::string(1000, 'n'));

    auto const report =
        LogMessage(0x03, 60, "Message size overflow, message subsystem/ID 0:7 (LogMessage)");
    EXPECT_THAT(log_.heard, ElementsAre(LogMessage(0x03, 0xF9, text), report, report));
}

TEST_F(LoggerTest, TheFirstLoggerIsActiveUntilAnyLoggerIsDestroyed)
{
    Dispatcher other_bus({}, 1);
    RecordingListener other_log;
    auto const other_cookie = other_bus.AddListener(0, MessageList{{0, 7}}, other_log);
    MessageHelper other_helper(other_bus);
    std::optional<Logger> first(helper_);
    std::optional<Logger> second(other_helper);
    auto const log = [] { detail::DoLog(log_level_t::kError, "x"); };

    log();
    EXPECT_THAT(log_.heard, SizeIs(1));

    second.reset();
    log();
    EXPECT_THAT(log_.heard, SizeIs(1)) << "the first one is no longer active";

    Logger const third(other_helper);
    log();
    EXPECT_THAT(log_.heard, SizeIs(1));
    EXPECT_THAT(other_log.heard, SizeIs(1)) << "a new one is";
}
