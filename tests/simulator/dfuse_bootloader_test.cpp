// The simulated DFU bootloader, request by request.
#include "simulator/bootloaders/dfuse_bootloader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "simulator/chips/otp_image.h"
#include "tests/simulator/bootloader_client.h"
#include "tests/simulator/conversation.h"

namespace simulator {
namespace {

using test::B;
using test::Bytes;
using test::Hex;
using test::LastLine;
using testing::Each;
using namespace std::chrono_literals;

std::string ToText(DfuAnswer const& answer)
{
    static constexpr std::array kKinds{"done", "stall", "none"};
    return answer.data.empty() ? kKinds[static_cast<size_t>(answer.kind)]
                               : test::ToHex(answer.data);
}

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

    // A request and its answer as text. Requests: "download BLOCK BYTES", "upload BLOCK LENGTH",
    // and by their names "status", "state", "clear", "abort" and "detach". Answers: bytes if there
    // are any, otherwise "done", "stall", or "none" for a unit that hangs. "carry-out BLOCK BYTES"
    // is a download and the two status requests that carry it out; the second one's answer.
    std::string Ask(std::string const& request)
    {
        if (request.starts_with("carry-out ")) {
            EXPECT_EQ(Ask("download" + request.substr(9)), "done") << request;
            EXPECT_THAT(Ask("status"), testing::EndsWith(" 04 00")) << request;
            return Ask("status");
        }
        std::istringstream stream(request);
        std::string name;
        uint16_t block = 0;
        stream >> name >> block;
        std::string rest;
        std::getline(stream, rest);
        return ToText(bootloader_.Handle(MakeControl(name, block, rest), now_));
    }

    DfuseBootloader bootloader_{Options()};
    DfuseBootloader::TimePoint now_{};

private:
    DfuControl MakeControl(std::string const& name, uint16_t block, std::string const& rest)
    {
        data_ = Hex(rest);
        if (name == "download") {
            return {DfuRequest::kDownload, block, static_cast<uint16_t>(data_.size()), data_};
        }
        if (name == "upload") {
            return {DfuRequest::kUpload, block, static_cast<uint16_t>(std::stoi(rest))};
        }
        return name == "status"  ? DfuControl{DfuRequest::kGetStatus, 0, 6}
               : name == "state" ? DfuControl{DfuRequest::kGetState, 0, 1}
               : name == "clear" ? DfuControl{DfuRequest::kClearStatus}
               : name == "abort" ? DfuControl{DfuRequest::kAbort}
                                 : DfuControl{DfuRequest::kDetach};
    }

