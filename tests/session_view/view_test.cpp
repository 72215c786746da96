// Recorded sessions of each transport as text: the conversation line by line, and the summary.
#include "session_view/view.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "record/pcapng_reader.h"
#include "session_view/exchanges.h"
#include "simulator/bootloaders/smp_line.h"
#include "tests/session_view/recorded_session.h"

using namespace std::chrono_literals;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

namespace events = record::events;
namespace fields = record::fields;

record::Recording Read(RecordedSession const& session)
{
    return record::ReadPcapng(session.Bytes());
}

std::string Show(RecordedSession const& session)
{
    return session_view::FormatConversation(Read(session)).toStdString();
}

std::string Summarise(RecordedSession const& session)
{
    return session_view::FormatSummary(Read(session)).toStdString();
}

// ---- UART ----

// A step of a conversation: after 1 ms these bytes go out, after 4 ms more those come in.
struct Step {
    char const* sent;
    char const* received;
};

RecordedSession MakeUartSession(std::vector<Step> const& steps)
{
    RecordedSession session;
    session.AddInterface(QStringLiteral("ttyUSB0"), QStringLiteral("UART, 460800 baud, 8E1"));
    for (auto const& [sent, received] : steps) {
        session.Wait(1ms);
        if (*sent != '\0') {
            session.Send(QByteArray::fromHex(sent));
        }
        session.Wait(4ms);
        if (*received != '\0') {
            session.Receive(QByteArray::fromHex(received));
        }
    }
    return session;
}

TEST(UartSession, EachCommandIsALineWithItsAnswerAndItsTime)
{
    struct Row {
        char const* name;
        std::vector<Step> steps;
        char const* line;
    };
    Row const rows[] = {
        {"start", {{"7f", "79"}}, "Start byte 0x7F: ACK after 4.0 ms\n"},
        {"get",
         {{"00ff", "790231001179"}},
         "Get: bootloader version 0x31, commands 00 11 after 4.0 ms\n"},
        {"get id", {{"02fd", "7901041579"}}, "Get ID: product id 0x0415 after 4.0 ms\n"},
        {"the other pair", {{"02fd", "7501041575"}}, "Get ID: product id 0x0415 after 4.0 ms\n"},
        {"read",
         {{"11ee", "79"}, {"1fff700090", "79"}, {"01fe", "79abcd"}},
         "Read Memory 0x1FFF7000, 2 bytes: ACK, ab cd after 4.0 ms\n"},
        {"write",
         {{"31ce", "79"}, {"080013001b", "79"}, {"03aabbccddff", "79"}},
         "Write Memory 0x08001300, 4 bytes: ACK after 4.0 ms\n"},
        {"refused command",
         {{"31ce", "1f"}},
         "Write Memory (no address): NACK to the command after 4.0 ms\n"},
        {"refused address",
         {{"31ce", "79"}, {"080013001b", "1f"}},
         "Write Memory 0x08001300: NACK to the address after 4.0 ms\n"},
        {"refused data",
         {{"31ce", "79"}, {"080013001b", "79"}, {"03aabbccddff", "1f"}},
         "Write Memory 0x08001300, 4 bytes: NACK to the data after 4.0 ms\n"},
        {"silence after the data",
         {{"31ce", "79"}, {"080013001b", "79"}, {"03aabbccddff", ""}},
         "Write Memory 0x08001300, 4 bytes: no answer to the data\n"},
        {"silence after the address",
         {{"31ce", "79"}, {"080013001b", ""}},
         "Write Memory 0x08001300: no answer to the address\n"},
        {"silence", {{"31ce", ""}}, "Write Memory (no address): no answer\n"},
        {"cut answer", {{"02fd", "790104"}}, "Get ID: 3 of 5 bytes: 79 01 04 after 4.0 ms\n"},
        {"cut list of commands",
         {{"00ff", "7902310079"}},
         "Get: 5 of 6 bytes: 79 02 31 00 79 after 4.0 ms\n"},
        {"refused read",
         {{"11ee", "79"}, {"1fff700090", "79"}, {"01fe", "1f"}},
         "Read Memory 0x1FFF7000, 2 bytes: NACK to the length after 4.0 ms\n"},
        {"cut data",
         {{"11ee", "79"}, {"1fff700090", "79"}, {"01fe", "791f"}},
         "Read Memory 0x1FFF7000, 2 bytes: 4 of 5 bytes: 79 79 79 1f after 4.0 ms\n"},
        {"erase", {{"43bc", "79"}, {"01000100", "79"}}, "Erase, 2 pages: ACK after 4.0 ms\n"},
        {"extended erase",
         {{"44bb", "79"}, {"00010000000100", "79"}},
         "Extended Erase, 2 pages: ACK after 4.0 ms\n"},
        {"refused erase",
         {{"44bb", "79"}, {"00010000000100", "1f"}},
         "Extended Erase, 2 pages: NACK to the pages after 4.0 ms\n"},
        {"go", {{"21de", "79"}, {"0800000008", "79"}}, "Go 0x08000000: ACK after 4.0 ms\n"},
        {"unknown command", {{"a05f", "1f"}}, "Command 0xa0: NACK to the command after 4.0 ms\n"},
        {"no command", {{"a0a0a0", "1f"}}, "Bytes a0 a0 a0: NACK after 4.0 ms\n"},
        {"unasked", {{"", "41"}, {"7f", "79"}}, "Unasked: 41\n"},
    };
    for (auto const& row : rows) {
        auto const shown = Show(MakeUartSession(row.steps));
        EXPECT_THAT(shown, HasSubstr(std::string("s  ") + row.line)) << row.name;
    }
}

