// Writing an image: blocks, addresses, the trailer, progress and the hooks around it.
#include <future>

#include "tests/modules/stm32_updater/updater_fixture.h"

namespace stm32_updater::test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

Bytes Trailer(Bytes const& image, int mcu_id)
{
    auto trailer = Slice(image, image.size() - 8, 4);
    auto const stamp = ToBytes({mcu_id, 0x00, 0x00, 0x00});
    trailer.insert(trailer.end(), stamp.begin(), stamp.end());
    return trailer;
}

class WriteTest : public UpdaterTest {
protected:
    // The script up to the erase of a unit that is erased as a whole, so that the number of pages
    // does not matter here.
    void SetUp() override
    {
        Rebuild({.mass_erase = true});
        Connect();
    }

    void ExpectStart()
    {
        ExpectGetVersion();
        ExpectExtendedErase({0xFF, 0xFF, 0x00});
    }

    // Writes of `data` from 0x08000000 in blocks of 256 bytes.
    void ExpectBlocks(Bytes const& data)
    {
        for (size_t offset = 0; offset < data.size(); offset += 256) {
            int const high = static_cast<int>(offset >> 16) & 0xFF;
            int const low = static_cast<int>(offset >> 8) & 0xFF;
            ExpectWrite({0x08, high, low, 0x00, 0x08 ^ high ^ low},
                        Slice(data, offset, std::min<size_t>(256, data.size() - offset)));
        }
    }

    // A whole update of `size` bytes that succeeds, with its trailer at `trailer_address`.
    void UpdateSuccessfully(size_t size, std::initializer_list<int> trailer_address)
    {
        auto const image = PatternImage(size);
        ExpectStart();
        ExpectBlocks(Slice(image, 0, size - 8));
        ExpectWrite(trailer_address, Trailer(image, 0x05));
        EXPECT_TRUE(Update(image));
        EXPECT_SCRIPT_DONE();
    }
};

TEST_F(WriteTest, SendsEveryByteOfAShortUpdate)
{
    uart.Expect({0x01, 0xFE}).Answer({0x79, 0x31, 0x00, 0x00, 0x79});
    uart.Expect({0x44, 0xBB}).Answer({0x79});
    uart.Expect({0xFF, 0xFF, 0x00}).Answer({0x79});
    uart.Expect({0x31, 0xCE}).Answer({0x79});
    uart.Expect({0x08, 0x00, 0x00, 0x00, 0x08}).Answer({0x79});
    uart.Expect({0x07, 0x10, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x07}).Answer({0x79});
    uart.Expect({0x31, 0xCE}).Answer({0x79});
    uart.Expect({0x08, 0x00, 0x00, 0x08, 0x00}).Answer({0x79});
    uart.Expect({0x07, 0x18, 0x19, 0x1A, 0x1B, 0x05, 0x00, 0x00, 0x00, 0x02}).Answer({0x79});
    auto const image = ToBytes({0x10, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18, 0x19, 0x1A,
                                0x1B, 0x1C, 0x1D, 0x1E, 0x1F});

    bool updated = false;
    auto const printed = Printed([&] { updated = Update(image); });

    EXPECT_TRUE(updated);
    EXPECT_THAT(printed, IsEmpty());
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_SCRIPT_DONE();
}

TEST_F(WriteTest, ReplacesTheLastFourBytesByTheMcuIdAndZeros)
{
    Rebuild({.mcu_id = 0xC3, .mass_erase = true});
    Connect();
    auto const image = PatternImage(64);
    ExpectStart();
    ExpectWrite({0x08, 0x00, 0x00, 0x00, 0x08}, Slice(image, 0, 56));
    ExpectWrite({0x08, 0x00, 0x00, 0x38, 0x30}, Trailer(image, 0xC3));

    EXPECT_TRUE(Update(image));
    EXPECT_SCRIPT_DONE();
}

TEST_F(WriteTest, WritesOnlyTheTrailerOfAnImageOfEightBytes)
{
    auto const image = ToBytes({1, 2, 3, 4, 5, 6, 7, 8});
    ExpectStart();
    ExpectWrite({0x08, 0x00, 0x00, 0x00, 0x08}, ToBytes({1, 2, 3, 4, 0x05, 0, 0, 0}));

    EXPECT_TRUE(Update(image));
    EXPECT_SCRIPT_DONE();
}

TEST_F(WriteTest, WritesAnImageOfTwelveBytesInTwoWrites)
{
    auto const image = PatternImage(12);
    ExpectStart();
    ExpectWrite({0x08, 0x00, 0x00, 0x00, 0x08}, Slice(image, 0, 4));
    ExpectWrite({0x08, 0x00, 0x00, 0x04, 0x0C}, Trailer(image, 0x05));

    EXPECT_TRUE(Update(image));
    EXPECT_SCRIPT_DONE();
}

