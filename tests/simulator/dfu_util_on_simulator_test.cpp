// An independent client, Debian's dfu-util with libusb below it, against the simulated unit: its
// authors have read the same standards, and nothing of this project. A missing tool is a failure:
// without it nothing here would prove the simulator.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "tests/simulator/bootloader_client.h"
#include "tests/simulator/dfu_unit_test_support.h"
#include "tests/simulator/image_file.h"
#include "tests/simulator/port_test_support.h"
#include "tests/support/files.h"

using namespace Qt::StringLiterals;

namespace simulator {
namespace {

using test::Bytes;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

constexpr size_t kPageSize = 2048;
constexpr int kToolError = 74;  // EX_IOERR of sysexits.h
QString const kDownload = u"-d 0483:df11 -a 0 -s 0X08000000:leave -D image.bin"_s;

class DfuUtil : public testing::Test {
protected:
    // Starts the tool and waits for its end; its exit code. What it printed is in `output_`.
    int Run(QString const& arguments)
    {
        Start(arguments);
        EXPECT_TRUE(process_.waitForFinished()) << "dfu-util does not end";
        output_ = process_.readAll().toStdString();
        return process_.exitCode();
    }

    void Start(QString const& arguments)
    {
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"UMOCKDEV_DIR"_s, QString::fromStdString(plugged_.testbed->Root()));
        environment.insert(u"LD_PRELOAD"_s, u"libumockdev-preload.so.0"_s);
        process_.setProcessEnvironment(environment);
        process_.setProcessChannelMode(QProcess::MergedChannels);
        process_.setWorkingDirectory(directory_.path());
        process_.start(u"dfu-util"_s, arguments.split(u' '));
        ASSERT_TRUE(process_.waitForStarted()) << "is dfu-util installed?";
    }

    QString FilePath(char const* name) const
    {
        return directory_.filePath(QString::fromLatin1(name));
    }

    // An image whose last block is shorter than the others, by default made of whole double words.
    Bytes WriteImage(size_t size = 9 * kPageSize + 304)
    {
        return test::WriteImageFile(FilePath("image.bin"), size);
    }

    std::string LastLine() { return ToText(plugged_.unit.Journal().back()); }

    void ExpectImageCanBeWritten()
    {
        auto const image = WriteImage();
        EXPECT_EQ(Run(kDownload), 0) << output_;
        EXPECT_EQ(plugged_.unit.ReadMemory(kFlashStart, image.size()), image);
    }