TEST(UartSession, ABlockIsMarkedAsRepeatedWhicheverOfItsPartsWasRefused)
{
    for (auto const& refused : std::vector<std::vector<Step>>{
             {{"31ce", "1f"}},
             {{"31ce", "79"}, {"080013001b", "1f"}},
             {{"31ce", "79"}, {"080013001b", "79"}, {"03aabbccddff", "1f"}}}) {
        auto session = MakeUartSession(refused);
        for (auto const* sent : {"31ce", "080013001b", "03aabbccddff"}) {
            session.Send(QByteArray::fromHex(sent));
            session.Receive("\x79");
        }
        session.Send(QByteArray::fromHex("31ce"));

        auto const shown = Show(session);

        EXPECT_THAT(shown, HasSubstr("Write Memory 0x08001300, 4 bytes: ACK (repeated)\n"));
        EXPECT_THAT(shown, EndsWith("Write Memory (no address): no answer\n"));
        EXPECT_THAT(Summarise(session), HasSubstr(", 3 requests, 1 repeated\n"));
    }
}

TEST(UartSession, TheSummaryHasThePhasesTheSlowestAnswersAndTheLogsSentence)
{
    auto session = MakeUartSession({{"7f", "79"}, {"02fd", "7901041579"}});
    for (auto const* sent : {"44bb", "00010000000100"}) {
        session.Send(QByteArray::fromHex(sent));
        session.Wait(1500ms);
        session.Receive("\x79");
    }
    session.Note(events::kLog, fields::kText, QStringLiteral("update started"));
    session.Note(events::kLog, fields::kText,
                 QStringLiteral("update failed after 0 of 10 bytes and 1.0 s: why"));
    session.Note(events::kEnd, fields::kOutcome, QStringLiteral("failed"));

    EXPECT_EQ(Summarise(session),
              "Updater 1.0.0, Debian, x86_64\n"
              "2026-09-21T14:13:20.001Z, 3.009 s long\n"
              "ttyUSB0: UART, 460800 baud, 8E1\n"
              "outcome: failed\n"
              "connect: 0.009 s, 2 requests\n"
              "erase: 3.000 s, 1 request\n"
              "slowest answers:\n"
              "    Extended Erase, 2 pages: ACK after 1500.0 ms\n"
              "    Start byte 0x7F: ACK after 4.0 ms\n"
              "    Get ID: product id 0x0415 after 4.0 ms\n"
              "cause: update failed after 0 of 10 bytes and 1.0 s: why\n");
}

// ---- MCUboot ----

// The line of a request, with check values as the unit expects them.
QByteArray MakeRequest(uint16_t group, uint8_t command, QByteArray const& payload)
{
    return simulator::MakeSmpLines(simulator::MakeSmpRequest(
        {.operation = 2, .group = group, .sequence = 5, .command = command, .payload = payload}));
}

QByteArray MakeAnswer(QByteArray const& payload)
{
    return simulator::MakeSmpLines(simulator::MakeSmpAnswer(
        {.operation = 3, .group = 1, .sequence = 5, .command = 1, .payload = payload}));
}

// {"data": 3 bytes, "off": 256}
QByteArray const kChunk = QByteArray::fromHex("bf646461746143aabbcc636f6666190100ff");

RecordedSession MakeMcubootSession()
{
    RecordedSession session;
    session.AddInterface(QStringLiteral("ttyACM0"),
                         QStringLiteral("MCUboot serial, 921600 baud, 8N1"));
    return session;
}

