// The simulated DFU bootloader, request by request.
#include "simulator/bootloaders/dfuse_bootloader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "simulator/chips/otp_image.h"
#include "tests/simulator/dfuse_client.h"

namespace simulator {
namespace {

using test::B;
using test::Bytes;
using testing::Each;
using namespace std::chrono_literals;

DfuAnswer const kDone{DfuAnswer::Kind::kDone};
DfuAnswer const kStall{DfuAnswer::Kind::kStall};
DfuAnswer const kNone{DfuAnswer::Kind::kNone};

// Answers to GETSTATUS: status, three bytes of poll timeout, state, text.
auto const kIdle = B({0x00, 0, 0, 0, 2, 0});
auto const kBusy = B({0x00, 0, 0, 0, 4, 0});
auto const kDownloadIdle = B({0x00, 0, 0, 0, 5, 0});
auto const kTargetError = B({0x01, 0, 0, 0, 10, 0});
auto const kStalledPacketError = B({0x0F, 0, 0, 0, 10, 0});

auto const kSetAddressToFlash = B({0x21, 0x00, 0x00, 0x00, 0x08});
auto const kSetAddressToOtp = B({0x21, 0x00, 0x70, 0xFF, 0x1F});
auto const kEraseFirstPage = B({0x41, 0x00, 0x00, 0x00, 0x08});

class Dfuse : public testing::Test {
protected:
    static DfuseBootloaderOptions Options()
    {
        DfuseBootloaderOptions options;
        OtpImage otp(options.chip.otp_size);
        otp.SetModelId(0, 7);
        options.otp = otp.Bytes();
        return options;
    }

