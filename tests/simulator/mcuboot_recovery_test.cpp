// The simulated unit in serial recovery mode: its bytes, its answers, its faults, its journal.
#include "simulator/bootloaders/mcuboot_recovery.h"

#include <gmock/gmock.h>

#include <string>
#include <tuple>
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
using testing::ElementsAre;

// Maps of answers, in hexadecimal.
constexpr auto kOk = "bf62726300ff";
constexpr auto kInvalid = "bf62726303ff";
// {"rc": 0, "off": N}
constexpr auto kFourStored = "bf62726300636f666604ff";
constexpr auto kSixStored = "bf62726300636f666606ff";

QByteArray Upload(QByteArray const& map, uint8_t sequence = 0)
{
    return MakeRequest(2, 1, 1, map, sequence);
}

// An image of six bytes in two chunks:
// {"data": 01 02 03 04, "off": 0, "len": 6, "image": 0}, {"data": 05 06, "off": 4}
QByteArray const kFirst = Upload("bf64646174614401020304636f666600636c656e0665696d61676500ff");
QByteArray const kSecond = Upload("bf6464617461420506636f666604ff", 1);
QByteArray const kErase = MakeRequest(2, 1, 5, "bfff");
QByteArray const kRestart = MakeRequest(2, 0, 5, "bfff");
QByteArray const kReadModel = MakeRequest(0, 64, 0, "bf636b65791a01234711ff");
// The image-state request, as literal base64.
QByteArray const kState = "AAwAAAACAAEAAL//xLc=";

McubootRecovery UnitWithFault(FaultKind kind, uint32_t parameter = 0, unsigned at = 1)
{
    McubootRecovery unit({});
    unit.Faults().Add({kind, at, 1, parameter});
    return unit;
}

std::vector<QByteArray> AskForMaps(McubootRecovery& unit, std::vector<QByteArray> const& requests)
{
    std::vector<QByteArray> maps;
    for (auto const& request : requests) {
        maps.push_back(AskForMap(unit, request));
    }
    return maps;
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
    for (auto const& [text, entry] :
         {std::pair{kState.constData(), "image-state seq=0 ack"},
          std::pair{"ABUAAAALAEACAL9ja2V5GjympK//IVw=",
                    "read-otp 0x3ca6a4af seq=2 keys=key nack rc=5"},
          std::pair{"AAwCAAACAAH/Bb//um4=", "erase-slot seq=255 ack"},
          std::pair{"ABoCAAAQAAEBAb9kZGF0YUGqY29mZhkFy/93TQ==",
                    "upload 0x000005cb 1 seq=1 keys=data,off nack rc=3"}}) {
        EXPECT_FALSE(Ask(unit, QByteArray("\x06\x09") + text + '\n').isEmpty()) << entry;
        EXPECT_EQ(Lines(unit).back(), entry);
    }
    EXPECT_EQ(MakeRequest(0, 1, 0, "bfff"), "\x06\x09" + kState + '\n') << "the client's frames";
}

TEST(RecoveryBytes, AnswerIsStampedByTheRuleForAnswersAndNotByThatForRequests)
{
    std::vector value(12, std::byte{0});
    value[0] = std::byte{0x0C};
    McubootRecoveryOptions options;
    options.otp[kModelIdKey] = value;
    McubootRecovery unit(options);
    auto const answer = Ask(unit, MakeRequest(0, 64, 0, "bf636b65791a01234711ff", 1));
    EXPECT_EQ(answer,
              "\x06\x09"
              "ACIBAAAYAEABAL9icmMAZGRhdGFMDAAAAAAAAAAAAAAA/9y2\n");
    EXPECT_NE(BodyOf(answer).last(2).toHex(), "e182") << "the rule for requests";
}

TEST(RecoveryBytes, RequestInPiecesOfAnySizeIsTheSame)
{
    auto const request = kFirst + kSecond;
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
    for (qsizetype at = 0; at < kFirst.size(); ++at) {
        for (int bit = 0; bit < 8; ++bit) {
            auto bad = kFirst;
            bad[at] = static_cast<char>(bad[at] ^ (1 << bit));
            McubootRecovery unit({});
            EXPECT_EQ(Ask(unit, bad), "") << at << " bit " << bit;
        }
    }
}

