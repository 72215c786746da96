// The simulated unit in serial recovery mode: its bytes, its answers, its faults, its journal.
#include "simulator/bootloaders/mcuboot_recovery.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/simulator/recovery_client.h"

namespace simulator {
namespace {

using test::Ask;
using test::AskForMap;
using test::BodyOf;
using test::MakeRequest;
using test::ToArray;
using test::ToBytes;

// Maps in hexadecimal. {"off": 4, "data": AA BB} and the like stand as literals in the tests.
constexpr auto kEmptyMap = "bfff";
constexpr auto kOk = "bf62726300ff";
constexpr auto kInvalid = "bf62726303ff";
// {"data": 01 02 03 04, "off": 0, "len": 6, "image": 0}, {"data": 05 06, "off": 4}
constexpr auto kFirstChunk = "bf64646174614401020304636f666600636c656e0665696d61676500ff";
constexpr auto kSecondChunk = "bf6464617461420506636f666604ff";
// {"rc": 0, "off": N}
constexpr auto kFourStored = "bf62726300636f666604ff";
constexpr auto kSixStored = "bf62726300636f666606ff";

McubootRecoveryOptions WithModelId(std::vector<std::byte> value)
{
    McubootRecoveryOptions options;
    options.otp[kModelIdKey] = std::move(value);
    return options;
}

McubootRecovery UnitWithFault(FaultKind kind, uint32_t parameter = 0, unsigned at = 1)
{
    McubootRecovery unit({});
    unit.Faults().Add({kind, at, 1, parameter});
    return unit;
}

QByteArray First()
{
    return MakeRequest(test::kUpload, kFirstChunk);
}

QByteArray Second()
{
    return MakeRequest(test::kUpload, kSecondChunk, 1);
}

std::vector<std::string> Lines(McubootRecovery const& unit)
{
    std::vector<std::string> lines;
    for (auto const& entry : unit.GetJournal().Entries()) {
        lines.push_back(ToText(entry));
    }
    return lines;
}

QByteArray Stored(McubootRecovery const& unit, size_t size)
{
    return ToArray(unit.Memory().Read(kFlashStart, size)).toHex();
}

// ---- Bytes ----

TEST(RecoveryBytes, RequestIsTakenAsItGoesOverTheWire)
{
    McubootRecovery unit({});

    EXPECT_FALSE(Ask(unit,
                     "\x06\x09"
                     "AAwAAAACAAEAAL//xLc=\n")
                     .isEmpty());
    EXPECT_EQ(Lines(unit).back(), "image-state seq=0 ack");
    Ask(unit,
        "\x06\x09"
        "ABUAAAALAEACAL9ja2V5GjympK//IVw=\n");
    EXPECT_EQ(Lines(unit).back(), "read-otp 0x3ca6a4af seq=2 keys=key nack rc=5");
    Ask(unit,
        "\x06\x09"
        "AAwCAAACAAH/Bb//um4=\n");
    EXPECT_EQ(Lines(unit).back(), "erase-slot seq=255 ack");
    Ask(unit,
        "\x06\x09"
        "ABoCAAAQAAEBAb9kZGF0YUGqY29mZhkFy/93TQ==\n");
    EXPECT_EQ(Lines(unit).back(), "upload 0x000005cb 1 seq=1 keys=data,off nack rc=3");
}

TEST(RecoveryBytes, AnswerIsStampedByTheRuleForAnswersAndNotByThatForRequests)
{
    QByteArray value(12, '\0');
    value[0] = 0x0C;
    McubootRecovery unit(WithModelId(ToBytes(value)));

    auto const answer = Ask(unit, MakeRequest(test::kReadOtp, "bf636b65791a01234711ff", 1));

    EXPECT_EQ(answer,
              "\x06\x09"
              "ACIBAAAYAEABAL9icmMAZGRhdGFMDAAAAAAAAAAAAAAA/9y2\n");
    EXPECT_NE(BodyOf(answer).last(2).toHex(), "e182") << "the rule for requests";
}

TEST(RecoveryBytes, RequestInPiecesOfAnySizeIsTheSame)
{
    auto const request = First() + Second();
    for (qsizetype size = 1; size <= request.size(); ++size) {
        McubootRecovery unit({});
        for (qsizetype at = 0; at < request.size(); at += size) {
            Ask(unit, request.mid(at, size));
        }
        EXPECT_EQ(Stored(unit, 7), "010203040506ff") << size;
    }
}

TEST(RecoveryBytes, EverySingleWrongByteOfARequestLeavesItWithoutAnAnswer)
{
    auto const good = First();
    for (qsizetype at = 0; at < good.size(); ++at) {
        for (int bit = 0; bit < 8; ++bit) {
            auto bad = good;
            bad[at] = static_cast<char>(bad[at] ^ (1 << bit));
            McubootRecovery unit({});
            EXPECT_EQ(Ask(unit, bad), "") << at << " bit " << bit;
        }
    }
}

TEST(RecoveryBytes, JournalTellsWhyALineIsNoRequest)
{
    McubootRecovery unit({});
    auto const body = test::MakeBody(test::kImageState, kEmptyMap);
    auto stamped_as_an_answer = body;
    stamped_as_an_answer[12] = static_cast<char>(stamped_as_an_answer[12] ^ 0x11);

    for (auto const& [line, why] :
         {std::pair{QByteArray("hello\n"), "marker"}, std::pair{QByteArray("\n"), "marker"},
          std::pair{"\x04\x14" + body.toBase64() + '\n', "marker"},
          std::pair{"\x06\x09" + body.toBase64() + "\r\n", "base64"},
          std::pair{QByteArray("\x06\x09\n"), "base64"},
          std::pair{QByteArray("\x06\x09"
                               "AA=A\n"),
                    "base64"},
          std::pair{"\x06\x09" + body.toBase64().first(8) + '\n', "length"},
          std::pair{test::ToLine(body + QByteArray(3, '\0')), "length"},
          std::pair{test::ToLine(stamped_as_an_answer), "checksum"}}) {
        EXPECT_EQ(Ask(unit, line), "");
        EXPECT_EQ(Lines(unit).back(), std::string("line silent ") + why);
    }
}

TEST(RecoveryBytes, LineIsTakenUpToTheBufferAndDroppedBeyondIt)
{
    auto const request = MakeRequest(test::kImageState, kEmptyMap);
    McubootRecoveryOptions options;
    options.line_buffer = static_cast<size_t>(request.size());
    McubootRecovery fits(options);
    --options.line_buffer;
    McubootRecovery too_long(options);

    EXPECT_FALSE(Ask(fits, request).isEmpty());
    EXPECT_EQ(Ask(too_long, request), "");
    EXPECT_EQ(Lines(too_long).back(), "line silent too-long");
}

TEST(RecoveryBytes, AnswerCanBeSplitOverAStartAndContinuationLines)
{
    McubootRecoveryOptions options;
    options.answer_line = 16;
    McubootRecovery split(options);
    McubootRecovery whole({});
    auto const request = MakeRequest(test::kErase, kEmptyMap);

    auto const answer = Ask(split, request);

    // Body of 18 bytes: 24 characters.
    EXPECT_EQ(answer.size(), 2 + 16 + 1 + 2 + 8 + 1);
    EXPECT_EQ(answer.first(2), "\x06\x09");
    EXPECT_EQ(answer.mid(19, 2), "\x04\x14");
    EXPECT_EQ(BodyOf(answer), BodyOf(Ask(whole, request)));
}

TEST(RecoveryBytes, MapOfAnAnswerCanBeOfDefiniteLength)
{
    McubootRecoveryOptions options;
    options.definite_maps = true;
    McubootRecovery unit(options);

    EXPECT_EQ(AskForMap(unit, MakeRequest(test::kErase, kEmptyMap)), "a162726300");
    EXPECT_EQ(AskForMap(unit, MakeRequest(test::kErase, "a0")), "a162726300");
}

// ---- Requests ----

TEST(McubootRecovery, TellsItsImages)
{
    McubootRecovery unit({});

    // {"images": [{"slot": 0, "version": "0.0.0"}], "rc": 0}
    EXPECT_EQ(AskForMap(unit, MakeRequest(test::kImageState, kEmptyMap)),
              "bf66696d6167657381a264736c6f74006776657273696f6e65302e302e3062726300ff");
    EXPECT_EQ(unit.Status().connects, 1U);
    EXPECT_EQ(unit.Status().state, UnitState::kSynchronised);
}

TEST(McubootRecovery, AnswersWithTheGroupSequenceAndCommandOfTheRequest)
{
    McubootRecovery unit({});

    auto const body = BodyOf(Ask(unit, MakeRequest(test::kErase, kEmptyMap, 0x42)));

    EXPECT_EQ(body.mid(2, 8).toHex(), "0300000600014205");
}

TEST(McubootRecovery, ReadsOtpThatIsThereMissingOrEmpty)
{
    auto const request = MakeRequest(test::kReadOtp, "bf636b65791a01234711ff");
    McubootRecovery found(WithModelId({std::byte{12}}));
    McubootRecovery empty(WithModelId({}));
    McubootRecovery missing({});

    EXPECT_EQ(AskForMap(found, request),
              "bf6272630064646174614"
              "10cff");
    EXPECT_EQ(AskForMap(empty, request), "bf62726300646461746140ff");
    EXPECT_EQ(AskForMap(missing, request), "bf62726305ff");
    EXPECT_EQ(Lines(found).back(), "read-otp 0x01234711 seq=0 keys=key ack");
}

TEST(McubootRecovery, StoresAnImageAndTellsTheNextOffset)
{
    McubootRecovery unit({});
    unit.Memory().Load(kFlashStart, std::vector(4096, std::byte{0}));

    EXPECT_EQ(AskForMap(unit, First()), kFourStored);
    EXPECT_EQ(AskForMap(unit, Second()), kSixStored);

    EXPECT_EQ(Stored(unit, 7), "010203040506ff") << "the page was erased first";
    auto const status = unit.Status();
    EXPECT_EQ(status.image_size, 6U);
    EXPECT_EQ(status.stored, 6U);
    EXPECT_EQ(status.writes, 2U);
    EXPECT_EQ(status.erased_pages, 1U);
    EXPECT_EQ(status.programmed_over_unerased, 0U);
    EXPECT_EQ(Lines(unit),
              (std::vector<std::string>{"upload 0x00000000 4 seq=0 keys=data,off,len,image ack",
                                        "upload 0x00000004 2 seq=1 keys=data,off ack"}));
}

TEST(McubootRecovery, DoesNotStoreAChunkThatIsNotDueAndAsksForTheOneThatIs)
{
    McubootRecovery unit({});
    Ask(unit, First());
    Ask(unit, Second());

    EXPECT_EQ(AskForMap(unit, Second()), kSixStored);
    EXPECT_EQ(unit.Status().writes, 2U);
}

TEST(McubootRecovery, RefusesAChunkThatIsNoPartOfAnImage)
{
    McubootRecovery unit({});

    // No image begun; no length; no data; no offset; beyond the image; an image beyond the slot.
    EXPECT_EQ(AskForMap(unit, Second()), kInvalid);
    EXPECT_EQ(AskForMap(unit, MakeRequest(test::kUpload, "bf646461746141aa636f666600ff")),
              kInvalid);
    EXPECT_EQ(AskForMap(unit, MakeRequest(test::kUpload, "bf636f666600636c656e01ff")), kInvalid);
    EXPECT_EQ(AskForMap(unit, MakeRequest(test::kUpload, "bf646461746141aaff")), kInvalid);
    Ask(unit, First());
    EXPECT_EQ(AskForMap(unit, MakeRequest(test::kUpload, "bf6464617461420506636f666605ff")),
              kInvalid);
    EXPECT_EQ(AskForMap(unit, MakeRequest(test::kUpload,
                                          "bf646461746141aa636f666600636c656e1a00080001ff")),
              kInvalid);
}

TEST(McubootRecovery, RefusesAChunkThatBeginsWhereTheImageEnds)
{
    McubootRecovery small({});
    Ask(small, First());
    Ask(small, Second());
    EXPECT_EQ(AskForMap(small, MakeRequest(test::kUpload, "bf646461746140636f666606ff")), kInvalid);
    EXPECT_EQ(small.Status().writes, 2U);

    // An image that ends with the flash, behind which there is nothing to write to.
    auto full = UnitWithFault(FaultKind::kAskForOffset, 0x00080000, 2);
    auto const end = MakeRequest(test::kUpload, "bf646461746140636f66661a00080000ff");
    Ask(full, MakeRequest(test::kUpload, "bf646461746141aa636f666600636c656e1a00080000ff"));
    EXPECT_EQ(AskForMap(full, end), "bf62726300636f66661a00080000ff") << "the fault";
    EXPECT_EQ(AskForMap(full, end), kInvalid);
}

TEST(McubootRecovery, RefusesAMapThatItCannotReadAndACommandThatItDoesNotKnow)
{
    McubootRecovery unit({});

    for (auto const* map : {"", "bf", "bf62", "80", "bf6272", "bfffff", "bf01ff", "bf6272639fff",
                            "a2627263", "bf627263fbff", "bf7bffffffffffffffffff"}) {
        EXPECT_EQ(AskForMap(unit, MakeRequest(test::kUpload, map)), kInvalid) << map;
    }
    EXPECT_EQ(AskForMap(unit, MakeRequest({0, 1, 7}, kEmptyMap)), "bf62726308ff");
    EXPECT_EQ(Lines(unit).back(), "request-0/1/7 seq=0 nack rc=8");
}

TEST(McubootRecovery, ErasesItsSlotAndForgetsTheUpload)
{
    McubootRecovery unit({});
    Ask(unit, First());

    EXPECT_EQ(AskForMap(unit, MakeRequest(test::kErase, kEmptyMap)), kOk);

    EXPECT_EQ(Stored(unit, 4), "ffffffff");
    EXPECT_EQ(AskForMap(unit, Second()), kInvalid);
}

TEST(McubootRecovery, IsGoneAfterTheRequestToRestartUntilItIsResetByHand)
{
    McubootRecovery unit({});
    Ask(unit, First());

    EXPECT_EQ(AskForMap(unit, MakeRequest(test::kReset, kEmptyMap)), kOk);
    EXPECT_EQ(unit.Status().state, UnitState::kRunning);
    EXPECT_EQ(Ask(unit, First()), "");

    unit.Reset();
    EXPECT_EQ(unit.Status().state, UnitState::kWaitingForSync);
    EXPECT_EQ(AskForMap(unit, Second()), kInvalid) << "an upload does not survive it";
    EXPECT_EQ(Stored(unit, 4), "01020304");
}

TEST(McubootRecovery, TakesTheTimesOfItsFlash)
{
    McubootRecoveryOptions options;
    options.times = kRealTimes;
    McubootRecovery unit(options);

    auto const first = unit.Receive(ToBytes(First()));
    auto const second = unit.Receive(ToBytes(Second()));

    // One page, one double word; one double word.
    ASSERT_EQ(first.size(), 1U);
    EXPECT_EQ(first[0].busy, std::chrono::microseconds(24500 + 82));
    EXPECT_EQ(second[0].busy, std::chrono::microseconds(82));
}

// ---- Faults ----

TEST(RecoveryFaults, EveryKindStrikesOnceAndAllIsWellAfterAReset)
{
    auto const update = [](McubootRecovery& unit) {
        auto const first = Ask(unit, First());
        return first + Ask(unit, Second());
    };
    McubootRecovery undisturbed({});
    auto const good = update(undisturbed);

    for (auto const kind : kMcubootFaultKinds) {
        auto unit = UnitWithFault(kind, 3);

        auto const answers = update(unit);
        if (kind != FaultKind::kLateAnswer) {
            EXPECT_NE(answers, good) << GetName(kind);
        }
        EXPECT_EQ(unit.Faults().Strikes(), 1U) << GetName(kind);

        unit.Faults().Clear();
        unit.Reset();
        EXPECT_EQ(update(unit), good) << GetName(kind);
        EXPECT_EQ(Stored(unit, 6), "010203040506") << GetName(kind);
    }
}

TEST(RecoveryFaults, SpoilTheAnswerAndNothingElse)
{
    McubootRecovery undisturbed({});
    auto const good = Ask(undisturbed, First());
    auto const answer_with = [](FaultKind kind, uint32_t parameter) {
        auto unit = UnitWithFault(kind, parameter);
        auto const answer = Ask(unit, First());
        EXPECT_EQ(unit.Status().stored, 4U);
        return answer;
    };

    EXPECT_EQ(answer_with(FaultKind::kDropAnswer, 0), "");
    EXPECT_EQ(answer_with(FaultKind::kCutAnswer, 10), good.first(10));
    EXPECT_EQ(answer_with(FaultKind::kForeignLineBefore, 0),
              "[00:00:01.250] flash: 2 areas\r\n" + good);
    EXPECT_EQ(answer_with(FaultKind::kForeignLineAfter, 0),
              good + "[00:00:01.250] flash: 2 areas\r\n");
    auto const body = BodyOf(good);
    EXPECT_EQ(BodyOf(answer_with(FaultKind::kWrongCount, 0x0123)), "\x01\x23" + body.mid(2));
    auto const wrong_check = BodyOf(answer_with(FaultKind::kWrongCheckValue, 0x0180));
    EXPECT_EQ(wrong_check.chopped(2), body.chopped(2));
    EXPECT_EQ(wrong_check.back(), static_cast<char>(body.back() ^ 0x80));
    EXPECT_EQ(wrong_check[wrong_check.size() - 2], static_cast<char>(body[body.size() - 2] ^ 1));
}

TEST(RecoveryFaults, MakeTheAnswerToTheFirstChunkLate)
{
    auto unit = UnitWithFault(FaultKind::kLateAnswer, 9900);

    auto const answers = unit.Receive(ToBytes(First()));

    ASSERT_EQ(answers.size(), 1U);
    EXPECT_EQ(answers[0].busy, std::chrono::milliseconds(9900));
}

TEST(RecoveryFaults, AnswerWithAnErrorAndDoNothingElse)
{
    auto any = UnitWithFault(FaultKind::kErrorCode, 7);
    EXPECT_EQ(AskForMap(any, First()), "bf62726307ff");
    EXPECT_EQ(any.Status().writes, 0U);

    auto in_upload = UnitWithFault(FaultKind::kErrorInUpload, 1, 2);
    EXPECT_EQ(AskForMap(in_upload, First()), kFourStored);
    EXPECT_EQ(AskForMap(in_upload, Second()), "bf62726301ff");
    EXPECT_EQ(Lines(in_upload).back(), "upload 0x00000004 2 seq=1 keys=data,off nack rc=1");
    EXPECT_EQ(AskForMap(in_upload, Second()), kSixStored);
}

TEST(RecoveryFaults, AskForAnotherOffsetAndGoOnThere)
{
    auto rewinding = UnitWithFault(FaultKind::kAskForOffset, 0, 2);
    Ask(rewinding, First());
    EXPECT_EQ(AskForMap(rewinding, Second()), "bf62726300636f666600ff");
    EXPECT_EQ(AskForMap(rewinding, First()), kFourStored);
    EXPECT_EQ(AskForMap(rewinding, Second()), kSixStored);

    auto jumping = UnitWithFault(FaultKind::kAskForOffset, 5, 2);
    Ask(jumping, First());
    EXPECT_EQ(AskForMap(jumping, Second()), "bf62726300636f666605ff");
    EXPECT_EQ(AskForMap(jumping, MakeRequest(test::kUpload, "bf646461746141aa636f666605ff")),
              kSixStored);
    EXPECT_EQ(Stored(jumping, 6), "01020304ffaa");

    auto below_zero = UnitWithFault(FaultKind::kAskForOffset, 0xFFFFFFFF, 1);
    EXPECT_EQ(AskForMap(below_zero, First()), "bf62726300636f666620ff");
}

TEST(RecoveryFaults, StayAtAnOffsetOrDoNotTellIt)
{
    auto staying = UnitWithFault(FaultKind::kKeepOffset, 0, 2);
    Ask(staying, First());
    EXPECT_EQ(AskForMap(staying, Second()), kFourStored);
    EXPECT_EQ(AskForMap(staying, Second()), kSixStored);

    auto untold = UnitWithFault(FaultKind::kOmitOffset, 0, 2);
    Ask(untold, First());
    EXPECT_EQ(AskForMap(untold, Second()), kOk);
    EXPECT_EQ(Stored(untold, 6), "010203040506");
}

TEST(RecoveryFaults, HangOrVanishInFrontOfAChunk)
{
    for (auto const kind : {FaultKind::kSilentInWrite, FaultKind::kVanishInWrite}) {
        auto unit = UnitWithFault(kind, 0, 2);
        Ask(unit, First());

        EXPECT_EQ(Ask(unit, Second()), "");
        EXPECT_EQ(Ask(unit, First()), "") << "until the reset";
        EXPECT_EQ(unit.HasLeft(), kind == FaultKind::kVanishInWrite);
        EXPECT_EQ(Stored(unit, 6), "01020304ffff");
        EXPECT_EQ(Lines(unit).back(), "upload 0x00000004 2 seq=1 keys=data,off silent fault");
    }
}

}  // namespace
}  // namespace simulator