TEST(McubootSession, EachRequestIsALineWithItsAnswerAndItsTime)
{
    auto const chunk = MakeRequest(1, 1, kChunk);
    struct Row {
        char const* name;
        QByteArray request;
        QByteArray answer;
        char const* line;
    };
    Row const rows[] = {
        {"image state", MakeRequest(1, 0, "\xa0"), MakeAnswer(QByteArray::fromHex("a162726300")),
         "Image state: rc 0 after 36.0 ms\n"},
        {"model", MakeRequest(64, 0, QByteArray::fromHex("bf636b65791a12345678ff")),
         MakeAnswer(QByteArray::fromHex("bf64646174614107ff")),
         "OTP value 0x12345678: data 07 after 36.0 ms\n"},
        {"accepted chunk", chunk, MakeAnswer(QByteArray::fromHex("bf62726300636f6666190103ff")),
         "Upload 256..258: next 259 after 36.0 ms\n"},
        {"refused chunk", chunk, MakeAnswer(QByteArray::fromHex("a162726307")),
         "Upload 256..258: rc 7 after 36.0 ms\n"},
        {"silence", chunk, {}, "Upload 256..258: no answer\n"},
        {"cut answer", chunk, "\x06\tAA",
         "Upload 256..258: no good answer: \"\\x06\\x09AA\" after"},
        {"reset", MakeRequest(0, 5, "\xa0"), {}, "Reset: sent, and no answer is awaited\n"},
        {"unknown request", MakeRequest(9, 8, "\xa0"), {}, "Group 9, command 8: no answer\n"},
        {"no request", "\x06\t!\n", {}, "Bytes \"\\x06\\x09!\\x0a\": no answer\n"},
    };
    for (auto const& row : rows) {
        auto session = MakeMcubootSession();
        session.Send(row.request);
        session.Wait(36ms);
        if (!row.answer.isEmpty()) {
            session.Receive(row.answer);
        }
        EXPECT_THAT(Show(session), HasSubstr(std::string("s  ") + row.line)) << row.name;
    }
}

TEST(McubootSession, AnotherTextOfTheUnitIsShownAndDoesNotCountAsAnswerTime)
{
    auto session = MakeMcubootSession();
    session.Receive("boot\r\n");
    session.Send(MakeRequest(1, 1, kChunk));
    session.Wait(6ms);
    session.Receive(MakeAnswer(QByteArray::fromHex("a162726300")));
    session.Wait(500ms);
    session.Receive("idle\r\n");

    auto const shown = Show(session);

    EXPECT_THAT(shown, HasSubstr("Unasked: \"boot\\x0d\\x0a\"\n"));
    EXPECT_THAT(shown, HasSubstr("Upload 256..258: rc 0, beside it \"idle\\x0d\" after 6.0 ms\n"));
}

TEST(McubootSession, AChunkThatIsSentAgainIsMarkedAndTheFirstOneHasTheErase)
{
    auto const first = QByteArray::fromHex("bf646461746143aabbcc636f666600ff");
    auto session = MakeMcubootSession();
    for (auto const& [chunk, time] : {std::pair{first, 2100ms}, {kChunk, 5ms}, {kChunk, 7ms}}) {
        session.Send(MakeRequest(1, 1, chunk));
        session.Wait(time);
        session.Receive(MakeAnswer(QByteArray::fromHex("a162726300")));
    }

    EXPECT_THAT(Show(session), EndsWith("Upload 256..258: rc 0 after 7.0 ms (repeated)\n"));
    EXPECT_THAT(Summarise(session),
                HasSubstr("write: 2.112 s, 3 requests, 1 repeated\n"
                          "    erase, at most, within the first chunk: 2.100 s\n"));
}

// ---- dfu-util ----

RecordedSession MakeDfuUtilSession()
{
    RecordedSession session;
    session.AddInterface(QStringLiteral("dfu-util"), QStringLiteral("USB DFU, 0483:df11"));
    session.AddInterface(QStringLiteral("dfu-util stderr"), {});
    session.AddInterface(QStringLiteral("dfu-util file"), {});
    return session;
}

void NoteExit(RecordedSession& session, int code)
{
    session.Note({QLatin1String(events::kExit),
                  {{QLatin1String(fields::kCode), QString::number(code)},
                   {QLatin1String(fields::kStatus), QStringLiteral("normal")}}});
}

TEST(DfuUtilSession, EachRunIsALineWithItsArgumentsItsLastLineAndItsExitCode)
{
    auto session = MakeDfuUtilSession();
    session.Send(QByteArray("-a\0002\0-U\0/tmp/otp.bin\0", 21));
    session.Wait(20ms);
    NoteExit(session, 0);
    session.Receive(QByteArray(512, 'x'), 3);
    session.Send(QByteArray("-a\0000\0-D\0image.bin\0", 18));
    session.Wait(10ms);
    session.Receive("Downloading\r[==] 50%\r");
    session.Receive("dfu-util: error 74\n", 2);
    session.Wait(90ms);
    NoteExit(session, 74);

    auto const shown = Show(session);

    EXPECT_THAT(shown, HasSubstr("dfu-util -a 2 -U /tmp/otp.bin: exit code 0 (normal); it wrote "
                                 "a file of 512 bytes after 20.0 ms\n"));
    EXPECT_THAT(shown, HasSubstr("dfu-util -a 0 -D image.bin: exit code 74 (normal): dfu-util: "
                                 "error 74 after 100.0 ms\n"));
}