TEST(RecoveryBytes, JournalSaysWhyALineIsNotARequest)
{
    McubootRecovery unit({});
    auto const stamped_as_an_answer = MakeSmpAnswer({0, 1, 0, 0, QByteArray::fromHex("bfff")});
    for (auto const& [line, why] :
         {std::pair{QByteArray("hello\n"), "marker"}, std::pair{QByteArray("\n"), "marker"},
          std::pair{"\x04\x14" + kState + '\n', "marker"},
          std::pair{"\x06\x09" + kState + "\r\n", "base64"},
          std::pair{QByteArray("\x06\x09\n"), "base64"},
          std::pair{QByteArray("\x06\x09"
                               "AA=A\n"),
                    "base64"},
          std::pair{"\x06\x09" + kState.first(8) + '\n', "length"},
          std::pair{MakeSmpLines(QByteArray::fromBase64(kState) + "more"), "length"},
          // The header claims three bytes of payload.
          std::pair{QByteArray("\x06\x09"
                               "AAwAAAADAAEAAL//fNY=\n"),
                    "length"},
          std::pair{MakeSmpLines(stamped_as_an_answer), "checksum"}}) {
        EXPECT_EQ(Ask(unit, line), "");
        EXPECT_EQ(Lines(unit).back(), std::string("line silent ") + why);
    }
}

TEST(RecoveryBytes, LineIsTakenUpToTheBufferAndDroppedBeyondIt)
{
    McubootRecoveryOptions options;
    options.line_buffer = static_cast<size_t>(kErase.size());
    McubootRecovery fits(options);
    --options.line_buffer;
    McubootRecovery too_long(options);
    EXPECT_FALSE(Ask(fits, kErase).isEmpty());
    EXPECT_EQ(Ask(too_long, kErase), "");
    EXPECT_EQ(Lines(too_long).back(), "line silent too-long");
}

TEST(RecoveryBytes, AnswerCanBeSplitOverAStartAndContinuationLines)
{
    McubootRecoveryOptions options;
    options.answer_line = 16;
    McubootRecovery split(options);
    McubootRecovery whole({});
    auto const answer = Ask(split, kErase);
    // Body of 18 bytes: 24 characters.
    EXPECT_EQ(answer.size(), 2 + 16 + 1 + 2 + 8 + 1);
    EXPECT_EQ(answer.first(2), "\x06\x09");
    EXPECT_EQ(answer.mid(19, 2), "\x04\x14");
    EXPECT_EQ(BodyOf(answer), BodyOf(Ask(whole, kErase)));
}

// ---- Requests ----

TEST(McubootRecovery, AnswersEachRequestWithItsMap)
{
    McubootRecoveryOptions options;
    options.otp[kModelIdKey] = {std::byte{12}};
    options.otp[1] = {};
    McubootRecovery unit(options);
    for (auto const& [request, map, entry] :
         {// {"images": [{"slot": 0, "version": "0.0.0"}], "rc": 0}
          std::tuple{MakeRequest(0, 1, 0, "bfff"),
                     "bf66696d6167657381a264736c6f74006776657273696f6e65302e302e3062726300ff",
                     "image-state seq=0 ack"},
          std::tuple{kReadModel, "bf627263006464617461410cff",
                     "read-otp 0x01234711 seq=0 keys=key ack"},
          std::tuple{MakeRequest(0, 64, 0, "bf636b657901ff"), "bf62726300646461746140ff",
                     "read-otp 0x00000001 seq=0 keys=key ack"},
          std::tuple{MakeRequest(0, 64, 0, "bf636b657902ff"), "bf62726305ff",
                     "read-otp 0x00000002 seq=0 keys=key nack rc=5"},
          std::tuple{MakeRequest(2, 1, 5, "a0"), kOk, "erase-slot seq=0 ack"},
          std::tuple{MakeRequest(0, 1, 7, "bfff"), "bf62726308ff",
                     "request-0/1/7 seq=0 nack rc=8"}}) {
        EXPECT_EQ(AskForMap(unit, request), map) << entry;
        EXPECT_EQ(Lines(unit).back(), entry);
    }
    EXPECT_EQ(unit.Status().connects, 1U);
    EXPECT_EQ(unit.Status().state, UnitState::kSynchronised);

    auto const answer = Ask(unit, MakeRequest(2, 1, 5, "bfff", 0x42));
    EXPECT_EQ(BodyOf(answer).mid(2, 8).toHex(), "0300000600014205") << "the header";
    options.definite_maps = true;
    McubootRecovery definite(options);
    EXPECT_EQ(AskForMap(definite, kErase), "a162726300");
}

TEST(McubootRecovery, StoresAnImageAndReturnsTheNextOffset)
{
    McubootRecovery unit({});
    unit.Memory().Load(kFlashStart, std::vector(4096, std::byte{0}));
    EXPECT_THAT(AskForMaps(unit, {kFirst, kSecond}), ElementsAre(kFourStored, kSixStored));
    EXPECT_EQ(Stored(unit, 7), "010203040506ff") << "the page was erased first";
    EXPECT_EQ(unit.Status().image_size, 6U);
    EXPECT_EQ(unit.Status().stored, 6U);
    EXPECT_EQ(unit.Status().erased_pages, 1U);
    EXPECT_EQ(unit.Status().programmed_over_unerased, 0U);
    EXPECT_THAT(Lines(unit), ElementsAre("upload 0x00000000 4 seq=0 keys=data,off,len,image ack",
                                         "upload 0x00000004 2 seq=1 keys=data,off ack"));
    // A chunk that is not due is not stored again.
    EXPECT_EQ(AskForMap(unit, kSecond), kSixStored);
    EXPECT_EQ(unit.Status().writes, 2U);
}

