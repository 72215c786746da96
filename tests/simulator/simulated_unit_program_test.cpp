// The program simulated_unit as a script or another test starts it: through its standard input and
// output.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include "tests/session_view/recorded_session.h"
#include "tests/simulator/port_test_support.h"
#include "tests/simulator/recovery_client.h"
#include "tests/support/files.h"
#include "tests/support/unit_process.h"

using namespace Qt::StringLiterals;

namespace simulator {
namespace {

using test::Hex;
using test::RawClient;

UnitProcess Start(QString const& options)
{
    return UnitProcess(options.split(u' ', Qt::SkipEmptyParts));
}

RawClient Open(UnitProcess const& unit)
{
    return RawClient(unit.Property(u"pty"_s).toStdString());
}

TEST(SimulatedUnitProgram, IsTheUnitThatItsOptionsDescribe)
{
    QTemporaryDir const directory;
    auto const flash = directory.filePath(u"flash.bin"_s);
    auto const journal = directory.filePath(u"journal.txt"_s);
    WriteFile(flash, "flash");
    auto unit = Start(
        u"--product-id 0x482 --ack 75 --model-id 42 --erase-commands none "
        "--otp-address 0x1FFF7000 --otp-size 512 --boot-mode-address 0x20000000 "
        "--flash-in %1 --journal %2"_s.arg(flash, journal));
    auto client = Open(unit);

    EXPECT_EQ(client.Ask(Hex("7F"), 1), Hex("75"));
    EXPECT_EQ(client.Ask(Hex("02 FD"), 5), Hex("75 01 04 82 75"));
    EXPECT_EQ(client.Ask(Hex("44 BB"), 1), Hex("3F"));
    EXPECT_EQ(client.Ask(Hex("11 EE 1F FF 70 00 90 04 FB"), 8), Hex("75 75 75 11 47 23 01 2A"));
    EXPECT_EQ(unit.ReadMemory(0x08000000, 6), QByteArray("flash\xFF"));
    EXPECT_EQ(ReadFile(journal), QByteArray("sync ack\nget-id ack\nextended-erase nack unknown\n"
                                            "read 0x1fff7000 5 ack\n"));
}

TEST(SimulatedUnitProgram, MakesAUnitWithTheHabitsThatItsOptionsName)
{
    auto unit = Start(
        u"--product-id 0x469 --incomplete-units filled --flash-errors reported "
        "--ignore-stray-bytes --go-checks-stack --self-powered"_s);

    EXPECT_EQ(Open(unit).Ask(Hex("00 7F"), 1), Hex("79"));
    EXPECT_EQ(unit.Ask(u"unplug"_s), u"ok"_s);
    EXPECT_TRUE(unit.Ask(u"plug"_s).startsWith(u"ok "_s));
    auto client = RawClient(unit.Ask(u"plug"_s).section(u"pty="_s, 1).toStdString());
    EXPECT_EQ(client.Ask(Hex("31 CE 08 00 00 00 08 00 01 01"), 3), Hex("79 79 79"));
    EXPECT_EQ(client.Ask(Hex("31 CE 08 00 00 04 0C"), 2), Hex("79 1F"));
    EXPECT_EQ(client.Ask(Hex("21 DE 08 00 00 00 08"), 2), Hex("79 1F"));
    EXPECT_EQ(unit.Status(u"connects"_s), u"1"_s);
}

TEST(SimulatedUnitProgram, MakesAUnitInSerialRecoveryMode)
{
    auto unit = Start(
        u"--protocol mcuboot --model-id empty --line-buffer 64 --answer-line 16 "
        "--definite-maps"_s);
    auto client = Open(unit);

    // Erase: {} is answered with {"rc": 0}, in 24 characters over two lines.
    client.Send(
        test::ToBytes("\x06\x09"
                      "AAwCAAACAAH/Bb//um4=\n"));
    auto const answer = test::ToArray(client.Receive(30));
    EXPECT_EQ(test::BodyOf(answer).mid(10).chopped(2).toHex(), "a162726300");
    EXPECT_EQ(answer.mid(19, 2), "\x04\x14");

    EXPECT_EQ(unit.Ask(u"fault nack-erase"_s),
              u"error this kind of unit cannot show the fault nack-erase"_s);
    EXPECT_EQ(unit.Ask(u"fault error-code 1 1 7"_s), u"ok"_s);
    EXPECT_EQ(unit.Status(u"connects"_s), u"0"_s);
    EXPECT_EQ(unit.Status(u"erased"_s), u"256"_s);
    EXPECT_EQ(unit.Journal(), QStringList{u"erase-slot seq=255 ack"_s});
}

TEST(SimulatedUnitProgram, MakesAUnitInSerialRecoveryModeThatPrintsItsLog)
{
    auto unit = Start(u"--protocol mcuboot --talks --log-lines --line-pause 1"_s);
    auto client = Open(unit);
    QByteArray const banner = "*** Booting MCUboot ***\r\n";
    EXPECT_EQ(test::ToArray(client.Receive(static_cast<size_t>(banner.size()))), banner);
    client.Receive((kTalkLines - 1) * kForeignLine.size());

    auto const answer = test::ToArray(client.Ask(test::ToBytes("\x06\x09"
                                                               "AAwCAAACAAH/Bb//um4=\n"),
                                                 kForeignLine.size() + 27));

    EXPECT_TRUE(answer.startsWith(kForeignLine.data()));
    EXPECT_EQ(test::BodyOf(answer).mid(10).chopped(2).toHex(), "bf62726300ff");
}

TEST(SimulatedUnitProgram, MakesAUnitInItsUsbBootloaderThatIsNumberedAnewWhenItIsPluggedInAgain)
{
    auto unit = Start(u"--protocol dfu --model-id 33 --units 2 --foreign-unit 2"_s);
    EXPECT_EQ(unit.Property(u"port"_s), u"/dev/bus/usb/001/001"_s);
    EXPECT_EQ(unit.Property(u"port2"_s), u"/dev/bus/usb/001/002"_s);
    EXPECT_FALSE(unit.HasProperty(u"pty"_s));
    auto const read_product_id = [&](int number) {
        return ReadFile(
                   u"%1/sys/devices/usb1/1-%2/idProduct"_s.arg(unit.Property(u"UMOCKDEV_DIR"_s))
                       .arg(number))
            .trimmed();
    };
    EXPECT_EQ(read_product_id(1), "df11");
    EXPECT_EQ(read_product_id(2), "0002");

    EXPECT_EQ(unit.Ask(u"unplug"_s), u"ok"_s);
    EXPECT_EQ(read_product_id(1), "");
    EXPECT_EQ(unit.Ask(u"plug"_s), u"ok port=/dev/bus/usb/001/003 pty="_s);
    EXPECT_EQ(read_product_id(3), "df11");
    EXPECT_EQ(unit.Ask(u"fault error-in-write 1 1 3"_s), u"ok"_s);
    EXPECT_EQ(unit.Status(u"port"_s), u"/dev/bus/usb/001/003"_s);
}

TEST(SimulatedUnitProgram, AnswersAsARecordedUnitUntilSomethingDiffers)
{
    auto unit = Start(u"--replay-speed 0 --replay " FW_RECORDINGS u"/uart-other-model.pcapng"_s);
    auto client = Open(unit);

    EXPECT_EQ(client.Ask(Hex("7F"), 1), Hex("79"));
    EXPECT_EQ(client.Ask(Hex("00 FF"), 1), Hex("79"));
    EXPECT_EQ(unit.Status(u"connects"_s), u"1"_s);
    client.Send(Hex("11 EE"));

    EXPECT_TRUE(client.Receive(100, 100).size() > 1) << "the rest of the answer to Get";
    EXPECT_THAT(
        unit.Journal().last().toStdString(),
        testing::MatchesRegex("difference silent packet [0-9]+, byte 1 of 2: 0x02 expected, "
                              "0x11 received"));
    EXPECT_EQ(unit.Ask(u"dump 0x08000000 4 /dev/null"_s).section(u' ', 0, 0), u"error"_s);
}

TEST(SimulatedUnitProgram, ALateAnswerLeavesAtOnceWhenTheClientHasNotWaitedForIt)
{
    QTemporaryDir const directory;
    auto const path = directory.filePath(u"record.pcapng"_s);
    RecordedSession session;
    session.AddInterface(u"ttyUSB0"_s, u"UART, 460800 baud, 8E1"_s);
    session.Send("\x7F");
    session.Receive("\x79");
    session.Wait(std::chrono::hours(1));  // a unit that prints something in the meantime
    session.Receive("A");
    session.Send("\x01");
    session.Receive("\x02");
    WriteFile(path, session.Bytes());
    auto unit = Start(u"--replay %1"_s.arg(path));
    auto client = Open(unit);

    EXPECT_EQ(client.Ask(Hex("7F"), 1), Hex("79"));
    EXPECT_EQ(client.Ask(Hex("01"), 2), Hex("41 02"));
}

TEST(SimulatedUnitProgram, NamesTheReasonWhyAFileCannotBeReplayed)
{
    QTemporaryDir const directory;
    RecordedSession no_line;
    RecordedSession no_bytes;
    no_bytes.AddInterface(u"ttyUSB0"_s, u"UART, 460800 baud, 8E1"_s);
    RecordedSession gap = no_bytes;
    gap.Send("\x7F");
    gap.Note(record::events::kGap);
    struct Row {
        QByteArray file;
        char const* reason;
    };
    for (auto const& [file, reason] :
         {Row{"no record", "record.pcapng: "}, Row{no_line.Bytes(), "no serial line was recorded"},
          Row{no_bytes.Bytes(), "nothing was sent to the recorded unit"},
          Row{gap.Bytes(), "packets are missing at packet 2"}}) {
        auto const path = directory.filePath(u"record.pcapng"_s);
        WriteFile(path, file);
        QProcess process;
        process.start(QStringLiteral(SIMULATED_UNIT_PROGRAM), {u"--replay"_s, path});

        ASSERT_TRUE(process.waitForFinished(test::kTimeoutMs)) << reason;
        EXPECT_EQ(process.exitCode(), 1) << reason;
        EXPECT_THAT(process.readAllStandardError().toStdString(), testing::HasSubstr(reason));
    }
}

TEST(SimulatedUnitProgram, StartsWithNoUnitOrWithTwoAndPrintsWhatAClientNeeds)
{
    auto none = Start(u"--units 0"_s);
    EXPECT_TRUE(QFile::exists(none.Property(u"UMOCKDEV_DIR"_s)));
    EXPECT_EQ(none.Property(u"preload"_s), u"libumockdev-preload.so.0"_s);
    EXPECT_FALSE(none.HasProperty(u"port"_s));
    EXPECT_TRUE(none.Ask(u"plug"_s).startsWith(u"ok port=/dev/ttyUSB"_s));
    EXPECT_EQ(none.Ask(u"quit"_s), u"ok"_s);

    auto two = Start(u"--units 2"_s);
    EXPECT_TRUE(two.Property(u"port"_s).startsWith(u"/dev/ttyUSB"_s));
    EXPECT_NE(two.Property(u"port2"_s), two.Property(u"port"_s));
    EXPECT_NE(two.Property(u"pty2"_s), two.Property(u"pty"_s));
}

TEST(SimulatedUnitProgram, EndsAndTidiesUpWithItsInputOrASignal)
{
    for (auto const by_signal : {false, true}) {
        QProcess process;
        process.start(QStringLiteral(SIMULATED_UNIT_PROGRAM), {u"--units"_s, u"0"_s});
        ASSERT_TRUE(process.waitForReadyRead(test::kTimeoutMs));
        auto const root = QString::fromUtf8(process.readLine().trimmed()).section(u'=', 1);
        EXPECT_TRUE(QFile::exists(root));
        if (by_signal) {
            process.terminate();
        } else {
            process.closeWriteChannel();
        }

        ASSERT_TRUE(process.waitForFinished(test::kTimeoutMs));
        EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(process.exitCode(), 0);
        EXPECT_FALSE(QFile::exists(root));
    }
}

TEST(SimulatedUnitProgram, RefusesAnOptionThatItCannotUse)
{
    for (auto const* options : {"--product-id 0x483", "--ack 7a", "--vid 10000", "--model-id 256",
                                "--flash-in /none", "--flash-errors x", "--incomplete-units x",
                                "--protocol usb", "--baud x", "--nonsense 1"}) {
        QProcess process;
        process.start(QStringLiteral(SIMULATED_UNIT_PROGRAM),
                      QString::fromLatin1(options).split(u' '));

        ASSERT_TRUE(process.waitForFinished(test::kTimeoutMs)) << options;
        EXPECT_EQ(process.exitCode(), 1) << options;
        EXPECT_FALSE(process.readAllStandardError().isEmpty()) << options;
    }
}

}  // namespace
}  // namespace simulator