TEST_F(WriteTest, FillsOneBlockExactly)
{
    UpdateSuccessfully(256 + 8, {0x08, 0x00, 0x01, 0x00, 0x09});
}

TEST_F(WriteTest, PutsFourBytesMoreIntoABlockOfTheirOwn)
{
    UpdateSuccessfully(256 + 4 + 8, {0x08, 0x00, 0x01, 0x04, 0x0D});
}

TEST_F(WriteTest, NeverJoinsTheTrailerWithTheBlockBeforeIt)
{
    UpdateSuccessfully(256, {0x08, 0x00, 0x00, 0xF8, 0xF0});
}

TEST_F(WriteTest, CarriesTheAddressIntoItsThirdByte)
{
    UpdateSuccessfully(0x10000 + 512 + 8, {0x08, 0x01, 0x02, 0x00, 0x0B});
}

TEST_F(WriteTest, WritesAtTheGivenAddress)
{
    auto const image = PatternImage(16);
    ExpectStart();
    ExpectWrite({0x08, 0x01, 0xFF, 0xFC, 0x0A}, Slice(image, 0, 8));
    ExpectWrite({0x08, 0x02, 0x00, 0x04, 0x0E}, Trailer(image, 0x05));

    EXPECT_TRUE(Update(image, 0x0801FFFC));
    EXPECT_SCRIPT_DONE();
}

TEST_F(WriteTest, SendsNothingForAnImageWithoutRoomForATrailer)
{
    for (size_t const size : {0U, 4U, 7U}) {
        bool updated = true;
        auto const image = PatternImage(size);
        Printed([&] { updated = Update(image); });
        EXPECT_FALSE(updated) << size;
    }
    EXPECT_THAT(EventsWith("send"), IsEmpty());
    EXPECT_THAT(EventsWith("first hook"), IsEmpty());
}

TEST_F(WriteTest, RunsTheClosingHooksInThisOrder)
{
    auto const image = PatternImage(8);
    ExpectStart();
    ExpectWrite({0x08, 0x00, 0x00, 0x00, 0x08}, Trailer(image, 0x05));

    ASSERT_TRUE(Update(image));

    EXPECT_THAT(uart.Events(), ElementsAre("progress 1 0", "send 01 fe", "send 44 bb",
                                           "send ff ff 00", "send 31 ce", "send 08 00 00 00 08",
                                           "send 07 01 08 0f 16 05 00 00 00 12", "first hook",
                                           "line b off", "line a on", "second hook"));
}

TEST_F(WriteTest, AFailedUpdateRunsNoClosingHook)
{
    ExpectGetVersion();
    uart.Expect({0x44, 0xBB}).Answer({0x1F});
    bool updated = true;
    auto const image = PatternImage(16);

    auto const printed = Printed([&] { updated = Update(image); });

    EXPECT_FALSE(updated);
    EXPECT_THAT(printed, IsFailure("NACK received, command Erase Ext"));
    EXPECT_THAT(log.Lines(), ElementsAre(LogLine{3, printed.substr(1)}));
    EXPECT_THAT(uart.Events(), ElementsAre("progress 1 0", "send 01 fe", "send 44 bb"));
}

TEST_F(WriteTest, UpdatesAgainAfterAFailure)
{
    ExpectGetVersion();
    uart.Expect({0x44, 0xBB}).Answer({0x1F});
    bool updated = true;
    auto const image = PatternImage(16);
    Printed([&] { updated = Update(image); });
    ASSERT_FALSE(updated);

    UpdateSuccessfully(16, {0x08, 0x00, 0x00, 0x08, 0x00});
}

TEST_F(WriteTest, ReportsOnlyTheStartOfAnImageBelowEightKibibytes)
{
    UpdateSuccessfully(8192 + 8 - 4, {0x08, 0x00, 0x1F, 0xFC, 0xEB});
    EXPECT_THAT(EventsWith("progress"), ElementsAre("progress 1 0"));
}

TEST_F(WriteTest, ReportsAFullEightKibibytesAsAHundredPercent)
{
    UpdateSuccessfully(8192 + 8, {0x08, 0x00, 0x20, 0x00, 0x28});
    EXPECT_THAT(EventsWith("progress"), ElementsAre("progress 1 0", "progress 1 100"));
}

TEST_F(WriteTest, DoesNotCountTheTrailerIntoTheEightKibibytes)
{
    UpdateSuccessfully(8192, {0x08, 0x00, 0x1F, 0xF8, 0xEF});
    EXPECT_THAT(EventsWith("progress"), ElementsAre("progress 1 0"));
}

