// The program simulated_unit as a script or another test starts it: through its standard input and
// output.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <map>
#include <string>

#include "tests/simulator/port_test_support.h"
#include "tests/simulator/recovery_client.h"

namespace simulator {
namespace {

using test::B;
using test::RawClient;

class Program {
public:
    // Starts it and reads its greeting up to "ready".
    explicit Program(QStringList const& arguments)
    {
        process_.start(
            QStringLiteral(SIMULATED_UNIT_PROGRAM),
            arguments + QStringList{QStringLiteral("--first-port"),
                                    QString::number(QCoreApplication::applicationPid())});
        for (auto line = ReadLine(); !line.empty() && line != "ready"; line = ReadLine()) {
            auto const equals = line.find('=');
            greeting_[line.substr(0, equals)] = line.substr(equals + 1);
        }
    }

    std::string ReadLine()
    {
        while (!process_.canReadLine() && process_.waitForReadyRead(test::kTimeoutMs)) {
        }
        return process_.readLine().trimmed().toStdString();
    }

    std::string Command(std::string const& command)
    {
        process_.write((command + "\n").c_str());
        return ReadLine();
    }

    std::map<std::string, std::string> const& Greeting() const { return greeting_; }
    QProcess& Process() { return process_; }

    bool Ends()
    {
        return process_.waitForFinished(test::kTimeoutMs) &&
               process_.exitStatus() == QProcess::NormalExit && process_.exitCode() == 0;
    }

private:
    QProcess process_;
    std::map<std::string, std::string> greeting_;
};

TEST(SimulatedUnitProgram, TellsWhatAClientNeedsAndServesIt)
{
    Program program({});

    EXPECT_TRUE(QFile::exists(QString::fromStdString(program.Greeting().at("UMOCKDEV_DIR"))));
    EXPECT_EQ(program.Greeting().at("preload"), "libumockdev-preload.so.0");
    EXPECT_EQ(program.Greeting().at("port"),
              "/dev/ttyUSB" + std::to_string(QCoreApplication::applicationPid()));
    RawClient client(program.Greeting().at("pty"));
    EXPECT_EQ(client.Ask(B({0x7F}), 1), B({0x79}));
    EXPECT_EQ(program.Command("journal"), "sync ack");
    EXPECT_EQ(program.ReadLine(), "end");
    EXPECT_EQ(program.Command("quit"), "ok");
    EXPECT_TRUE(program.Ends());
}

TEST(SimulatedUnitProgram, IsTheUnitThatItsOptionsDescribe)
{
    QTemporaryDir const directory;
    auto const flash_path = directory.filePath(QStringLiteral("flash.bin"));
    auto const journal_path = directory.filePath(QStringLiteral("journal.txt"));
    QFile flash(flash_path);
    ASSERT_TRUE(flash.open(QIODevice::WriteOnly));
    flash.write("flash");
    flash.close();
    Program program({QStringLiteral("--product-id"), QStringLiteral("0x482"),
                     QStringLiteral("--ack"), QStringLiteral("75"), QStringLiteral("--model-id"),
                     QStringLiteral("42"), QStringLiteral("--erase-commands"),
                     QStringLiteral("none"), QStringLiteral("--otp-address"),
                     QStringLiteral("0x1FFF7000"), QStringLiteral("--otp-size"),
                     QStringLiteral("512"), QStringLiteral("--boot-mode-address"),
                     QStringLiteral("0x20000000"), QStringLiteral("--flash-in"), flash_path,
                     QStringLiteral("--journal"), journal_path});
    ASSERT_TRUE(program.Greeting().contains("pty"));
    RawClient client(program.Greeting().at("pty"));

    EXPECT_EQ(client.Ask(B({0x7F}), 1), B({0x75}));
    EXPECT_EQ(client.Ask(B({0x02, 0xFD}), 5), B({0x75, 0x01, 0x04, 0x82, 0x75}));
    EXPECT_EQ(client.Ask(B({0x44, 0xBB}), 1), B({0x3F}));
    EXPECT_EQ(client.Ask(B({0x11, 0xEE, 0x1F, 0xFF, 0x70, 0x00, 0x90, 0x04, 0xFB}), 8),
              B({0x75, 0x75, 0x75, 0x11, 0x47, 0x23, 0x01, 42}));
    auto const dump = directory.filePath(QStringLiteral("dump.bin"));
    EXPECT_EQ(program.Command("dump 0x08000000 6 " + dump.toStdString()), "ok");
    QFile dumped(dump);
    ASSERT_TRUE(dumped.open(QIODevice::ReadOnly));
    EXPECT_EQ(dumped.readAll(), QByteArray("flash\xFF"));
    QFile journal(journal_path);
    ASSERT_TRUE(journal.open(QIODevice::ReadOnly));
    EXPECT_EQ(journal.readAll(), QByteArray("sync ack\nget-id ack\nextended-erase nack unknown\n"
                                            "read 0x1fff7000 5 ack\n"));
}

TEST(SimulatedUnitProgram, MakesAUnitInSerialRecoveryMode)
{
    Program program(
        {QStringLiteral("--protocol"), QStringLiteral("mcuboot"), QStringLiteral("--model-id"),
         QStringLiteral("empty"), QStringLiteral("--line-buffer"), QStringLiteral("64"),
         QStringLiteral("--answer-line"), QStringLiteral("16"), QStringLiteral("--definite-maps")});
    RawClient client(program.Greeting().at("pty"));

    // Erase: {} is answered with {"rc": 0}, in 24 characters over two lines.
    client.Send(
        test::ToBytes("\x06\x09"
                      "AAwCAAACAAH/Bb//um4=\n"));
    auto const answer = test::ToArray(client.Receive(30));
    EXPECT_EQ(test::BodyOf(answer).mid(10).chopped(2).toHex(), "a162726300");
    EXPECT_EQ(answer.mid(19, 2), "\x04\x14");

    EXPECT_EQ(program.Command("fault nack-erase"),
              "error this kind of unit cannot show the fault nack-erase");
    EXPECT_EQ(program.Command("fault error-code 1 1 7"), "ok");
    EXPECT_NE(program.Command("status").find("connects=0 erased=256 "), std::string::npos);
    EXPECT_EQ(program.Command("journal"), "erase-slot seq=255 ack");
    EXPECT_EQ(program.ReadLine(), "end");
}

TEST(SimulatedUnitProgram, MakesAUnitInItsUsbBootloaderThatIsNumberedAnewWhenItIsPluggedInAgain)
{
    Program program({QStringLiteral("--protocol"), QStringLiteral("dfu"),
                     QStringLiteral("--model-id"), QStringLiteral("33"), QStringLiteral("--units"),
                     QStringLiteral("2"), QStringLiteral("--foreign-unit"), QStringLiteral("2")});
    EXPECT_EQ(program.Greeting().at("port"), "/dev/bus/usb/001/001");
    EXPECT_EQ(program.Greeting().at("port2"), "/dev/bus/usb/001/002");
    EXPECT_FALSE(program.Greeting().contains("pty"));
    auto const read_product_id = [&](int number) {
        QFile file(QStringLiteral("%1/sys/devices/usb1/1-%2/idProduct")
                       .arg(QString::fromStdString(program.Greeting().at("UMOCKDEV_DIR")))
                       .arg(number));
        return file.open(QIODevice::ReadOnly) ? file.readAll().trimmed() : QByteArray();
    };
    EXPECT_EQ(read_product_id(1), "df11");
    EXPECT_EQ(read_product_id(2), "0002");

    EXPECT_EQ(program.Command("unplug"), "ok");
    EXPECT_EQ(read_product_id(1), "");
    EXPECT_EQ(program.Command("plug"), "ok port=/dev/bus/usb/001/003 pty=");
    EXPECT_EQ(read_product_id(3), "df11");
    EXPECT_EQ(program.Command("fault nack-erase"),
              "error this kind of unit cannot show the fault nack-erase");
    EXPECT_EQ(program.Command("fault error-in-write 1 1 3"), "ok");
    EXPECT_TRUE(
        program.Command("status").starts_with("state=bootloader synchronised=no "
                                              "plugged=yes port=/dev/bus/usb/001/003 "));
}

TEST(SimulatedUnitProgram, StartsWithNoUnitOrWithTwo)
{
    Program none({QStringLiteral("--units"), QStringLiteral("0")});
    EXPECT_FALSE(none.Greeting().contains("port"));
    EXPECT_TRUE(none.Command("plug").starts_with("ok port=/dev/ttyUSB"));
    EXPECT_EQ(none.Command("unplug"), "ok");

    Program two({QStringLiteral("--units"), QStringLiteral("2")});
    EXPECT_NE(two.Greeting().at("port2"), two.Greeting().at("port"));
    EXPECT_NE(two.Greeting().at("pty2"), two.Greeting().at("pty"));
}

TEST(SimulatedUnitProgram, EndsAndTidiesUpWithItsInputOrASignal)
{
    for (auto const by_signal : {false, true}) {
        Program program({});
        auto const root = QString::fromStdString(program.Greeting().at("UMOCKDEV_DIR"));
        if (by_signal) {
            program.Process().terminate();
        } else {
            program.Process().closeWriteChannel();
        }

        EXPECT_TRUE(program.Ends());
        EXPECT_FALSE(QFile::exists(root));
    }
}

TEST(SimulatedUnitProgram, RefusesAnOptionThatItCannotUse)
{
    for (auto const& [option, value] :
         {std::pair{"--product-id", "0x483"}, std::pair{"--ack", "7a"}, std::pair{"--vid", "10000"},
          std::pair{"--model-id", "256"}, std::pair{"--flash-in", "/nonexistent"},
          std::pair{"--protocol", "usb"}, std::pair{"--nonsense", "1"}}) {
        QProcess process;
        process.start(QStringLiteral(SIMULATED_UNIT_PROGRAM),
                      {QString::fromLatin1(option), QString::fromLatin1(value)});

        ASSERT_TRUE(process.waitForFinished(test::kTimeoutMs)) << option;
        EXPECT_EQ(process.exitCode(), 1) << option;
        EXPECT_FALSE(process.readAllStandardError().isEmpty()) << option;
    }
}

}  // namespace
}  // namespace simulator