    Bytes data_;
};

// Answers to "status": status, three bytes of poll timeout, state, text.
constexpr auto kIdle = "00 00 00 00 02 00";
constexpr auto kDownloadIdle = "00 00 00 00 05 00";

constexpr auto kCarryOutSetAddress = "carry-out 0 21 00 00 00 08";
constexpr auto kEraseFirstPage = "download 0 41 00 00 00 08";

// ---- Conversations ----

struct Conversation {
    char const* name;
    char const* steps;
};

class DfuseConversations : public Dfuse, public testing::WithParamInterface<Conversation> {};

TEST_P(DfuseConversations, GoAsTheStandardAndTheApplicationNoteSay)
{
    test::ExpectConversation(bootloader_, GetParam().steps,
                             [this](std::string const& request) { return Ask(request); });
    EXPECT_EQ(bootloader_.Status().erased_pages, 0U);
}

INSTANTIATE_TEST_SUITE_P(
    , DfuseConversations,
    testing::Values(
        Conversation{"BeginsIdle",
                     "status > 00 00 00 00 02 00; state > 02; status > 00 00 00 00 02 00"},
        Conversation{"DownloadIsCarriedOutBetweenTwoStatusRequests",
                     "download 0 21 00 00 00 08 > done; state > 03; status > 00 00 00 00 04 00; "
                     "status > 00 00 00 00 05 00 = set-address 0x08000000 ack"},
        Conversation{"NoOtherDownloadBeforeTheFirstIsCarriedOut",
                     "download 0 21 00 00 00 08 > done; download 0 41 00 00 00 08 > stall; "
                     "status > 0F 00 00 00 0A 00 = download nack state"},
        Conversation{"RequestsThatDoNotBelongToTheState",
                     "carry-out 0 21 00 00 00 08 > 00 00 00 00 05 00; upload 2 16 > stall; "
                     "abort > stall; clear > done; status > 00 00 00 00 02 00; clear > stall; "
                     "clear > done; detach > stall"},
        Conversation{"AbortMakesIdle",
                     "carry-out 0 21 00 00 00 08 > 00 00 00 00 05 00; abort > done; "
                     "status > 00 00 00 00 02 00; upload 2 2 > FF FF; state > 09; abort > done; "
                     "status > 00 00 00 00 02 00"},
        Conversation{"AddressWithoutMemory",
                     "carry-out 0 21 00 00 00 60 > 01 00 00 00 0A 00; clear > done; "
                     "carry-out 0 41 00 00 08 08 > 01 00 00 00 0A 00; clear > done; "
                     "carry-out 0 41 00 70 FF 1F > 01 00 00 00 0A 00; clear > done; "
                     "carry-out 0 41 FF FF FF FF > 01 00 00 00 0A 00"},
        Conversation{"BlockPastTheEndOfTheFlash",
                     "carry-out 0 21 FE FF 07 08 > 00 00 00 00 05 00; "
                     "carry-out 2 01 02 03 > 01 00 00 00 0A 00 = write 0x0807fffe 3 nack address; "
                     "clear > done; upload 2 2 > FF FF"},
        Conversation{"NotACommandOrNotABlock",
                     "download 0 21 > stall = download nack unknown; "
                     "status > 0F 00 00 00 0A 00; clear > done; "
                     "download 0 21 00 00 00 > stall = download nack unknown; clear > done; "
                     "download 0 21 00 00 00 08 00 > stall = download nack unknown; clear > done; "
                     "download 0 41 00 > stall = download nack unknown; clear > done; "
                     "download 0 33 > stall = download nack unknown; clear > done; "
                     "download 0 00 > stall = download nack unknown; clear > done; "
                     "download 1 01 > stall = download nack block"},
        Conversation{"ReadProtectionIsKept",
                     "download 0 92 > stall; "
                     "status > 0B 00 00 00 0A 00 = read-unprotect nack refused"},
        Conversation{"UploadOfTheOtpArea",
                     "carry-out 0 21 00 70 FF 1F > 00 00 00 00 05 00; abort > done; "
                     "upload 2 5 > 11 47 23 01 07 = read 0x1fff7000 5 ack; state > 09; "
                     "abort > done; upload 2 1025 > stall = read 0x1fff7000 1025 nack address; "
                     "status > 01 00 00 00 0A 00"},
        Conversation{"UploadOfTheListOfCommands",
                     "upload 0 64 > 00 21 41 92; status > 00 00 00 00 02 00; upload 0 2 > 00 21"},
        Conversation{"UploadOfWhatIsNotThere",
                     "upload 1 16 > stall; clear > done; upload 2 2049 > stall; "
                     "status > 0F 00 00 00 0A 00"}),
    [](testing::TestParamInfo<Conversation> const& row) { return std::string(row.param.name); });

TEST_F(Dfuse, RefusesABlockThatIsTooLong)
{
    Bytes const block(2049);
    DfuControl const control{DfuRequest::kDownload, 2, 2049, block};
    EXPECT_EQ(ToText(bootloader_.Handle(control, now_)), "stall");
    EXPECT_EQ(LastLine(bootloader_), "download nack size");
}

// ---- Erasing, writing, leaving ----

TEST_F(Dfuse, ErasesThePageThatHoldsTheAddress)
{
    bootloader_.Memory().Load(0x08000000, Bytes(3 * 2048, std::byte{0x00}));

    EXPECT_EQ(Ask("carry-out 0 41 FF 0F 00 08"), kDownloadIdle);

    EXPECT_EQ(bootloader_.Memory().Read(0x080007FF, 1), Hex("00"));
    EXPECT_THAT(bootloader_.Memory().Read(0x08000800, 2048), Each(std::byte{0xFF}));
    EXPECT_EQ(bootloader_.Memory().Read(0x08001000, 1), Hex("00"));
    EXPECT_EQ(bootloader_.Status().erased_pages, 1U);
    EXPECT_EQ(LastLine(bootloader_), "erase 0x08000fff ack");
}

TEST_F(Dfuse, ErasesEverythingWhenNoAddressIsNamed)
{
    bootloader_.Memory().Load(0x0807FF00, Bytes(256, std::byte{0x00}));

    EXPECT_EQ(Ask("carry-out 0 41"), kDownloadIdle);

    EXPECT_THAT(bootloader_.Memory().Read(0x0807FF00, 256), Each(std::byte{0xFF}));
    EXPECT_EQ(bootloader_.Status().erased_pages, 256U);
    EXPECT_EQ(LastLine(bootloader_), "erase all ack");
}

TEST_F(Dfuse, WritesBlockTwoAtTheAddressPointerAndTheNextOnesAfterIt)
{
    Ask("carry-out 0 21 00 10 00 08");

    EXPECT_EQ(Ask("carry-out 2 01 02 03 04"), kDownloadIdle);
    EXPECT_EQ(Ask("carry-out 4 05 06 07 08"), kDownloadIdle);

    EXPECT_EQ(bootloader_.Memory().Read(0x08001000, 4), B({1, 2, 3, 4}));
    EXPECT_EQ(bootloader_.Memory().Read(0x08002000, 4), B({5, 6, 7, 8}));
    EXPECT_EQ(LastLine(bootloader_), "write 0x08002000 4 ack");
    EXPECT_EQ(bootloader_.Status().writes, 2U);
    EXPECT_EQ(bootloader_.Status().programmed_over_unerased, 0U);

    Ask("carry-out 4 0A");
    EXPECT_EQ(bootloader_.Memory().Read(0x08002000, 1), Hex("00"));
    EXPECT_EQ(bootloader_.Status().programmed_over_unerased, 1U);
}

TEST_F(Dfuse, ReportsHowLongItIsBusyAndIsBusyForThatTime)
{
    bootloader_.Faults().Add({FaultKind::kSlowErase, 1, 1, 70000});
    Ask(kEraseFirstPage);

    EXPECT_EQ(Ask("status"), "00 70 11 01 04 00");
    now_ += 69999ms;
    EXPECT_EQ(Ask("status"), "00 01 00 00 04 00");
    now_ += 1ms;
    EXPECT_EQ(Ask("status"), kDownloadIdle);
    EXPECT_EQ(bootloader_.Status().erased_pages, 1U);
}

TEST_F(Dfuse, RoundsTheTimesOfItsChipUpToMilliseconds)
{
    auto options = Options();
    options.times = kRealTimes;
    DfuseBootloader bootloader(options);
    auto const erase = Hex("41 00 00 00 08");

    bootloader.Handle({DfuRequest::kDownload, 0, 5, erase}, now_);

    EXPECT_EQ(ToText(bootloader.Handle({DfuRequest::kGetStatus, 0, 6}, now_)), "00 19 00 00 04 00");
}

TEST_F(Dfuse, LeavesItsHostForTheApplicationAfterAnEmptyDownloadAndIsBackAfterAReset)
{
    Ask("carry-out 2 01 02 03 04");
    EXPECT_EQ(Ask("download 0"), "done");
    EXPECT_EQ(Ask("state"), "06");
    EXPECT_FALSE(bootloader_.HasLeft());

    EXPECT_EQ(Ask("status"), "00 00 00 00 07 00");

    EXPECT_TRUE(bootloader_.HasLeft());
    EXPECT_EQ(bootloader_.Status().state, UnitState::kRunning);
    EXPECT_EQ(bootloader_.Status().jump_address, 0x08000000U);
    EXPECT_EQ(Ask("status"), "none");

    bootloader_.Reset();

    EXPECT_FALSE(bootloader_.HasLeft());
    EXPECT_EQ(Ask("status"), kIdle);
    EXPECT_EQ(bootloader_.Memory().Read(0x08000000, 4), B({1, 2, 3, 4}));
    EXPECT_EQ(bootloader_.Status().jump_address, std::nullopt);
}

TEST_F(Dfuse, CountsTheClientsThatClaimIt)
{
    EXPECT_EQ(bootloader_.Status().state, UnitState::kWaitingForSync);
    bootloader_.Claim();
    bootloader_.Claim();

    EXPECT_EQ(bootloader_.Status().connects, 2U);
    EXPECT_EQ(bootloader_.Status().state, UnitState::kSynchronised);
}

// ---- Faults ----

TEST_F(Dfuse, EndsAnOperationWithTheStatusThatAFaultAsksFor)
{
    for (auto const& [fault, request, status] :
         {std::tuple{Fault{FaultKind::kErrorInWrite, 1, 1, 3}, "carry-out 2 01", "03"},
          std::tuple{Fault{FaultKind::kErrorInWrite, 1, 1, 7}, "carry-out 2 01", "07"},
          std::tuple{Fault{FaultKind::kErrorInErase, 1, 1, 4}, "carry-out 0 41 00 00 00 08",
                     "04"}}) {
        bootloader_.Memory().Load(0x08000000, Hex("55"));
        bootloader_.Faults().Add(fault);

        EXPECT_EQ(Ask(request), std::string(status) + " 00 00 00 0A 00");

        EXPECT_THAT(LastLine(bootloader_), testing::EndsWith("nack fault"));
        EXPECT_EQ(bootloader_.Memory().Read(0x08000000, 1), Hex("55"));
        Ask("clear");
        EXPECT_EQ(Ask(request), kDownloadIdle) << "the next time";
    }
}

TEST_F(Dfuse, HangsOrVanishesBeforeAnythingIsErasedOrProgrammedUntilTheReset)
{
    for (auto const kind :
         {FaultKind::kVanishInErase, FaultKind::kVanishInWrite, FaultKind::kSilentInWrite}) {
        bootloader_.Memory().Load(0x08000000, Hex("55"));
        bootloader_.Faults().Add({kind});
        EXPECT_EQ(Ask(kind == FaultKind::kVanishInErase ? kEraseFirstPage : "download 2 00"),
                  "done");

        EXPECT_EQ(Ask("status"), "none");

        EXPECT_EQ(bootloader_.HasLeft(), kind != FaultKind::kSilentInWrite);
        EXPECT_EQ(bootloader_.Memory().Read(0x08000000, 1), Hex("55"));
        bootloader_.Reset();
        EXPECT_FALSE(bootloader_.HasLeft());
        EXPECT_EQ(Ask("status"), kIdle);
    }
}

TEST_F(Dfuse, HangsAtACommandUntilTheReset)
{
    bootloader_.Faults().Add({FaultKind::kSilentAtCommand, 2});
    EXPECT_EQ(Ask(kCarryOutSetAddress), kDownloadIdle);
    EXPECT_EQ(Ask(kEraseFirstPage), "none");
    EXPECT_EQ(Ask("state"), "none");
    EXPECT_FALSE(bootloader_.HasLeft());
    bootloader_.Reset();
    EXPECT_EQ(Ask("carry-out 0 41 00 00 00 08"), kDownloadIdle);
}

TEST_F(Dfuse, IsBusyForEverWhenItIsStuckInAWrite)
{
    bootloader_.Faults().Add({FaultKind::kStuckInWrite});
    Ask("download 2 01");
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(Ask("status"), "00 64 00 00 04 00");
        now_ += 1h;
    }
    EXPECT_EQ(Ask("abort"), "stall");
}

TEST_F(Dfuse, IgnoresEverythingWhileItIsSilent)
{
    bootloader_.SetSilent(true);
    EXPECT_EQ(Ask("status"), "none");
    bootloader_.SetSilent(false);
    EXPECT_EQ(Ask("status"), kIdle);
}

}  // namespace
}  // namespace simulator
