// The simulated unit in serial recovery mode: its bytes, its answers, its habits, its faults, its
// journal.
#include "simulator/bootloaders/mcuboot_recovery.h"

#include <gmock/gmock.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tests/simulator/conversation.h"
#include "tests/simulator/recovery_client.h"

namespace simulator {
namespace {

using test::Ask;
using test::AskForMap;
using test::BodyOf;
using test::LastLine;
using test::MakeRequest;
using test::ToArray;
using test::ToBytes;

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
// The image-state request, as literal base64.
QByteArray const kState = "AAwAAAACAAEAAL//xLc=";

McubootRecovery UnitWithFault(FaultKind kind, uint32_t parameter = 0, unsigned at = 1)
{
    McubootRecovery unit({});
    unit.Faults().Add({kind, at, 1, parameter});
    return unit;
}

// The answer's map: "rc N" for {"rc": N}, "off N" for {"rc": 0, "off": N}, others in hexadecimal.
std::string MapToText(QByteArray const& map)
{
    auto const code = static_cast<int>(map.mid(map.size() - 4, 2).toUInt(nullptr, 16));
    auto const value = std::to_string(code < 0x20 ? code : 0x1F - code);
    return map.size() == 12 && map.startsWith("bf627263")             ? "rc " + value
           : map.size() == 22 && map.startsWith("bf62726300636f6666") ? "off " + value
                                                                      : map.toStdString();
}

// The answer's map, as text, to a request: "first", "second", "erase", "restart", "upload MAP", or
// "OPERATION GROUP COMMAND MAP".
std::string AskByName(McubootRecovery& unit, std::string const& request)
{
    static std::map<std::string, QByteArray> const kNamed{
        {"first", kFirst}, {"second", kSecond}, {"erase", kErase}, {"restart", kRestart}};
    if (auto const named = kNamed.find(request); named != kNamed.end()) {
        return MapToText(AskForMap(unit, named->second));
    }
    auto const words = QByteArray::fromStdString(request).split(' ');
    auto const number = [&](int at) { return static_cast<uint8_t>(words.at(at).toUInt()); };
    return MapToText(AskForMap(
        unit, words.size() == 2 ? Upload(words.at(1))
                                : MakeRequest(number(0), number(1), number(2), words.value(3))));
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
        EXPECT_EQ(LastLine(unit), entry);
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

TEST(RecoveryBytes, AnswerHasTheHeaderOfItsRequest)
{
    McubootRecovery unit({});
    auto const answer = Ask(unit, MakeRequest(2, 1, 5, "bfff", 0x42));
    EXPECT_EQ(BodyOf(answer).mid(2, 8).toHex(), "0300000600014205");
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
          std::pair{MakeSmpLines(stamped_as_an_answer), "checksum"},
          // An answer, a request that no operation has, and a request with flags.
          std::pair{MakeRequest(1, 1, 0, "bfff"), "operation"},
          std::pair{MakeRequest(4, 1, 0, "bfff"), "operation"},
          std::pair{MakeSmpLines(MakeSmpRequest({0, 1, 0, 0, QByteArray::fromHex("bfff"), 1})),
                    "flags"}}) {
        EXPECT_EQ(Ask(unit, line), "");
        EXPECT_EQ(LastLine(unit), std::string("line silent ") + why);
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
    EXPECT_EQ(LastLine(too_long), "line silent too-long");
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

using Conversation = test::Conversation<McubootRecoveryOptions>;

class RecoveryConversations : public testing::TestWithParam<Conversation> {};

TEST_P(RecoveryConversations, GoAsTheProtocolSays)
{
    McubootRecovery unit(GetParam().options);
    test::ExpectConversation(unit, GetParam().steps,
                             [&](std::string const& request) { return AskByName(unit, request); });
}

std::vector<Conversation> ListConversations()
{
    McubootRecoveryOptions const usual;
    auto with_otp = usual;
    with_otp.otp[kModelIdKey] = {std::byte{12}};
    with_otp.otp[1] = {};
    auto definite = usual;
    definite.definite_maps = true;
    return {
        // {"images": [{"slot": 0, "version": "0.0.0"}], "rc": 0}
        {"ImageState",
         "0 1 0 bfff > bf66696d6167657381a264736c6f74006776657273696f6e65302e302e3062726300ff = "
         "image-state seq=0 ack; "
         "unit connects > 1; unit synchronised > yes"},
        {"ReadOfTheOtpArea",
         "0 64 0 bf636b65791a01234711ff > bf627263006464617461410cff = read-otp 0x01234711 seq=0 "
         "keys=key ack; "
         "0 64 0 bf636b657901ff > bf62726300646461746140ff = read-otp 0x00000001 seq=0 keys=key "
         "ack; "
         "0 64 0 bf636b657902ff > rc 5 = read-otp 0x00000002 seq=0 keys=key nack rc=5",
         with_otp},
        {"UnknownRequest", "0 1 7 bfff > rc 8 = request-0/1/7 seq=0 nack rc=8"},
        {"DefiniteMaps", "erase > a162726300; 2 1 5 a0 > a162726300 = erase-slot seq=0 ack",
         definite},
        {"UploadReturnsTheNextOffset",
         "load 0x08000000 00 00 00 00 00 00 00; "
         "first > off 4 = upload 0x00000000 4 seq=0 keys=data,off,len,image ack; "
         "second > off 6 = upload 0x00000004 2 seq=1 keys=data,off ack; "
         "memory 0x08000000 7 > 01 02 03 04 05 06 FF; unit image-size > 6; unit stored > 6; "
         "unit erased > 1; unit over-unerased > 0; second > off 6; unit writes > 2"},
        // No length, no data, no offset.
        {"ChunkWithoutAnImage",
         "second > rc 3; upload bf646461746141aa636f666600ff > rc 3; "
         "upload bf636f666600636c656e01ff > rc 3; upload bf646461746141aaff > rc 3"},
        // Slot 1, the slot "0", a later chunk for slot 1; and an image for the only slot, unnamed.
        {"ChunkForAnotherSlot",
         "upload bf6464617461410a636f666600636c656e0165696d61676501ff > rc 3; "
         "upload bf6464617461410a636f666600636c656e0165696d6167656130ff > rc 3; unit erased > 0; "
         "first > off 4; upload bf6464617461420506636f66660465696d61676501ff > rc 3; "
         "upload bf6464617461410a636f666600636c656e01ff > off 1"},
        // Beyond the image, where the image ends, and beyond the slot.
        {"ChunkOutsideOfTheImage",
         "first > off 4; second > off 6; upload bf6464617461420506636f666605ff > rc 3; "
         "upload bf646461746140636f666606ff > rc 3; "
         "upload bf646461746141aa636f666600636c656e1a00080001ff > rc 3; unit writes > 2"},
        // An image that ends with the flash: there is nothing to write to behind it.
        {"ChunkBehindTheFlash",
         "fault ask-for-offset 2 1 0x00080000; "
         "upload bf646461746141aa636f666600636c656e1a00080000ff > off 1; "
         "upload bf646461746140636f66661a00080000ff > bf62726300636f66661a00080000ff; "
         "upload bf646461746140636f66661a00080000ff > rc 3"},
        {"EraseForgetsTheUpload",
         "first > off 4; erase > rc 0; second > rc 3; memory 0x08000000 4 > FF FF FF FF"},
        {"IsGoneAfterTheRequestToRestartUntilItIsResetByHand",
         "first > off 4; restart > rc 0; unit state > running; first; reset; "
         "unit state > bootloader; second > rc 3; memory 0x08000000 4 > 01 02 03 04"},
        {"FaultErrorCode", "fault error-code 1 1 7; first > rc 7; unit writes > 0"},
        {"FaultErrorInUpload",
         "fault error-in-upload 2 1 1; first > off 4; "
         "second > rc 1 = upload 0x00000004 2 seq=1 keys=data,off nack rc=1; second > off 6"},
        {"FaultKeepOffset", "fault keep-offset 2; first > off 4; second > off 4; second > off 6"},
        {"FaultOmitOffset",
         "fault omit-offset 2; first > off 4; second > rc 0; "
         "memory 0x08000000 6 > 01 02 03 04 05 06"},
        {"FaultAskForTheFirstOffset",
         "fault ask-for-offset 2; first > off 4; second > off 0; first > off 4; second > off 6"},
        {"FaultAskForALaterOffset",
         "fault ask-for-offset 2 1 5; first > off 4; second > off 5; "
         "upload bf646461746141aa636f666605ff > off 6; memory 0x08000000 6 > 01 02 03 04 FF AA"},
        {"FaultAskForANegativeOffset", "fault ask-for-offset 1 1 0xFFFFFFFF; first > off -1"},
        {"FaultSilentInWrite",
         "fault silent-in-write 2; first > off 4; "
         "second > = upload 0x00000004 2 seq=1 keys=data,off silent fault; first; "
         "unit left > no; memory 0x08000000 6 > 01 02 03 04 FF FF"},
        {"FaultVanishInWrite",
         "fault vanish-in-write 2; first > off 4; "
         "second > = upload 0x00000004 2 seq=1 keys=data,off silent fault; first; "
         "unit left > yes; memory 0x08000000 6 > 01 02 03 04 FF FF"},
    };
}

INSTANTIATE_TEST_SUITE_P(, RecoveryConversations, testing::ValuesIn(ListConversations()),
                         test::NameOf<Conversation>);

TEST(McubootRecovery, RefusesAMapThatItCannotRead)
{
    McubootRecovery unit({});
    for (auto const* map :
         {"", "bf", "bf62", "80", "bf6272", "bfffff", "bfff00", "a000", "bf62726320ff", "bf01ff",
          "bf6272639fff", "a2627263", "bf627263fbff", "bf7bffffffffffffffffff"}) {
        EXPECT_EQ(AskForMap(unit, MakeRequest(2, 1, 5, map)), "bf62726303ff") << map;
    }
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

// ---- Habits ----

// "82 start": after 82 ms a start line. "continuation" and lines of text likewise.
std::vector<std::string> Describe(std::vector<Answer> const& answers)
{
    std::vector<std::string> lines;
    for (auto const& answer : answers) {
        auto const text = ToArray(answer.bytes);
        EXPECT_EQ(text.indexOf('\n'), text.size() - 1) << "one line each";
        auto const pause = std::chrono::duration_cast<std::chrono::milliseconds>(answer.busy);
        lines.push_back(std::to_string(pause.count()) + ' ' +
                        (text.startsWith("\x06\x09")   ? "start"
                         : text.startsWith("\x04\x14") ? "continuation"
                                                       : text.trimmed().toStdString()));
    }
    return lines;
}

std::vector<std::string> TalkAfter(std::string const& first_line)
{
    std::vector<std::string> lines(kTalkLines, "100 [00:00:01.250] flash: 2 areas");
    lines.front() = "0 " + first_line;
    return lines;
}

TEST(RecoveryHabits, PrintsABannerAtAResetAndTheConsoleAfterARestart)
{
    McubootRecoveryOptions options;
    options.talks = true;
    McubootRecovery unit(options);
    EXPECT_EQ(Describe(unit.TakeUnasked()), std::vector<std::string>()) << "not powered yet";
    unit.Reset();
    EXPECT_EQ(Describe(unit.TakeUnasked()), TalkAfter("*** Booting MCUboot ***"));

    auto console = TalkAfter("*** Booting application ***");
    console.insert(console.begin(), "0 start");
    EXPECT_EQ(Describe(unit.Receive(ToBytes(kRestart))), console);

    unit.Reset();
    auto late = TalkAfter("*** Booting MCUboot ***");
    late.emplace_back("0 start");
    EXPECT_EQ(Describe(unit.Receive(ToBytes(kErase))), late) << "not taken before";
}

TEST(RecoveryHabits, AreNotThoseOfAUnitThatHasNoOptions)
{
    McubootRecovery unit({});
    unit.Reset();
    EXPECT_EQ(Describe(unit.TakeUnasked()), std::vector<std::string>());
    EXPECT_EQ(Describe(unit.Receive(ToBytes(kErase))), std::vector<std::string>{"0 start"});
    EXPECT_EQ(Describe(unit.Receive(ToBytes(kRestart))), std::vector<std::string>{"0 start"});
}

TEST(RecoveryHabits, PausesBetweenTheLinesThatItSends)
{
    auto const log = std::string("0 [00:00:01.250] flash: 2 areas");
    struct {
        bool log_lines;
        size_t answer_line;
        std::vector<std::string> lines;
    } const rows[] = {
        {false, 0, {"0 start"}},
        {true, 0, {log, "20 start"}},
        // Body of 18 bytes: 24 characters.
        {false, 10, {"0 start", "20 continuation", "20 continuation"}},
        {true, 12, {log, "20 start", "20 continuation"}},
    };
    for (auto const& row : rows) {
        McubootRecoveryOptions options;
        options.log_lines = row.log_lines;
        options.answer_line = row.answer_line;
        options.line_pause = std::chrono::milliseconds(20);
        McubootRecovery unit(options);
        EXPECT_EQ(Describe(unit.Receive(ToBytes(kErase))), row.lines);
        unit.Faults().Add({FaultKind::kCutAnswer});
        EXPECT_EQ(Describe(unit.Receive(ToBytes(kErase))),
                  row.log_lines ? std::vector{log} : std::vector<std::string>())
            << "the log is not an answer";
    }
}

TEST(RecoveryHabits, LosesTheRestOfAPieceWhileItWorks)
{
    McubootRecoveryOptions options;
    options.times = kRealTimes;
    McubootRecovery busy(options);
    McubootRecovery idle({});
    EXPECT_TRUE(busy.IsDeafWhileBusy());
    for (auto* unit : {&idle, &busy}) {
        // The erase takes its time in one of them; what follows is half a request more.
        auto const answers =
            unit->Receive(ToBytes(kFirst + kSecond + "\x06\x09" + kState.first(4)));
        EXPECT_EQ(answers.size(), unit == &idle ? 2U : 1U);
        EXPECT_EQ(Ask(*unit, kState.sliced(4) + '\n').isEmpty(), unit == &busy);
        EXPECT_FALSE(Ask(*unit, "\x06\x09" + kState + '\n').isEmpty());
    }
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
        auto const is_only_slow = kind == FaultKind::kLateAnswer || kind == FaultKind::kSlowErase;
        EXPECT_EQ(answers == good, is_only_slow) << GetName(kind);
        EXPECT_EQ(unit.Faults().Strikes(), 1U) << GetName(kind);
        unit.Faults().Clear();
        unit.Reset();
        EXPECT_EQ(update(unit), good) << GetName(kind);
        EXPECT_EQ(Stored(unit, 6), "010203040506") << GetName(kind);
    }
}

TEST(RecoveryFaults, MakeAnEraseOfTheSlotSlow)
{
    for (auto const& request : {kFirst, kErase}) {
        auto unit = UnitWithFault(FaultKind::kSlowErase, 700);
        EXPECT_EQ(Describe(unit.Receive(ToBytes(request))), std::vector<std::string>{"700 start"});
        EXPECT_EQ(Describe(unit.Receive(ToBytes(request))), std::vector<std::string>{"0 start"});
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

}  // namespace
}  // namespace simulator