TEST(DfuUtilSession, TheSummaryHasTheEraseWithinTheWrite)
{
    auto session = MakeDfuUtilSession();
    session.Send(QByteArray("-D\0image.bin\0", 13));
    session.Note(events::kEraseStarted);
    session.Wait(1250ms);
    session.Note(events::kEraseFinished);
    session.Wait(750ms);
    NoteExit(session, 0);

    EXPECT_THAT(Summarise(session), HasSubstr("write: 2.000 s, 1 request\n"
                                              "    erase, within the write: 1.250 s\n"));
}

// ---- Every transport ----

TEST(SessionView, MarksSilenceAndMissingPackets)
{
    auto session = MakeUartSession({{"7f", "79"}});
    session.Wait(1500ms);
    session.Note({QLatin1String(events::kGap),
                  {{QLatin1String(fields::kCause), QLatin1String(record::kGapOfSize)},
                   {QLatin1String(fields::kPackets), QStringLiteral("12")},
                   {QLatin1String(fields::kBytes), QStringLiteral("345")}}});

    EXPECT_THAT(
        Show(session),
        EndsWith("--- nothing for 1.500 s ---\n"
                 "   1.504 s  --- 12 packets with 345 bytes are missing here (size) ---\n"));
}

TEST(SessionView, WithoutASentenceOfTheLogTheLastRequestIsTheCause)
{
    auto const session = MakeUartSession({{"7f", "79"}, {"02fd", ""}});

    EXPECT_THAT(Summarise(session),
                HasSubstr("outcome: unfinished: the program ended, or still runs\n"));
    EXPECT_THAT(Summarise(session),
                EndsWith("cause, as the record has no sentence about it: the last request was Get "
                         "ID: no answer\n"));
    EXPECT_THAT(Summarise(RecordedSession()), EndsWith("cause: nothing was sent to the unit\n"));
}

TEST(SessionView, TextFromAFileIsOneLineAndCannotSteerTheTerminal)
{
    RecordedSession session({QStringLiteral("\x1b[2J"), {}, QStringLiteral("a\nb")});
    session.Note(events::kLog, fields::kText, QStringLiteral("update failed\n\x1b[31m"));
    session.Note(events::kEnd, fields::kOutcome, QStringLiteral("x\ny"));

    EXPECT_THAT(Show(session), StartsWith("a b,  [2J\n"));
    for (auto const& shown : {Show(session), Summarise(session)}) {
        EXPECT_THAT(shown, Not(HasSubstr("\x1b")));
        EXPECT_THAT(shown, HasSubstr("update failed  [31m"));
        EXPECT_THAT(shown, Not(HasSubstr("x\ny")));
    }
}

TEST(SessionView, OfAFileThatIsCutAnywhereAllBeforeIsShownAndThenTheReason)
{
    auto const session = MakeUartSession({{"7f", "79"}, {"02fd", "7901041579"}});
    auto const whole = Show(session);
    auto const complete = session.Bytes().size();
    std::string last;
    for (qsizetype size = 0; size < complete; ++size) {
        auto const recording = record::ReadPcapng(QByteArrayView(session.Bytes()).first(size));
        for (auto const& shown : {session_view::FormatConversation(recording).toStdString(),
                                  session_view::FormatSummary(recording).toStdString()}) {
            auto const has_message = shown.find("The file cannot be read to its end: ");
            EXPECT_EQ(has_message != std::string::npos, !recording.error.isEmpty()) << size;
        }
        last = session_view::FormatConversation(recording).toStdString();
    }
    EXPECT_THAT(last, HasSubstr("Start byte 0x7F: ACK after 4.0 ms\n"));
    EXPECT_THAT(last, HasSubstr("Get ID: no answer\n"));
    EXPECT_THAT(whole, Not(HasSubstr("cannot be read")));
}

TEST(SessionView, AWriteHasItsPlaceAndItsBytes)
{
    auto uart = MakeUartSession({{"31ce", "79"}, {"080013001b", "79"}, {"03aabbccddff", "79"}});
    auto const write = session_view::ReadExchanges(Read(uart)).constFirst();
    EXPECT_EQ(write.place, 0x08001300);
    EXPECT_EQ(write.data.toHex(), "aabbccdd");

    auto mcuboot = MakeMcubootSession();
    mcuboot.Send(MakeRequest(1, 1, kChunk));
    auto const upload = session_view::ReadExchanges(Read(mcuboot)).constFirst();
    EXPECT_EQ(upload.place, 256);
    EXPECT_EQ(upload.data.toHex(), "aabbcc");
}

}  // namespace
