#include "runtime/assert_func.h"

#include <gmock/gmock.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <string>

#include "runtime/dispatcher.h"
#include "runtime/logger.h"
#include "tests/runtime/recording_listener.h"

namespace {

class PipeListener : public IListener {
public:
    explicit PipeListener(int fd) : fd_(fd) {}

    void OnMessage(std::span<std::byte const> message) override
    {
        if (write(fd_, message.data(), message.size()) < 0) {
            _exit(1);
        }
    }

private:
    int fd_;
};

// A process that runs into a failed assertion; its log messages come through a pipe, which is
// closed when the process ends.
class AssertingProcess {
public:
    explicit AssertingProcess(char const* expression)
    {
        std::array<int, 2> ends{};
        if (pipe(ends.data()) != 0) {
            return;
        }
        pid_ = fork();
        if (pid_ == 0) {
            close(ends[0]);
            Run(ends[1], expression);
        }
        close(ends[1]);
        read_end_ = ends[0];
    }

    ~AssertingProcess()
    {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        close(read_end_);
    }

    AssertingProcess(AssertingProcess const&) = delete;
    AssertingProcess& operator=(AssertingProcess const&) = delete;

    // Empty when nothing came, nor the end of the process, within the time.
    std::string Read(std::chrono::milliseconds timeout)
    {
        pollfd waiting{read_end_, POLLIN, 0};
        if (poll(&waiting, 1, static_cast<int>(timeout.count())) != 1) {
            return {};
        }
        std::array<char, 512> bytes{};
        auto const count = read(read_end_, bytes.data(), bytes.size());
        return count > 0 ? std::string(bytes.data(), static_cast<size_t>(count)) : "ended";
    }

    bool Lives() { return pid_ > 0 && waitpid(pid_, nullptr, WNOHANG) == 0; }

private:
    [[noreturn]] static void Run(int write_end, char const* expression)
    {
        dispatcher::Dispatcher bus({}, 1);
        PipeListener listener(write_end);
        auto const cookie = bus.AddListener(0, MessageList{{0, 7}}, listener);
        MessageHelper helper(bus);
        logger::Logger const log(helper);
        __assert_func("engine.c", 42, "Run", expression);
    }

    pid_t pid_ = -1;
    int read_end_ = -1;
};

}  // namespace

TEST(AssertFunc, LogsTheAssertionAtLevel3AndNeverReturns)
{
    AssertingProcess process("n < 8");

    EXPECT_EQ(process.Read(std::chrono::seconds(30)),
              std::string("\x00\x07\x00\xEE\x03\x1A", 6) + "Assert: engine.c:42, n < 8");

    // Longer than one turn of its loop.
    EXPECT_EQ(process.Read(std::chrono::milliseconds(1200)), "") << "it logged again or ended";
    EXPECT_TRUE(process.Lives());
}

TEST(AssertFunc, ReportsAnAssertionThatIsTooLongForTheLog)
{
    AssertingProcess process(std::string(260, 'e').c_str());

    EXPECT_EQ(process.Read(std::chrono::seconds(30)),
              std::string("\x00\x07\x00\xEE\x03\x3C", 6) +
                  "Message size overflow, message subsystem/ID 0:7 (LogMessage)");
    EXPECT_TRUE(process.Lives());
}