TEST(McubootRecovery, RefusesAChunkThatIsNotPartOfAnImage)
{
    for (auto const* map : {"bf6464617461420506636f666604ff",  // no image begun
                            "bf646461746141aa636f666600ff",    // no length
                            "bf636f666600636c656e01ff",        // no data
                            "bf646461746141aaff"}) {           // no offset
        McubootRecovery unit({});
        EXPECT_EQ(AskForMap(unit, Upload(map)), kInvalid) << map;
    }
    for (auto const* map : {"bf6464617461420506636f666605ff",  // beyond the image
                            "bf646461746140636f666606ff",      // where the image ends
                            "bf646461746141aa636f666600636c656e1a00080001ff"}) {  // beyond the slot
        McubootRecovery unit({});
        Ask(unit, kFirst);
        Ask(unit, kSecond);
        EXPECT_EQ(AskForMap(unit, Upload(map)), kInvalid) << map;
        EXPECT_EQ(unit.Status().writes, 2U) << map;
    }
    // An image that ends with the flash: there is nothing to write to behind it.
    auto full = UnitWithFault(FaultKind::kAskForOffset, 0x00080000, 2);
    auto const end = Upload("bf646461746140636f66661a00080000ff");
    Ask(full, Upload("bf646461746141aa636f666600636c656e1a00080000ff"));
    EXPECT_EQ(AskForMap(full, end), "bf62726300636f66661a00080000ff") << "the fault";
    EXPECT_EQ(AskForMap(full, end), kInvalid);
}

TEST(McubootRecovery, RefusesAMapThatItCannotRead)
{
    McubootRecovery unit({});
    for (auto const* map :
         {"", "bf", "bf62", "80", "bf6272", "bfffff", "bfff00", "a000", "bf62726320ff", "bf01ff",
          "bf6272639fff", "a2627263", "bf627263fbff", "bf7bffffffffffffffffff"}) {
        EXPECT_EQ(AskForMap(unit, MakeRequest(2, 1, 5, map)), kInvalid) << map;
    }
}

TEST(McubootRecovery, ErasesItsSlotAndForgetsTheUpload)
{
    McubootRecovery unit({});
    EXPECT_THAT(AskForMaps(unit, {kFirst, kErase, kSecond}),
                ElementsAre(kFourStored, kOk, kInvalid));
    EXPECT_EQ(Stored(unit, 4), "ffffffff");
}

TEST(McubootRecovery, IsGoneAfterTheRequestToRestartUntilItIsResetByHand)
{
    McubootRecovery unit({});
    EXPECT_THAT(AskForMaps(unit, {kFirst, kRestart}), ElementsAre(kFourStored, kOk));
    EXPECT_EQ(unit.Status().state, UnitState::kRunning);
    EXPECT_EQ(Ask(unit, kFirst), "");
    unit.Reset();
    EXPECT_EQ(unit.Status().state, UnitState::kWaitingForSync);
    EXPECT_EQ(AskForMap(unit, kSecond), kInvalid) << "an upload does not survive it";
    EXPECT_EQ(Stored(unit, 4), "01020304");
}

TEST(McubootRecovery, TakesTheTimesOfItsFlash)
{
    McubootRecoveryOptions options;
    options.times = kRealTimes;
    McubootRecovery unit(options);
    auto const first = unit.Receive(ToBytes(kFirst));
    auto const second = unit.Receive(ToBytes(kSecond));
    // One page, one double word; one double word.
    ASSERT_EQ(first.size(), 1U);
    EXPECT_EQ(first[0].busy, std::chrono::microseconds(24500 + 82));
    EXPECT_EQ(second[0].busy, std::chrono::microseconds(82));
}

// ---- Faults ----

