// The test's own serial line: bytes pass both ways unchanged, and a close is seen.
#include "tests/hal/uart/pseudo_terminal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>

namespace hal::uart::test {
namespace {

// Bytes that a terminal in its usual modes would change, swallow or echo.
QByteArray AwkwardBytes()
{
    return QByteArray("\x00\x03\x0A\x0D\x11\x13\x1A\x7F\xFF", 9);
}

class PseudoTerminalTest : public ::testing::Test {
protected:
    PseudoTerminalTest() : port(open(line.Path().toLocal8Bit().constData(), O_RDWR | O_NOCTTY)) {}
    ~PseudoTerminalTest() override
    {
        if (port >= 0) {
            close(port);
        }
    }

    PseudoTerminal line;
    int port;
};

TEST_F(PseudoTerminalTest, CarriesEveryByteFromThePort)
{
    auto const bytes = AwkwardBytes();
    ASSERT_EQ(write(port, bytes.constData(), static_cast<size_t>(bytes.size())), bytes.size());
    EXPECT_EQ(line.Receive(bytes.size()), bytes);
}

TEST_F(PseudoTerminalTest, CarriesEveryByteToThePort)
{
    auto const bytes = AwkwardBytes();
    line.Send(bytes);
    std::array<char, 16> buffer{};
    ASSERT_EQ(read(port, buffer.data(), buffer.size()), bytes.size());
    EXPECT_EQ(QByteArray(buffer.data(), bytes.size()), bytes);
}

TEST_F(PseudoTerminalTest, GivesUpWaitingForBytesThatDoNotCome)
{
    EXPECT_TRUE(line.Receive(1, std::chrono::milliseconds(1)).isEmpty());
}

TEST_F(PseudoTerminalTest, SeesThatThePortIsClosed)
{
    EXPECT_FALSE(line.WaitForClose(std::chrono::milliseconds(1)));
    close(port);
    port = -1;
    EXPECT_TRUE(line.WaitForClose());
}

}  // namespace
}  // namespace hal::uart::test
