// The line under the simulated ports: bytes pass both ways unchanged, and a client's speed and its
// end are seen.
#include "simulator/host/pseudo_terminal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <termios.h>
#include <unistd.h>

#include <array>

namespace simulator {
namespace {

// Bytes that a terminal in its usual modes would change, swallow or echo.
std::string const kAwkwardBytes("\x00\x03\x0A\x0D\x11\x13\x1A\x7F\xFF", 9);

class PseudoTerminalTest : public testing::Test {
protected:
    PseudoTerminalTest() : client(open(line.Path().c_str(), O_RDWR | O_NOCTTY)) {}
    ~PseudoTerminalTest() override { CloseClient(); }

    void CloseClient()
    {
        if (client >= 0) {
            close(client);
        }
        client = -1;
    }

    PseudoTerminal line;
    int client;
};

TEST_F(PseudoTerminalTest, CarriesEveryByteBothWays)
{
    ASSERT_EQ(write(client, kAwkwardBytes.data(), kAwkwardBytes.size()), 9);
    EXPECT_EQ(line.Receive(9), kAwkwardBytes);

    line.Send(kAwkwardBytes);
    std::array<char, 16> buffer{};
    ASSERT_EQ(read(client, buffer.data(), buffer.size()), 9);
    EXPECT_EQ(std::string(buffer.data(), 9), kAwkwardBytes);
}

TEST_F(PseudoTerminalTest, GivesUpWaitingForBytesThatDoNotCome)
{
    EXPECT_EQ(line.Receive(1, std::chrono::milliseconds(1)), "");
}

TEST_F(PseudoTerminalTest, SeesTheSpeedThatTheClientSets)
{
    termios modes{};
    ASSERT_EQ(tcgetattr(client, &modes), 0);
    cfsetspeed(&modes, B115200);
    ASSERT_EQ(tcsetattr(client, TCSANOW, &modes), 0);
    EXPECT_EQ(line.Speed(), 115200U);
}

TEST_F(PseudoTerminalTest, SeesThatTheClientHasGoneUnlessTheLineIsHeldOpen)
{
    EXPECT_FALSE(line.WaitForClose(std::chrono::milliseconds(1)));
    CloseClient();
    EXPECT_TRUE(line.WaitForClose());
    line.HoldOpen();
    EXPECT_FALSE(line.WaitForClose(std::chrono::milliseconds(1)));
}

}  // namespace
}  // namespace simulator
