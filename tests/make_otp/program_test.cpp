// make_otp as a process: its messages and exit statuses, and its file on a simulated unit of each
// transport.
#include <gtest/gtest.h>

#include <QProcess>
#include <QTemporaryDir>

#include "tests/simulator/port_test_support.h"
#include "tests/simulator/recovery_client.h"
#include "tests/support/files.h"
#include "tests/support/unit_process.h"

using namespace Qt::StringLiterals;
using simulator::test::RawClient;

namespace {

struct ToolResult {
    int status = -1;  // -1: it did not end by itself
    QByteArray output;
    QByteArray errors;
};

ToolResult RunProgram(QString const& program, QStringList const& arguments)
{
    constexpr int kLimitMs = 60'000;
    QProcess process;
    process.start(program, arguments);
    bool const ended = process.waitForFinished(kLimitMs);
    EXPECT_TRUE(ended) << "no end after " << kLimitMs << " ms";
    process.kill();
    bool const normal = ended && process.exitStatus() == QProcess::NormalExit;
    return {normal ? process.exitCode() : -1, process.readAllStandardOutput(),
            process.readAllStandardError()};
}

ToolResult RunTool(QStringList const& arguments)
{
    return RunProgram(QStringLiteral(FW_MAKE_OTP), arguments);
}

class MakeOtp : public testing::Test {
protected:
    QTemporaryDir const directory_;
    QString const path_ = directory_.filePath(u"otp.bin"_s);
};

constexpr char kRecords[] =
    "11472301"
    "070000000000000000000000"
    "afa4a63c"
    "4c552d303030343200000000";

}  // namespace

TEST_F(MakeOtp, WritesAFileAndReadsItBack)
{
    auto const written =
        RunTool({u"--model"_s, u"7"_s, u"--serial-number"_s, u"LU-00042"_s, path_});
    EXPECT_EQ(written.status, 0);
    EXPECT_EQ(written.output,
              path_.toUtf8() + ": 32 bytes, to be programmed at the start of the OTP area\n");
    EXPECT_EQ(written.errors, "");
    EXPECT_EQ(ReadFile(path_).toHex(), kRecords);

    auto const read = RunTool({u"--read"_s, path_});
    EXPECT_EQ(read.status, 0);
    EXPECT_EQ(read.output, "record 0: model 7\nrecord 1: serial number 'LU-00042'\n");
    EXPECT_EQ(read.errors, "");
}

TEST_F(MakeOtp, ExitsWithOneIfAUnitWithThisAreaWouldNotBeAccepted)
{
    WriteFile(path_, QByteArray::fromHex("78563412000000000000000000000000"));
    auto const read = RunTool({u"--read"_s, path_});
    EXPECT_EQ(read.status, 1);
    EXPECT_EQ(read.output, "record 0: tag 0x12345678, bytes 00 00 00 00 00 00 00 00 00 00 00 00\n");
    EXPECT_EQ(read.errors,
              "make_otp: There is no model record among the first 32 records, so no "
              "update is accepted.\n");
}

TEST_F(MakeOtp, ExitsWithTwoAndSaysWhyIfItCannotDoWhatItIsAskedFor)
{
    WriteFile(path_, QByteArray(64 * 1024 + 1, '\xFF'));
    auto const none = u"/nowhere/otp.bin"_s;
    struct {
        QStringList arguments;
        char const* message;
    } const rows[] = {
        {{u"--model"_s, u"256"_s, none},
         "make_otp: --model: '256' is not a model identifier; give a decimal number from 0 to "
         "255."},
        {{u"--model"_s, u"7"_s, u"--serial-number"_s, u"012345678901"_s, none},
         "make_otp: --serial-number: The serial number '012345678901' has 12 characters; at most "
         "11 "
         "fit into its record."},
        {{u"--model"_s, u"7"_s, u"--serial-number"_s, u""_s, none},
         "make_otp: --serial-number: The serial number is empty."},
        {{u"--model"_s, u"7"_s, none}, "make_otp: /nowhere/otp.bin: No such file or directory"},
        {{u"--read"_s, none}, "make_otp: /nowhere/otp.bin: No such file or directory"},
        {{u"--read"_s, u"/"_s}, "make_otp: /: "},
        {{u"--read"_s, path_}, ": longer than any OTP area."},
        {{u"--model"_s, u"7"_s, u"/dev/full"_s}, "make_otp: /dev/full: No space left on device"},
        {{}, "Give one FILE.\n\nUsage: "},
        {{none, none}, "Give one FILE."},
        {{u""_s, u"--read"_s}, "Give one FILE."},
        {{none}, "Give either --read alone, or --model for a file to be written."},
        {{u"--serial-number"_s, u"A1"_s, none}, "Give either --read alone, or --model"},
        {{u"--read"_s, u"--model"_s, u"7"_s, none}, "Give either --read alone, or --model"},
        {{u"--read"_s, u"--serial-number"_s, u"A"_s, none}, "Give either --read alone, or --model"},
        {{u"--colour"_s, none}, "Unknown option 'colour'."},
    };
    for (auto const& [arguments, message] : rows) {
        auto const result = RunTool(arguments);
        EXPECT_EQ(result.status, 2) << arguments.join(u' ').toStdString();
        EXPECT_EQ(result.output, "") << arguments.join(u' ').toStdString();
        EXPECT_TRUE(result.errors.contains(message)) << result.errors.constData();
    }
    auto const help = RunTool({u"--help"_s});
    EXPECT_EQ(help.status, 0);
    EXPECT_TRUE(help.output.startsWith("Usage: ")) << help.output.constData();
    EXPECT_EQ(help.errors, "");
}