    test::PluggedUnit plugged_{test::DfuOptions()};
    QTemporaryDir directory_;
    QProcess process_;
    std::string output_;
};

TEST_F(DfuUtil, ListsTheUnitWithItsIdsAndMemoriesUnlessItIsBlocked)
{
    EXPECT_EQ(Run(u"-l"_s), 0);
    EXPECT_THAT(output_, HasSubstr("Found DFU: [0483:df11] ver=2200, devnum=1"));
    EXPECT_THAT(output_, HasSubstr("alt=0, name=\"@Internal Flash  /0x08000000/256*0002Kg\""));
    EXPECT_THAT(output_, HasSubstr("alt=2, name=\"@OTP Memory /0x1FFF7000/01*1024 e\""));
    EXPECT_THAT(output_, HasSubstr("serial=\"0001\""));
    EXPECT_EQ(plugged_.unit.Journal(), std::vector<JournalEntry>());

    plugged_.unit.SetBlocked(true);
    EXPECT_EQ(Run(u"-l"_s), 0);
    EXPECT_THAT(output_, HasSubstr("Cannot open DFU device 0483:df11"));
    EXPECT_THAT(output_, Not(HasSubstr("Found DFU")));

    plugged_.unit.SetBlocked(false);
    ExpectImageCanBeWritten();
}

TEST_F(DfuUtil, ErasesWritesAndStartsAnImageAndFindsTheUnitUnderANewNumberAfterwards)
{
    auto const image = WriteImage();
    plugged_.unit.LoadMemory(kFlashStart, Bytes(11 * kPageSize, std::byte{0x00}));

    EXPECT_EQ(Run(kDownload), 0) << output_;

    EXPECT_EQ(plugged_.unit.ReadMemory(kFlashStart, image.size()), image);
    EXPECT_EQ(plugged_.unit.ReadMemory(kFlashStart + 10 * kPageSize, 1), Bytes{std::byte{0}});
    auto const status = plugged_.unit.Status();
    EXPECT_EQ(status.state, UnitState::kRunning);
    EXPECT_EQ(status.jump_address, kFlashStart);
    EXPECT_EQ(status.erased_pages, 10U);
    EXPECT_EQ(status.programmed_over_unerased, 0U);
    EXPECT_FALSE(status.plugged);
    EXPECT_EQ(LastLine(), "leave 0x08000000 ack");
    EXPECT_EQ(Run(u"-l"_s), 0);
    EXPECT_THAT(output_, Not(HasSubstr("Found DFU")));

    plugged_.unit.Plug();

    EXPECT_EQ(Run(u"-l"_s), 0);
    EXPECT_THAT(output_, HasSubstr("devnum=2"));
    ExpectImageCanBeWritten();
}

// The tool sends the odd bytes as they are and ends well; the STM32G4 has only whole double words.
TEST_F(DfuUtil, WritesAllOfAnImageExceptAnIncompleteDoubleWordAtItsEnd)
{
    auto const image = WriteImage(3 * kPageSize + 13);

    EXPECT_EQ(Run(kDownload), 0) << output_;

    auto expected = image;
    std::fill_n(expected.end() - 5, 5, std::byte{0xFF});
    EXPECT_EQ(plugged_.unit.ReadMemory(kFlashStart, image.size()), expected);
    std::vector<std::string> lines;
    for (auto const& entry : plugged_.unit.Journal()) {
        lines.push_back(ToText(entry));
    }
    EXPECT_THAT(lines, testing::Contains("write 0x08001800 13 ack incomplete"));
}

TEST_F(DfuUtil, ReadsTheOtpAreaAndTheFlash)
{
    plugged_.unit.LoadMemory(kFlashStart, Bytes(5 * kPageSize + 17, std::byte{0x5A}));

    EXPECT_EQ(Run(u"-a 2 -s 0x1fff7000:1024 -U otp.bin"_s), 0) << output_;
    EXPECT_EQ(Run(u"-a 0 -s 0x08000000:10257 -U read.bin"_s), 0) << output_;

    EXPECT_EQ(ReadFile(FilePath("otp.bin")).size(), 1024);
    EXPECT_EQ(ReadFile(FilePath("otp.bin")).left(5), QByteArray("\x11\x47\x23\x01\x07"));
    EXPECT_EQ(ReadFile(FilePath("read.bin")), QByteArray(10257, '\x5A')) << "several blocks";
    EXPECT_TRUE(plugged_.unit.Status().plugged);
}

TEST_F(DfuUtil, LeavesAUnitThatTheNextRunUpdatesWhenItIsKilledInTheMiddle)
{
    WriteImage();
    plugged_.unit.AddFault({FaultKind::kSlowErase, 3, 1, 20000});
    Start(kDownload);
    while (plugged_.unit.Status().fault_strikes == 0 && !process_.waitForFinished(5)) {
    }
    process_.kill();
    EXPECT_TRUE(process_.waitForFinished());
    plugged_.unit.Reset();

    ExpectImageCanBeWritten();
}

TEST_F(DfuUtil, EndsWithAnErrorAtAFaultThatIsOverWhenTheUnitIsPluggedInAgain)
{
    WriteImage();
    for (auto const& [fault, complaint] :
         {std::pair{Fault{FaultKind::kVanishInErase, 5}, "\"ERASE_PAGE\" get_status"},
          std::pair{Fault{FaultKind::kVanishInWrite, 5}, "during download get_status"},
          std::pair{Fault{FaultKind::kSilentInWrite, 5}, "during download get_status"},
          std::pair{Fault{FaultKind::kErrorInErase, 5, 1, 4}, "ERASE_PAGE not correctly"},
          std::pair{Fault{FaultKind::kErrorInWrite, 5, 1, 3}, "unable to write memory"},
          std::pair{Fault{FaultKind::kErrorInWrite, 5, 1, 7}, "failed verification"}}) {
        plugged_.unit.Plug();
        plugged_.unit.AddFault(fault);

        EXPECT_EQ(Run(kDownload), kToolError);

        EXPECT_THAT(output_, HasSubstr(complaint));
        EXPECT_EQ(plugged_.unit.Status().fault_strikes, 1U) << complaint;
        EXPECT_EQ(plugged_.unit.Status().state, UnitState::kSynchronised) << complaint;
        EXPECT_THAT(LastLine(), EndsWith("fault"));
        plugged_.unit.Unplug();
        plugged_.unit.ClearFaults();
        plugged_.unit.Plug();
        ExpectImageCanBeWritten();
    }
}

}  // namespace
}  // namespace simulator
