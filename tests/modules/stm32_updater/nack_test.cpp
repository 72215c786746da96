// How often a block is repeated that the unit refuses: ten times, whichever steps it refuses. That
// eleven refusals of one step end the update is in the fault matrix.
#include <utility>

#include "tests/modules/stm32_updater/updater_fixture.h"

namespace stm32_updater::test {
namespace {

using ::testing::IsEmpty;

enum Step { kCommand, kAddress, kData };

class NackTest : public UpdaterTest {
protected:
    // A unit that is erased as a whole, up to and including its erase.
    void ExpectStart()
    {
        Rebuild({.mass_erase = true});
        Connect();
        ExpectGetVersion();
        ExpectExtendedErase({0xFF, 0xFF, 0x00});
    }

    // The first block of the image, refused `count` times at `step`.
    void ExpectRefusals(Step step, int count)
    {
        for (int i = 0; i < count; ++i) {
            if (step == kData) {
                ExpectWriteUpToData(ToBytes(kFirstAddress), First()).Answer({0x1F});
                continue;
            }
            auto& command = uart.Expect({0x31, 0xCE});
            if (step == kCommand) {
                command.Answer({0x1F});
            } else {
                command.Answer({0x79});
                uart.Expect(kFirstAddress).Answer({0x1F});
            }
        }
    }

    Bytes First() const { return Slice(image, 0, 8); }

    static constexpr std::initializer_list<int> kFirstAddress = {0x08, 0x00, 0x00, 0x00, 0x08};
    Bytes const image = PatternImage(16);
};

TEST_F(NackTest, TheTenthRefusalOfABlockIsRepeatedAndTheEleventhEndsTheUpdate)
{
    struct {
        char const* name;
        std::vector<std::pair<Step, int>> refusals;
        bool succeeds;
    } const rows[] = {
        {"ten commands", {{kCommand, 10}}, true},
        {"ten addresses", {{kAddress, 10}}, true},
        {"ten times data", {{kData, 10}}, true},
        {"data, then a command", {{kData, 10}, {kCommand, 1}}, false},
        {"data, then an address", {{kData, 10}, {kAddress, 1}}, false},
        {"commands, then data", {{kCommand, 10}, {kData, 1}}, false},
        {"ten of all three", {{kCommand, 4}, {kAddress, 3}, {kData, 3}}, true},
        {"eleven of all three", {{kCommand, 4}, {kAddress, 3}, {kData, 3}, {kCommand, 1}}, false},
    };
    for (auto const& [name, refusals, succeeds] : rows) {
        SCOPED_TRACE(name);
        ExpectStart();
        for (auto const& [step, count] : refusals) {
            ExpectRefusals(step, count);
        }
        if (!succeeds) {
            ExpectUpdateFails(image, "10 NACKs received, command Write");
            continue;
        }
        ExpectWrite(kFirstAddress, First());
        ExpectWrite({0x08, 0x00, 0x00, 0x08, 0x00}, TrailerOf(image));
        bool updated = false;
        EXPECT_THAT(Printed([&] { updated = Update(image); }), IsEmpty());
        EXPECT_TRUE(updated);
        EXPECT_SCRIPT_DONE();
    }
}

TEST_F(NackTest, EachBlockAndTheTrailerHaveACountOfTheirOwn)
{
    auto const long_image = PatternImage(512 + 8);
    ExpectStart();
    ExpectRefusals(kCommand, 10);
    ExpectWrite({0x08, 0x00, 0x00, 0x00, 0x08}, Slice(long_image, 0, 256));
    ExpectRefusals(kCommand, 10);
    ExpectWrite({0x08, 0x00, 0x01, 0x00, 0x09}, Slice(long_image, 256, 256));
    ExpectRefusals(kCommand, 10);
    ExpectWrite({0x08, 0x00, 0x02, 0x00, 0x0A}, TrailerOf(long_image));

    EXPECT_TRUE(Update(long_image));
    EXPECT_SCRIPT_DONE();
}

}  // namespace
}  // namespace stm32_updater::test
