// Writing an image: blocks, addresses, the trailer, progress and the hooks around it.
#include <future>

#include "tests/modules/stm32_updater/updater_fixture.h"

namespace stm32_updater::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr uint32_t kFlash = 0x08000000;

class WriteTest : public UpdaterTest {
protected:
    // A unit that is erased as a whole, so that the number of pages does not matter.
    void SetUp() override
    {
        Rebuild({.mass_erase = true});
        Connect();
    }

    // The script of an update up to its erase.
    void ExpectStart()
    {
        ExpectGetVersion();
        ExpectExtendedErase({0xFF, 0xFF, 0x00});
    }

    // The whole script of an update.
    void ExpectUpdate(Bytes const& image)
    {
        ExpectStart();
        auto const body = static_cast<uint32_t>(image.size()) - 8;
        for (uint32_t offset = 0; offset < body; offset += 256) {
            ExpectWrite(AddressBytes(kFlash + offset),
                        Slice(image, offset, std::min(256U, body - offset)));
        }
        ExpectWrite(AddressBytes(kFlash + body), TrailerOf(image));
    }
};

// The trailer is never joined with the block before it.
TEST_F(WriteTest, WritesBlocksOf256BytesAndThenTheTrailer)
{
    for (size_t const size : {size_t{8}, size_t{12}, size_t{256}, size_t{256 + 8},
                              size_t{256 + 4 + 8}, size_t{0x10000 + 512 + 8}}) {
        auto const image = PatternImage(size);
        ExpectUpdate(image);
        EXPECT_TRUE(Update(image)) << size;
        EXPECT_SCRIPT_DONE();
    }
}

TEST_F(WriteTest, WritesAtTheGivenAddress)
{
    auto const image = PatternImage(16);
    ExpectStart();
    ExpectWrite(ToBytes({0x08, 0x01, 0xFF, 0xFC, 0x0A}), Slice(image, 0, 8));
    ExpectWrite(ToBytes({0x08, 0x02, 0x00, 0x04, 0x0E}), TrailerOf(image));

    EXPECT_TRUE(Update(image, 0x0801FFFC));
    EXPECT_SCRIPT_DONE();
}

TEST_F(WriteTest, SendsNothingForAnImageWithoutRoomForATrailer)
{
    for (size_t const size : {0U, 4U, 7U}) {
        EXPECT_FALSE(Update(PatternImage(size))) << size;
    }
    EXPECT_THAT(uart.Events(), IsEmpty());
}

TEST_F(WriteTest, StampsTheMcuIdIntoTheTrailerAndThenRunsTheClosingHooks)
{
    Rebuild({.mcu_id = 0xC3, .mass_erase = true});
    EXPECT_EQ(updater->GetMcuId(), 0xC3);
    Connect();
    auto const image = PatternImage(8);
    ExpectStart();
    ExpectWrite(AddressBytes(kFlash), TrailerOf(image, 0xC3));

    ASSERT_TRUE(Update(image));

    EXPECT_THAT(uart.Events(), ElementsAre("progress 1 0", "send 01 fe", "send 44 bb",
                                           "send ff ff 00", "send 31 ce", "send 08 00 00 00 08",
                                           "send 07 01 08 0f 16 c3 00 00 00 d4", "first hook",
                                           "line b off", "line a on", "second hook"));
}

TEST_F(WriteTest, RunsNoClosingHookAfterAFailureAndCanBeRepeated)
{
    auto const image = PatternImage(16);
    ExpectGetVersion();
    uart.Expect({0x44, 0xBB}).Answer({0x1F});
    ExpectUpdateFails(image, "NACK received, command Erase Ext");
    EXPECT_THAT(uart.Events(), ElementsAre("progress 1 0", "send 01 fe", "send 44 bb"));

    ExpectUpdate(image);

    EXPECT_TRUE(Update(image));
    EXPECT_SCRIPT_DONE();
}

