#include "runtime/assert_func.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <string>

#include "runtime/dispatcher.h"
#include "runtime/logger.h"
#include "tests/runtime/recording_listener.h"

namespace {

// Prints the level and the text of each line of the log at once.
class PrintingListener : public IListener {
public:
    void OnMessage(std::span<std::byte const> message) override
    {
        auto line = std::to_string(std::to_integer<int>(message[4])) + ' ';
        for (auto const byte : message.subspan(6)) {
            line += static_cast<char>(byte);
        }
        line += '\n';
        if (write(STDERR_FILENO, line.data(), line.size()) < 0) {
            _exit(1);
        }
    }
};

// Runs into a failed assertion, with an alarm after more than one turn of its loop.
void Fail(std::string const& expression)
{
    dispatcher::Dispatcher bus({}, 1);
    PrintingListener listener;
    auto const cookie = bus.AddListener(0, MessageList{{0, 7}}, listener);
    MessageHelper helper(bus);
    logger::Logger const log(helper);
    itimerval const later{.it_interval = {}, .it_value = {.tv_sec = 1, .tv_usec = 200'000}};
    setitimer(ITIMER_REAL, &later, nullptr);
    __assert_func("engine.c", 42, "Run", expression.c_str());
}

}  // namespace

TEST(AssertFuncDeathTest, LogsTheAssertionOnceAtLevel3AndNeverReturns)
{
    auto const killed_by_the_alarm = testing::KilledBySignal(SIGALRM);
    EXPECT_EXIT(Fail("n < 8"), killed_by_the_alarm, testing::Eq("3 Assert: engine.c:42, n < 8\n"));
    EXPECT_EXIT(Fail(std::string(260, 'e')), killed_by_the_alarm,
                testing::Eq("3 Message size overflow, message subsystem/ID 0:7 (LogMessage)\n"));
}