    DfuseBootloader bootloader_{Options()};
    test::DfuseClient client_{bootloader_};
};

// ---- States ----

TEST_F(Dfuse, BeginsIdleAndTellsItsStateWithoutChangingIt)
{
    EXPECT_EQ(client_.GetStatus(), kIdle);
    EXPECT_EQ(client_.Ask(DfuRequest::kGetState, 1).data, B({2}));
    EXPECT_EQ(bootloader_.Status().state, UnitState::kWaitingForSync);
}

TEST_F(Dfuse, CarriesADownloadOutBetweenTwoStatusRequests)
{
    EXPECT_EQ(client_.Download(0, kSetAddressToFlash), kDone);
    EXPECT_EQ(client_.Ask(DfuRequest::kGetState, 1).data, B({3}));
    EXPECT_EQ(client_.GetStatus(), kBusy);
    EXPECT_EQ(client_.GetStatus(), kDownloadIdle);
    EXPECT_EQ(client_.LastLine(), "set-address 0x08000000 ack");
}

TEST_F(Dfuse, TakesNoOtherDownloadBeforeTheFirstIsCarriedOut)
{
    client_.Download(0, kSetAddressToFlash);

    EXPECT_EQ(client_.Download(0, kEraseFirstPage), kStall);

    EXPECT_EQ(client_.GetStatus(), kStalledPacketError);
    EXPECT_EQ(client_.LastLine(), "download nack state");
    EXPECT_EQ(bootloader_.Status().erased_pages, 0U);
}

TEST_F(Dfuse, RefusesTheRequestsThatDoNotBelongToItsState)
{
    client_.CarryOut(0, kSetAddressToFlash);
    EXPECT_EQ(client_.Upload(2, 16), kStall) << "in the middle of a download";
    EXPECT_EQ(client_.Ask(DfuRequest::kAbort), kStall) << "after an error";
    EXPECT_EQ(client_.Ask(DfuRequest::kClearStatus), kDone);
    EXPECT_EQ(client_.GetStatus(), kIdle);
    EXPECT_EQ(client_.Ask(DfuRequest::kClearStatus), kStall) << "without an error";
    client_.Ask(DfuRequest::kClearStatus);
    EXPECT_EQ(client_.Ask(DfuRequest::kDetach), kStall) << "there is no application to detach from";
}

TEST_F(Dfuse, BecomesIdleByAnAbort)
{
    client_.CarryOut(0, kSetAddressToFlash);
    EXPECT_EQ(client_.Ask(DfuRequest::kAbort), kDone);
    EXPECT_EQ(client_.GetStatus(), kIdle);
    EXPECT_EQ(client_.Upload(2, 16).kind, DfuAnswer::Kind::kDone);
    EXPECT_EQ(client_.Ask(DfuRequest::kGetState, 1).data, B({9}));
    EXPECT_EQ(client_.Ask(DfuRequest::kAbort), kDone);
    EXPECT_EQ(client_.GetStatus(), kIdle);
}

// ---- Erasing and writing ----

TEST_F(Dfuse, ErasesThePageThatHoldsTheAddress)
{
    bootloader_.Memory().Load(0x08000000, Bytes(3 * 2048, std::byte{0x00}));

    EXPECT_EQ(client_.CarryOut(0, B({0x41, 0xFF, 0x0F, 0x00, 0x08})), kDownloadIdle);

    EXPECT_EQ(bootloader_.Memory().Read(0x080007FF, 1), B({0x00}));
    EXPECT_THAT(bootloader_.Memory().Read(0x08000800, 2048), Each(std::byte{0xFF}));
    EXPECT_EQ(bootloader_.Memory().Read(0x08001000, 1), B({0x00}));
    EXPECT_EQ(bootloader_.Status().erased_pages, 1U);
    EXPECT_EQ(client_.LastLine(), "erase 0x08000fff ack");
}

TEST_F(Dfuse, ErasesEverythingWhenNoAddressIsNamed)
{
    bootloader_.Memory().Load(0x0807FF00, Bytes(256, std::byte{0x00}));

    EXPECT_EQ(client_.CarryOut(0, B({0x41})), kDownloadIdle);

    EXPECT_THAT(bootloader_.Memory().Read(0x0807FF00, 256), Each(std::byte{0xFF}));
    EXPECT_EQ(bootloader_.Status().erased_pages, 256U);
    EXPECT_EQ(client_.LastLine(), "erase all ack");
}

TEST_F(Dfuse, WritesBlockTwoAtTheAddressPointerAndTheNextOnesBehindIt)
{
    client_.CarryOut(0, B({0x21, 0x00, 0x10, 0x00, 0x08}));

    EXPECT_EQ(client_.CarryOut(2, B({1, 2, 3, 4})), kDownloadIdle);
    EXPECT_EQ(client_.CarryOut(4, B({5, 6, 7, 8})), kDownloadIdle);

    EXPECT_EQ(bootloader_.Memory().Read(0x08001000, 4), B({1, 2, 3, 4}));
    EXPECT_EQ(bootloader_.Memory().Read(0x08002000, 4), B({5, 6, 7, 8}));
    EXPECT_EQ(client_.LastLine(), "write 0x08002000 4 ack");
    EXPECT_EQ(bootloader_.Status().writes, 2U);
    EXPECT_EQ(bootloader_.Status().programmed_over_unerased, 0U);
}

TEST_F(Dfuse, CountsWhatIsProgrammedWithoutAnErase)
{
    client_.CarryOut(2, B({0xF0}));
    client_.CarryOut(2, B({0x0F}));

    EXPECT_EQ(bootloader_.Memory().Read(0x08000000, 1), B({0x00}));
    EXPECT_EQ(bootloader_.Status().programmed_over_unerased, 1U);
}

TEST_F(Dfuse, TellsHowLongItIsBusyAndIsBusyForThatTime)
{
    auto options = Options();
    options.times.page_erase = 24500us;
    DfuseBootloader bootloader(options);
    test::DfuseClient client(bootloader);

    client.Download(0, kEraseFirstPage);

    EXPECT_EQ(client.GetStatus(), B({0x00, 25, 0, 0, 4, 0}));
    client.Pass(10ms);
    EXPECT_EQ(client.GetStatus(), B({0x00, 15, 0, 0, 4, 0}));
    client.Pass(15ms);
    EXPECT_EQ(client.GetStatus(), kDownloadIdle);
}

// ---- Refusals ----

TEST_F(Dfuse, EndsACommandForAnAddressWithoutMemoryWithATargetError)
{
    for (auto const& command :
         {B({0x21, 0x00, 0x00, 0x00, 0x60}), B({0x41, 0x00, 0x00, 0x08, 0x08}),
          B({0x41, 0x00, 0x70, 0xFF, 0x1F}), B({0x41, 0xFF, 0xFF, 0xFF, 0xFF})}) {
        EXPECT_EQ(client_.Download(0, command), kDone);
        EXPECT_EQ(client_.GetStatus(), kBusy);
        EXPECT_EQ(client_.GetStatus(), kTargetError);
        EXPECT_EQ(client_.Ask(DfuRequest::kClearStatus), kDone);
    }
    EXPECT_EQ(bootloader_.Status().erased_pages, 0U);
}

TEST_F(Dfuse, WritesNothingOfABlockThatPassesTheEndOfTheFlash)
{
    client_.CarryOut(0, B({0x21, 0xFE, 0xFF, 0x07, 0x08}));

    EXPECT_EQ(client_.CarryOut(2, B({1, 2, 3})), kTargetError);

    EXPECT_EQ(bootloader_.Memory().Read(0x0807FFFE, 2), B({0xFF, 0xFF}));
    EXPECT_EQ(client_.LastLine(), "write 0x0807fffe 3 nack address");
}

TEST_F(Dfuse, RefusesWhatIsNoCommandOrNoBlock)
{
    for (auto const& command : {B({0x21}), B({0x21, 0, 0, 0}), B({0x21, 0, 0, 0, 8, 0}),
                                B({0x41, 0}), B({0x33}), B({0})}) {
        EXPECT_EQ(client_.Download(0, command), kStall);
        EXPECT_EQ(client_.GetStatus(), kStalledPacketError);
        EXPECT_EQ(client_.LastLine(), "download nack unknown");
        client_.Ask(DfuRequest::kClearStatus);
    }
    EXPECT_EQ(client_.Download(1, B({1})), kStall);
    EXPECT_EQ(client_.LastLine(), "download nack block");
    client_.Ask(DfuRequest::kClearStatus);
    EXPECT_EQ(client_.Download(2, Bytes(2049)), kStall);
    EXPECT_EQ(client_.LastLine(), "download nack size");
}

TEST_F(Dfuse, RefusesToGiveUpItsReadProtection)
{
    EXPECT_EQ(client_.Download(0, B({0x92})), kStall);

    EXPECT_EQ(client_.GetStatus(), B({0x0B, 0, 0, 0, 10, 0}));
    EXPECT_EQ(client_.LastLine(), "read-unprotect nack refused");
}

// ---- Reading ----

TEST_F(Dfuse, UploadsTheOtpAreaFromTheAddressPointer)
{
    client_.CarryOut(0, kSetAddressToOtp);
    client_.Ask(DfuRequest::kAbort);

    auto const answer = client_.Upload(2, 1024);

    ASSERT_EQ(answer.data.size(), 1024U);
    EXPECT_EQ(Bytes(answer.data.begin(), answer.data.begin() + 5), B({0x11, 0x47, 0x23, 0x01, 7}));
    EXPECT_EQ(client_.LastLine(), "read 0x1fff7000 1024 ack");
    EXPECT_EQ(client_.Ask(DfuRequest::kGetState, 1).data, B({9}));
}

TEST_F(Dfuse, UploadsTheListOfItsCommandsFromBlockZero)
{
    EXPECT_EQ(client_.Upload(0, 64).data, B({0x00, 0x21, 0x41, 0x92}));
    EXPECT_EQ(client_.GetStatus(), kIdle) << "a short block ends an upload";
    EXPECT_EQ(client_.Upload(0, 2).data, B({0x00, 0x21}));
}

TEST_F(Dfuse, RefusesToUploadWhatIsNotThere)
{
    client_.CarryOut(0, kSetAddressToOtp);
    client_.Ask(DfuRequest::kAbort);
    EXPECT_EQ(client_.Upload(2, 1025), kStall);
    EXPECT_EQ(client_.GetStatus(), kTargetError);
    EXPECT_EQ(client_.LastLine(), "read 0x1fff7000 1025 nack address");
    client_.Ask(DfuRequest::kClearStatus);
    EXPECT_EQ(client_.Upload(1, 16), kStall);
    client_.Ask(DfuRequest::kClearStatus);
    EXPECT_EQ(client_.Upload(2, 2049), kStall);
    EXPECT_EQ(client_.GetStatus(), kStalledPacketError);
}

// ---- Leaving ----

TEST_F(Dfuse, LeavesItsHostForTheApplicationAfterAnEmptyDownload)
{
    client_.CarryOut(0, kSetAddressToFlash);
    EXPECT_EQ(client_.Download(0, {}), kDone);
    EXPECT_EQ(client_.Ask(DfuRequest::kGetState, 1).data, B({6}));
    EXPECT_FALSE(bootloader_.HasLeft());

    EXPECT_EQ(client_.GetStatus(), B({0x00, 0, 0, 0, 7, 0}));

    EXPECT_TRUE(bootloader_.HasLeft());
    EXPECT_EQ(bootloader_.Status().state, UnitState::kRunning);
    EXPECT_EQ(bootloader_.Status().jump_address, 0x08000000U);
    EXPECT_EQ(client_.Ask(DfuRequest::kGetStatus, 6), kNone);
}

TEST_F(Dfuse, IsBackInItsBootloaderAfterAResetWithWhatItHasStored)
{
    client_.CarryOut(2, B({1, 2, 3, 4}));
    client_.Download(0, {});
    client_.GetStatus();

    bootloader_.Reset();

    EXPECT_FALSE(bootloader_.HasLeft());
    EXPECT_EQ(client_.GetStatus(), kIdle);
    EXPECT_EQ(bootloader_.Memory().Read(0x08000000, 4), B({1, 2, 3, 4}));
    EXPECT_EQ(bootloader_.Status().jump_address, std::nullopt);
}

TEST_F(Dfuse, CountsTheClientsThatClaimIt)
{
    bootloader_.Claim();
    bootloader_.Claim();

    EXPECT_EQ(bootloader_.Status().connects, 2U);
    EXPECT_EQ(bootloader_.Status().state, UnitState::kSynchronised);
}

// ---- Faults ----

TEST_F(Dfuse, EndsAnOperationWithTheStatusThatAFaultAsksFor)
{
    for (uint32_t const status : {3U, 7U}) {
        bootloader_.Faults().Add({FaultKind::kErrorInWrite, 1, 1, status});
        EXPECT_EQ(client_.CarryOut(2, B({1, 2, 3, 4})), B({status, 0, 0, 0, 10, 0}));
        EXPECT_EQ(client_.LastLine(), "write 0x08000000 4 nack fault");
        EXPECT_EQ(bootloader_.Memory().Read(0x08000000, 1), B({0xFF}));
        client_.Ask(DfuRequest::kClearStatus);
    }
    bootloader_.Memory().Load(0x08000000, B({0}));
    bootloader_.Faults().Add({FaultKind::kErrorInErase, 1, 1, 4});
    EXPECT_EQ(client_.CarryOut(0, kEraseFirstPage), B({0x04, 0, 0, 0, 10, 0}));
    EXPECT_EQ(bootloader_.Memory().Read(0x08000000, 1), B({0x00}));
    client_.Ask(DfuRequest::kClearStatus);
    EXPECT_EQ(client_.CarryOut(0, kEraseFirstPage), kDownloadIdle);
}

TEST_F(Dfuse, VanishesBeforeAnythingIsErasedOrProgrammed)
{
    for (auto const kind : {FaultKind::kVanishInErase, FaultKind::kVanishInWrite}) {
        bootloader_.Memory().Load(0x08000000, B({0x55}));
        bootloader_.Faults().Add({kind});
        auto const is_erase = kind == FaultKind::kVanishInErase;
        EXPECT_EQ(client_.Download(is_erase ? 0 : 2, is_erase ? kEraseFirstPage : B({0})), kDone);

        EXPECT_EQ(client_.Ask(DfuRequest::kGetStatus, 6), kNone);

        EXPECT_TRUE(bootloader_.HasLeft());
        EXPECT_EQ(bootloader_.Memory().Read(0x08000000, 1), B({0x55}));
        bootloader_.Reset();
        EXPECT_FALSE(bootloader_.HasLeft());
        EXPECT_EQ(client_.GetStatus(), kIdle);
    }
}

TEST_F(Dfuse, HangsAtACommandOrInAWriteUntilTheReset)
{
    bootloader_.Faults().Add({FaultKind::kSilentAtCommand, 2});
    EXPECT_EQ(client_.CarryOut(0, kSetAddressToFlash), kDownloadIdle);
    EXPECT_EQ(client_.Download(0, kEraseFirstPage), kNone);
    EXPECT_EQ(client_.Ask(DfuRequest::kGetState, 1), kNone);
    EXPECT_FALSE(bootloader_.HasLeft());
    bootloader_.Reset();

    bootloader_.Faults().Add({FaultKind::kSilentInWrite});
    EXPECT_EQ(client_.Download(2, B({1})), kDone);
    EXPECT_EQ(client_.Ask(DfuRequest::kGetStatus, 6), kNone);
    bootloader_.Reset();
    EXPECT_EQ(client_.CarryOut(2, B({1})), kDownloadIdle);
}

TEST_F(Dfuse, IsBusyForEverWhenItIsStuckInAWrite)
{
    bootloader_.Faults().Add({FaultKind::kStuckInWrite});
    client_.Download(2, B({1}));
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(client_.GetStatus(), B({0x00, 100, 0, 0, 4, 0}));
        client_.Pass(1h);
    }
    EXPECT_EQ(client_.Ask(DfuRequest::kAbort), kStall);
}

TEST_F(Dfuse, ErasesSlowlyAndSaysHowSlowly)
{
    bootloader_.Faults().Add({FaultKind::kSlowErase, 1, 1, 70000});
    client_.Download(0, kEraseFirstPage);
    EXPECT_EQ(client_.GetStatus(), B({0x00, 0x70, 0x11, 0x01, 4, 0}));
    client_.Pass(70s);
    EXPECT_EQ(client_.GetStatus(), kDownloadIdle);
    EXPECT_EQ(bootloader_.Status().erased_pages, 1U);
}

TEST_F(Dfuse, TakesNoNoticeWhileItIsSilent)
{
    bootloader_.SetSilent(true);
    EXPECT_EQ(client_.Ask(DfuRequest::kGetStatus, 6), kNone);
    bootloader_.SetSilent(false);
    EXPECT_EQ(client_.GetStatus(), kIdle);
}

}  // namespace
}  // namespace simulator