// The trailer does not count towards the size that the percentage refers to.
TEST_F(WriteTest, ReportsProgressAtEveryEightKibibytesRoundedDown)
{
    struct {
        size_t size;
        std::vector<std::string> reports;
    } const rows[] = {
        {8192, {"progress 1 0"}},
        {8192 + 8 - 4, {"progress 1 0"}},
        {8192 + 8, {"progress 1 0", "progress 1 100"}},
        {20000 + 8, {"progress 1 0", "progress 1 40", "progress 1 81"}},
    };
    for (auto const& [size, reports] : rows) {
        auto const image = PatternImage(size);
        uart.ForgetEvents();
        ExpectUpdate(image);
        EXPECT_TRUE(Update(image)) << size;
        EXPECT_EQ(EventsWith("progress"), reports) << size;
    }
}

// Without an address an update is written to the start of flash.
TEST_F(WriteTest, ReportsToTheCallbackOfTheUpdateInProgress)
{
    std::vector<unsigned> first;
    std::vector<unsigned> second;
    auto const image = PatternImage(16);
    for (auto* percents : {&first, &second}) {
        ExpectUpdate(image);
        ASSERT_TRUE(updater->Update(
            image, [percents](auto, unsigned percent) { percents->push_back(percent); }));
    }
    EXPECT_THAT(first, ElementsAre(0U));
    EXPECT_THAT(second, ElementsAre(0U));
}

bool LockableFromAnotherThread(std::mutex& mutex)
{
    return std::async(std::launch::async,
                      [&mutex] {
                          std::unique_lock const lock(mutex, std::try_to_lock);
                          return lock.owns_lock();
                      })
        .get();
}

TEST_F(WriteTest, HoldsTheUpdateMutexUntilItSucceedsOrFails)
{
    auto const image = PatternImage(8192 + 8);
    ExpectUpdate(image);
    std::vector<bool> lockable;
    auto const note = [&](auto, unsigned) {
        lockable.push_back(LockableFromAnotherThread(update_mutex));
    };

    ASSERT_TRUE(updater->Update(image, note));
    EXPECT_TRUE(LockableFromAnotherThread(update_mutex));
    uart.Expect({0x01, 0xFE}).Answer({0x1F});
    Printed([&] { EXPECT_FALSE(updater->Update(image, note)); });
    EXPECT_TRUE(LockableFromAnotherThread(update_mutex));

    EXPECT_THAT(lockable, ElementsAre(false, false, false));
}

TEST_F(WriteTest, EndsTheProgramWhenTheCallbackThrowsOrIsEmpty)
{
    auto const image = PatternImage(16);
    EXPECT_EXIT(updater->Update(image, [](auto, unsigned) { throw std::runtime_error("window"); }),
                ::testing::KilledBySignal(SIGABRT), "");
    EXPECT_EXIT(updater->Update(image, {}), ::testing::KilledBySignal(SIGABRT), "");
}

class UpdateWithoutSessionTest : public UpdaterTest {
protected:
    static constexpr char kNoGetVersion[] = "Invalid DFU version, command Get Ver Rops";
    Bytes const image = PatternImage(16);
};

TEST_F(UpdateWithoutSessionTest, FailsUntilAConnectGetsAnAnswer)
{
    ExpectUpdateFails(image, kNoGetVersion);
    uart.Expect({0x7F});
    Printed([&] { EXPECT_FALSE(updater->ConnectDevice()); });
    ExpectUpdateFails(image, kNoGetVersion);

    EXPECT_THAT(EventsWith("send"), ElementsAre("send 7f"));
}

// The commands are known by then, the chip is not: nothing may be erased or written.
TEST_F(UpdateWithoutSessionTest, FailsAfterAConnectThatRefusedTheProductId)
{
    ExpectSync();
    ExpectGet();
    ExpectGetId(0x04, 0x10);
    Printed([&] { EXPECT_FALSE(updater->ConnectDevice()); });
    ExpectGetVersion();

    ExpectUpdateFails(image, "no chip identified, command Get Ver Rops");

    EXPECT_THAT(EventsWith("line b off"), IsEmpty());
}

// The list has every code but that of Get Version.
TEST_F(UpdateWithoutSessionTest, FailsOnAUnitThatDoesNotListGetVersion)
{
    Connect({0x00, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x10, 0x11, 0x20,
             0x21, 0x31, 0x41, 0x43, 0x44, 0x50, 0x63, 0x73, 0x81, 0xFF});
    ExpectUpdateFails(image, kNoGetVersion);
    EXPECT_THAT(uart.Events(), ElementsAre("progress 1 0"));
}

}  // namespace
}  // namespace stm32_updater::test
