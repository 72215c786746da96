// The simulated DFU bootloader, request by request.
#include "simulator/bootloaders/dfuse_bootloader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/simulator/conversation.h"
#include "tests/simulator/dfu_unit_test_support.h"

namespace simulator {
namespace {

using test::Bytes;
using test::Hex;
using test::LastLine;
using Conversation = test::Conversation<DfuseBootloaderOptions>;
using namespace std::chrono_literals;

std::string ToText(DfuAnswer const& answer)
{
    static constexpr std::array kKinds{"done", "stall", "none"};
    auto const hex = test::ToHex(answer.data);
    return answer.data.empty()                ? kKinds[static_cast<size_t>(answer.kind)]
           : hex == "00 00 00 00 02 00"       ? "idle"
           : hex == "00 00 00 00 05 00"       ? "ready"
           : hex.ends_with(" 00 00 00 0A 00") ? "error " + hex.substr(0, 2)
                                              : hex;
}

class Dfuse : public testing::Test {
protected:
    static DfuseBootloaderOptions Options()
    {
        return std::get<DfuseBootloaderOptions>(test::DfuOptions().bootloader);
    }

    // A request and its answer as text. Requests: "download BLOCK BYTES", "upload BLOCK LENGTH",
    // and by their names "status", "state", "clear", "abort" and "detach". Answers: bytes if there
    // are any, otherwise "done", "stall", or "none" for a unit that hangs. "carry-out BLOCK BYTES"
    // is a download and the two status requests that carry it out; the second one's answer. "wait
    // MILLISECONDS" only moves the clock.
    std::string Ask(std::string const& request)
    {
        if (request.starts_with("carry-out ")) {
            EXPECT_EQ(Ask("download" + request.substr(9)), "done") << request;
            EXPECT_THAT(Ask("status"), testing::EndsWith(" 04 00")) << request;
            return Ask("status");
        }
        std::istringstream stream(request);
        std::string name;
        uint32_t block = 0;
        stream >> name >> block;
        if (name == "wait") {
            now_ += std::chrono::milliseconds(block);
            return "";
        }
        std::string rest;
        std::getline(stream, rest);
        return ToText(
            bootloader_.Handle(MakeControl(name, static_cast<uint16_t>(block), rest), now_));
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

// ---- Conversations ----
// The answer to "status": status, three bytes of poll timeout, state, text. "idle" and "ready" (for
// the next block) have no timeout, and neither has "error STATUS".

class DfuseConversations : public Dfuse, public testing::WithParamInterface<Conversation> {};

TEST_P(DfuseConversations, GoAsTheStandardAndTheApplicationNoteSay)
{
    auto options = Options();
    options.chip = GetParam().options.chip;
    bootloader_ = DfuseBootloader(options);
    test::ExpectConversation(bootloader_, GetParam().steps,
                             [this](std::string const& request) { return Ask(request); });
}

DfuseBootloaderOptions WithHabits(WriteHabits const& habits)
{
    DfuseBootloaderOptions options;
    options.chip.write_habits = habits;
    return options;
}

std::vector<Conversation> ListConversations()
{
    return {
        {"BeginsIdle", "status > idle; state > 02; status > idle"},
        {"DownloadIsCarriedOutBetweenTwoStatusRequests",
         "download 0 21 00 00 00 08 > done; state > 03; status > 00 00 00 00 04 00; "
         "status > ready = set-address 0x08000000 ack"},
        {"NoOtherDownloadBeforeTheFirstIsCarriedOut",
         "download 0 21 00 00 00 08 > done; download 0 41 00 00 00 08 > stall; "
         "status > error 0F = download nack state; unit erased > 0"},
        {"RequestsThatDoNotBelongToTheState",
         "carry-out 0 21 00 00 00 08 > ready; upload 2 16 > stall; abort > stall; clear > done; "
         "status > idle; clear > stall; clear > done; detach > stall"},
        {"AbortMakesIdle",
         "carry-out 0 21 00 00 00 08 > ready; abort > done; status > idle; upload 2 2 > FF FF; "
         "state > 09; abort > done; status > idle"},
        {"AddressWithoutMemory",
         "carry-out 0 21 00 00 00 60 > error 01; clear > done; "
         "carry-out 0 41 00 00 08 08 > error 01; clear > done; "
         "carry-out 0 41 00 70 FF 1F > error 01; clear > done; "
         "carry-out 0 41 FF FF FF FF > error 01; unit erased > 0"},
        {"BlockPastTheEndOfTheFlash",
         "carry-out 0 21 FE FF 07 08 > ready; "
         "carry-out 2 01 02 03 > error 01 = write 0x0807fffe 3 nack address; clear > done; "
         "upload 2 2 > FF FF"},
        {"NotACommandOrNotABlock",
         "download 0 21 > stall = download nack unknown; status > error 0F; clear > done; "
         "download 0 21 00 00 00 > stall = download nack unknown; clear > done; "
         "download 0 21 00 00 00 08 00 > stall = download nack unknown; clear > done; "
         "download 0 41 00 > stall = download nack unknown; clear > done; "
         "download 0 33 > stall = download nack unknown; clear > done; "
         "download 0 00 > stall = download nack unknown; clear > done; "
         "download 1 01 > stall = download nack block; unit erased > 0"},
        {"ReadProtectionIsKept",
         "download 0 92 > stall; status > error 0B = read-unprotect nack refused"},
        {"UploadOfTheOtpArea",
         "carry-out 0 21 00 70 FF 1F > ready; abort > done; "
         "upload 2 5 > 11 47 23 01 07 = read 0x1fff7000 5 ack; state > 09; abort > done; "
         "upload 2 1025 > stall = read 0x1fff7000 1025 nack address; status > error 01"},
        {"UploadOfTheListOfCommands",
         "upload 0 64 > 00 21 41 92; status > idle; upload 0 2 > 00 21"},
        {"UploadOfWhatIsNotThere",
         "upload 1 16 > stall; clear > done; upload 2 2049 > stall; status > error 0F"},
        {"ErasesThePageThatHoldsTheAddress",
         "load 0x080007FF 00 00; load 0x08000FFF 00 00; "
         "carry-out 0 41 FF 0F 00 08 > ready = erase 0x08000fff ack; "
         "memory 0x080007FF 2 > 00 FF; memory 0x08000FFF 2 > FF 00; unit erased > 1"},
        {"ErasesEverythingWhenNoAddressIsNamed",
         "load 0x08000000 00; load 0x0807FFFF 00; carry-out 0 41 > ready = erase all ack; "
         "memory 0x08000000 1 > FF; memory 0x0807FFFF 1 > FF; unit erased > 256"},
        {"WritesBlockTwoAtTheAddressPointerAndTheNextOnesAfterIt",
         "carry-out 0 21 00 10 00 08 > ready; carry-out 2 01 02 03 04 05 06 07 08 > ready; "
         "carry-out 4 11 12 13 14 15 16 17 18 > ready = write 0x08002000 8 ack; "
         "memory 0x08001000 4 > 01 02 03 04; memory 0x08002000 4 > 11 12 13 14; "
         "unit writes > 2; unit over-unerased > 0"},
        {"StoresOfABlockWhatTheFlashTakes",
         "carry-out 2 01 02 03 04 05 06 07 08 09 0A 0B > ready "
         "= write 0x08000000 11 ack incomplete; "
         "memory 0x08000000 11 > 01 02 03 04 05 06 07 08 FF FF FF; "
         "carry-out 2 11 12 13 14 15 16 17 18 > ready = write 0x08000000 8 ack not-erased; "
         "memory 0x08000000 4 > 01 02 03 04; unit over-unerased > 8; "
         "carry-out 0 21 04 00 00 08 > ready; "
         "carry-out 2 01 02 03 04 > ready = write 0x08000004 4 ack alignment"},
        {"FillsAnIncompleteUnitIfThatIsItsHabit",
         "carry-out 2 01 02 03 > ready = write 0x08000000 3 ack; memory 0x08000000 4 > 01 02 03 FF",
         WithHabits({.fills_last_unit = true})},
        {"EndsAWriteThatTheFlashDoesNotTakeWithAnErrorIfThatIsItsHabit",
         "carry-out 2 01 02 03 > error 03 = write 0x08000000 3 nack alignment; "
         "memory 0x08000000 1 > FF; clear > done; load 0x08000000 01; "
         "carry-out 2 01 02 03 04 05 06 07 08 > error 03 = write 0x08000000 8 nack not-erased; "
         "unit writes > 0",
         WithHabits({.reports_errors = true})},
        {"RamOfTheBootloader",
         "carry-out 0 21 00 00 00 20 > error 01 = set-address 0x20000000 nack address; "
         "clear > done; carry-out 0 21 00 40 00 20 > ready; carry-out 2 01 > ready; "
         "memory 0x20004000 1 > 01"},
        {"LeavesItsHostAfterAnEmptyDownloadAndIsBackAfterAReset",
         "carry-out 2 01 02 03 04 05 06 07 08 > ready; download 0 > done; state > 06; "
         "unit left > no; "
         "status > 00 00 00 00 07 00; unit left > yes; unit state > running; "
         "unit jump > 0x08000000; status > none; reset; unit left > no; status > idle; "
         "memory 0x08000000 4 > 01 02 03 04; unit jump > none"},
        {"IgnoresEverythingWhileItIsSilent", "silent on; status > none; silent off; status > idle"},
        {"FaultSlowErase",
         "fault slow-erase 1 1 70000; download 0 41 00 00 00 08 > done; "
         "status > 00 70 11 01 04 00; wait 69999; status > 00 01 00 00 04 00; wait 1; "
         "status > ready; unit erased > 1"},
        {"FaultErrorInWrite",
         "load 0x08000000 55; fault error-in-write 1 2 3; "
         "carry-out 2 01 > error 03 = write 0x08000000 1 nack fault; memory 0x08000000 1 > 55; "
         "clear-faults; fault error-in-write 1 1 7; clear > done; carry-out 2 01 > error 07; "
         "clear > done; carry-out 2 01 > ready"},
        {"FaultErrorInErase",
         "load 0x08000000 55; fault error-in-erase 1 1 4; "
         "carry-out 0 41 00 00 00 08 > error 04 = erase 0x08000000 nack fault; "
         "memory 0x08000000 1 > 55; clear > done; carry-out 0 41 00 00 00 08 > ready"},
        {"FaultVanishInErase",
         "load 0x08000000 55; fault vanish-in-erase; download 0 41 00 00 00 08 > done; "
         "status > none; unit left > yes; memory 0x08000000 1 > 55; reset; unit left > no; "
         "status > idle"},
        {"FaultVanishInWrite",
         "load 0x08000000 55; fault vanish-in-write; download 2 00 > done; status > none; "
         "unit left > yes; memory 0x08000000 1 > 55; reset; unit left > no; status > idle"},
        {"FaultSilentInWrite",
         "load 0x08000000 55; fault silent-in-write; download 2 00 > done; status > none; "
         "unit left > no; memory 0x08000000 1 > 55; reset; status > idle"},
        {"FaultSilentAtCommand",
         "fault silent-at-command 2; carry-out 0 21 00 00 00 08 > ready; "
         "download 0 41 00 00 00 08 > none; state > none; unit left > no; reset; "
         "carry-out 0 41 00 00 00 08 > ready"},
        {"FaultStuckInWrite",
         "fault stuck-in-write; download 2 01 > done; status > 00 64 00 00 04 00; wait 3600000; "
         "status > 00 64 00 00 04 00; wait 3600000; status > 00 64 00 00 04 00; abort > stall"},
    };
}

INSTANTIATE_TEST_SUITE_P(, DfuseConversations, testing::ValuesIn(ListConversations()),
                         test::NameOf<Conversation>);

TEST_F(Dfuse, RefusesABlockThatIsTooLong)
{
    Bytes const block(2049);
    DfuControl const control{DfuRequest::kDownload, 2, 2049, block};
    EXPECT_EQ(ToText(bootloader_.Handle(control, now_)), "stall");
    EXPECT_EQ(LastLine(bootloader_), "download nack size");
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

TEST_F(Dfuse, CountsTheClientsThatClaimIt)
{
    EXPECT_EQ(bootloader_.Status().state, UnitState::kWaitingForSync);
    bootloader_.Claim();
    bootloader_.Claim();

    EXPECT_EQ(bootloader_.Status().connects, 2U);
    EXPECT_EQ(bootloader_.Status().state, UnitState::kSynchronised);
}

}  // namespace
}  // namespace simulator