TEST(RecoveryFaults, EveryKindStrikesOnceAndAllIsWellAfterAReset)
{
    auto const update = [](McubootRecovery& unit) {
        auto const first = Ask(unit, kFirst);
        return first + Ask(unit, kSecond);
    };
    McubootRecovery undisturbed({});
    auto const good = update(undisturbed);
    for (auto const kind : kMcubootFaultKinds) {
        auto unit = UnitWithFault(kind, 3);
        auto const answers = update(unit);
        EXPECT_EQ(answers == good, kind == FaultKind::kLateAnswer) << GetName(kind);
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
    auto const good = Ask(undisturbed, kFirst);
    auto const answer_with = [](FaultKind kind, uint32_t parameter) {
        auto unit = UnitWithFault(kind, parameter);
        auto const answer = Ask(unit, kFirst);
        EXPECT_EQ(unit.Status().stored, 4U);
        return answer;
    };
    QByteArray const foreign = "[00:00:01.250] flash: 2 areas\r\n";
    EXPECT_EQ(answer_with(FaultKind::kDropAnswer, 0), "");
    EXPECT_EQ(answer_with(FaultKind::kCutAnswer, 10), good.first(10));
    EXPECT_EQ(answer_with(FaultKind::kForeignLineBefore, 0), foreign + good);
    EXPECT_EQ(answer_with(FaultKind::kForeignLineAfter, 0), good + foreign);
    auto body = BodyOf(good);
    auto const wrong_count = BodyOf(answer_with(FaultKind::kWrongCount, 0x0123));
    EXPECT_EQ(wrong_count, "\x01\x23" + body.mid(2));
    auto const wrong_check = BodyOf(answer_with(FaultKind::kWrongCheckValue, 0x0180));
    body.back() = static_cast<char>(body.back() ^ 0x80);
    body[body.size() - 2] = static_cast<char>(body[body.size() - 2] ^ 0x01);
    EXPECT_EQ(wrong_check, body);
}

TEST(RecoveryFaults, MakeTheAnswerToTheFirstChunkLate)
{
    auto unit = UnitWithFault(FaultKind::kLateAnswer, 9900);
    auto const answers = unit.Receive(ToBytes(kFirst));
    ASSERT_EQ(answers.size(), 1U);
    EXPECT_EQ(answers[0].busy, std::chrono::milliseconds(9900));
}

TEST(RecoveryFaults, AnswerOtherwiseToOneRequestAndDoNothingElse)
{
    auto any = UnitWithFault(FaultKind::kErrorCode, 7);
    EXPECT_EQ(AskForMap(any, kFirst), "bf62726307ff");
    EXPECT_EQ(any.Status().writes, 0U);

    auto in_upload = UnitWithFault(FaultKind::kErrorInUpload, 1, 2);
    EXPECT_THAT(AskForMaps(in_upload, {kFirst, kSecond}), ElementsAre(kFourStored, "bf62726301ff"));
    EXPECT_EQ(Lines(in_upload).back(), "upload 0x00000004 2 seq=1 keys=data,off nack rc=1");
    EXPECT_EQ(AskForMap(in_upload, kSecond), kSixStored);

    auto staying = UnitWithFault(FaultKind::kKeepOffset, 0, 2);
    EXPECT_THAT(AskForMaps(staying, {kFirst, kSecond, kSecond}),
                ElementsAre(kFourStored, kFourStored, kSixStored));

    auto without_offset = UnitWithFault(FaultKind::kOmitOffset, 0, 2);
    EXPECT_THAT(AskForMaps(without_offset, {kFirst, kSecond}), ElementsAre(kFourStored, kOk));
    EXPECT_EQ(Stored(without_offset, 6), "010203040506");
}

TEST(RecoveryFaults, AskForAnotherOffsetAndGoOnThere)
{
    auto rewinding = UnitWithFault(FaultKind::kAskForOffset, 0, 2);
    EXPECT_THAT(AskForMaps(rewinding, {kFirst, kSecond, kFirst, kSecond}),
                ElementsAre(kFourStored, "bf62726300636f666600ff", kFourStored, kSixStored));

    auto jumping = UnitWithFault(FaultKind::kAskForOffset, 5, 2);
    auto const last_byte = Upload("bf646461746141aa636f666605ff");
    EXPECT_THAT(AskForMaps(jumping, {kFirst, kSecond, last_byte}),
                ElementsAre(kFourStored, "bf62726300636f666605ff", kSixStored));
    EXPECT_EQ(Stored(jumping, 6), "01020304ffaa");

    auto below_zero = UnitWithFault(FaultKind::kAskForOffset, 0xFFFFFFFF, 1);
    EXPECT_EQ(AskForMap(below_zero, kFirst), "bf62726300636f666620ff");
}

TEST(RecoveryFaults, HangOrVanishInFrontOfAChunk)
{
    for (auto const kind : {FaultKind::kSilentInWrite, FaultKind::kVanishInWrite}) {
        auto unit = UnitWithFault(kind, 0, 2);
        Ask(unit, kFirst);
        EXPECT_EQ(Ask(unit, kSecond), "");
        EXPECT_EQ(Ask(unit, kFirst), "") << "until the reset";
        EXPECT_EQ(unit.HasLeft(), kind == FaultKind::kVanishInWrite);
        EXPECT_EQ(Stored(unit, 6), "01020304ffff");
        EXPECT_EQ(Lines(unit).back(), "upload 0x00000004 2 seq=1 keys=data,off silent fault");
    }
}

}  // namespace
}  // namespace simulator