TEST_F(WriteTest, ReportsEveryEightKibibytesRoundedDown)
{
    UpdateSuccessfully(20000 + 8, {0x08, 0x00, 0x4E, 0x20, 0x66});
    EXPECT_THAT(EventsWith("progress"),
                ElementsAre("progress 1 0", "progress 1 40", "progress 1 81"));
}

TEST_F(WriteTest, ReportsToTheCallbackOfTheUpdateInProgress)
{
    std::vector<unsigned> first;
    std::vector<unsigned> second;
    auto const image = PatternImage(16);
    for (auto* percents : {&first, &second}) {
        ExpectStart();
        ExpectBlocks(Slice(image, 0, 8));
        ExpectWrite({0x08, 0x00, 0x00, 0x08, 0x00}, Trailer(image, 0x05));
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

TEST_F(WriteTest, HoldsTheUpdateMutexUntilItIsDone)
{
    auto const image = PatternImage(8192 + 8);
    ExpectStart();
    ExpectBlocks(Slice(image, 0, 8192));
    ExpectWrite({0x08, 0x00, 0x20, 0x00, 0x28}, Trailer(image, 0x05));
    std::vector<bool> lockable;

    ASSERT_TRUE(updater->Update(image, [&](auto, unsigned) {
        lockable.push_back(LockableFromAnotherThread(update_mutex));
    }));

    EXPECT_THAT(lockable, ElementsAre(false, false));
    EXPECT_TRUE(LockableFromAnotherThread(update_mutex));
}

TEST_F(WriteTest, GivesTheUpdateMutexBackAfterAFailure)
{
    uart.Expect({0x01, 0xFE}).Answer({0x1F});
    auto const image = PatternImage(16);
    Printed([&] { EXPECT_FALSE(Update(image)); });
    EXPECT_TRUE(LockableFromAnotherThread(update_mutex));
}

TEST_F(WriteTest, AForeignExceptionOfTheCallbackEndsTheProgram)
{
    auto const image = PatternImage(16);
    EXPECT_EXIT(updater->Update(image, [](auto, unsigned) { throw std::runtime_error("window"); }),
                ::testing::KilledBySignal(SIGABRT), "");
}

TEST_F(WriteTest, ACallbackThatIsEmptyEndsTheProgram)
{
    auto const image = PatternImage(16);
    EXPECT_EXIT(updater->Update(image, {}), ::testing::KilledBySignal(SIGABRT), "");
}

class UpdateWithoutSessionTest : public UpdaterTest {
protected:
    std::string PrintedByAFailingUpdate()
    {
        bool updated = true;
        auto const image = PatternImage(16);
        auto printed = Printed([&] { updated = Update(image); });
        EXPECT_FALSE(updated);
        return printed;
    }
};

TEST_F(UpdateWithoutSessionTest, FailsBeforeTheFirstConnect)
{
    EXPECT_THAT(PrintedByAFailingUpdate(), IsFailure("Invalid DFU version, command Get Ver Rops"));
    EXPECT_THAT(EventsWith("send"), IsEmpty());
}

TEST_F(UpdateWithoutSessionTest, FailsAfterAConnectThatDidNotGetAnAnswer)
{
    uart.Expect({0x7F}).Answer({0x00});
    Printed([&] { EXPECT_FALSE(updater->ConnectDevice()); });

    EXPECT_THAT(PrintedByAFailingUpdate(), IsFailure("Invalid DFU version, command Get Ver Rops"));
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

    PrintedByAFailingUpdate();

    EXPECT_THAT(EventsWith("send 44"), IsEmpty());
    EXPECT_THAT(EventsWith("send 31"), IsEmpty());
    EXPECT_THAT(EventsWith("line b off"), IsEmpty());
}

TEST_F(UpdateWithoutSessionTest, FailsOnAUnitThatDoesNotListGetVersion)
{
    Connect({0x00, 0x02, 0x11, 0x21, 0x31, 0x44});
    EXPECT_THAT(PrintedByAFailingUpdate(), IsFailure("Invalid DFU version, command Get Ver Rops"));
    EXPECT_THAT(uart.Events(), ElementsAre("progress 1 0"));
}

TEST_F(UpdateWithoutSessionTest, FailsOnAUnitThatListsNothing)
{
    Connect({});
    EXPECT_THAT(PrintedByAFailingUpdate(), IsFailure("Invalid DFU version, command Get Ver Rops"));
}

TEST_F(UpdateWithoutSessionTest, TakesNoOtherCodeForGetVersion)
{
    Connect({0x03, 0x04, 0x05, 0x06, 0x07, 0x10, 0x20, 0x41, 0x50, 0x63, 0x73, 0x81, 0xFF});
    EXPECT_THAT(PrintedByAFailingUpdate(), IsFailure("Invalid DFU version, command Get Ver Rops"));
}

}  // namespace
}  // namespace stm32_updater::test