TEST_F(MakeOtp, MakesTheOtpAreaOfASimulatedUnit)
{
    RunTool({u"--model"_s, u"7"_s, u"--serial-number"_s, u"LU-00042"_s, path_});
    struct {
        char const* protocol;
        char const* product_id;
        uint32_t address;
    } const rows[] = {{"stm32", "0x469", 0x1FFF7000},
                      {"stm32", "0x482", 0x0BFA0000},
                      {"dfu", "0x479", 0x1FFF7000}};
    for (auto const& [protocol, product_id, address] : rows) {
        UnitProcess unit({u"--protocol"_s, QString::fromLatin1(protocol), u"--product-id"_s,
                          QString::fromLatin1(product_id), u"--otp"_s, path_});
        EXPECT_EQ(unit.ReadMemory(address, 33).toHex(), QByteArray(kRecords) + "ff") << protocol;
    }
}

TEST_F(MakeOtp, MakesTheOtpValuesOfASimulatedUnitInSerialRecovery)
{
    RunTool({u"--model"_s, u"7"_s, u"--serial-number"_s, u"LU-00042"_s, path_});
    UnitProcess const unit({u"--protocol"_s, u"mcuboot"_s, u"--otp"_s, path_});
    RawClient client(unit.Property(u"pty"_s).toStdString());
    struct {
        char const* key;  // in the request's map
        char const* content;
    } const rows[] = {{"1a01234711", "070000000000000000000000"},
                      {"1a3ca6a4af", "4c552d303030343200000000"}};
    for (auto const& [key, content] : rows) {
        auto const request =
            simulator::test::MakeRequest(0, 64, 0, QByteArray("bf636b6579") + key + "ff");
        // {"rc": 0, "data": 12 bytes}, in the order that the simulated unit has.
        auto const map = QByteArray("bf627263006464617461 4c").replace(' ', "") + content + "ff";
        auto const size = 3 + (2 + 8 + map.size() / 2 + 2 + 2) / 3 * 4;
        auto const answer =
            client.Ask(simulator::test::ToBytes(request), static_cast<size_t>(size));
        auto const body = simulator::test::BodyOf(simulator::test::ToArray(answer));
        EXPECT_EQ(body.mid(10).chopped(2).toHex(), map);
    }
}

TEST_F(MakeOtp, DoesNotFitAUnitIfItIsLongerThanItsOtpArea)
{
    WriteFile(path_, QByteArray(513, '\xFF'));
    auto const too_long = RunProgram(QStringLiteral(FW_SIMULATED_UNIT),
                                     {u"--product-id"_s, u"0x482"_s, u"--otp"_s, path_});
    EXPECT_NE(too_long.status, 0);
    EXPECT_TRUE(too_long.errors.contains("--otp: longer than the chip's OTP area"))
        << too_long.errors.constData();
    auto const missing = RunProgram(QStringLiteral(FW_SIMULATED_UNIT), {u"--otp"_s, u"/nowhere"_s});
    EXPECT_NE(missing.status, 0);
    EXPECT_TRUE(missing.errors.contains("--otp: not usable: /nowhere"))
        << missing.errors.constData();
}
