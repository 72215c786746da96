// An independent client, Debian's stm32flash, against the simulated unit: its authors have read the
// same application note, and nothing of this project. A missing tool is a failure: without it
// nothing here would prove that unit and updater do not share one misunderstanding.
#include <gtest/gtest.h>

#include <QProcess>
#include <QTemporaryDir>
#include <string>

#include "tests/simulator/image_file.h"
#include "tests/simulator/port_test_support.h"
#include "tests/support/files.h"

using namespace Qt::StringLiterals;

namespace simulator {

namespace {

using test::Bytes;
using test::PluggedUnit;

constexpr size_t kPageSize = 2048;

class Stm32Flash : public testing::TestWithParam<EraseCommands> {
protected:
    static SimulatedUnitOptions Options()
    {
        Stm32BootloaderOptions bootloader;
        bootloader.commands = ListCommands(GetParam());
        auto options = test::UniqueOptions();
        options.bootloader = bootloader;
        return options;
    }

    // Runs the tool on the unit's pseudo-terminal. Without parity: a pseudo-terminal keeps none,
    // and the tool checks what it has set.
    void Run(QString const& arguments)
    {
        QProcess process;
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.setWorkingDirectory(directory_.path());
        process.start(u"stm32flash"_s, u"-m 8n1 -b 460800 %1 %2"_s
                                           .arg(arguments, QString::fromStdString(plugged_.Pty()))
                                           .split(u' '));
        ASSERT_TRUE(process.waitForStarted()) << "is stm32flash installed?";
        ASSERT_TRUE(process.waitForFinished()) << "stm32flash does not end";
        ASSERT_EQ(process.exitCode(), 0) << process.readAll().toStdString();
    }

    QString FilePath(char const* name) const
    {
        return directory_.filePath(QString::fromLatin1(name));
    }

    // An image of odd length, so that the tool has to pad it.
    Bytes WriteImage() { return test::WriteImageFile(FilePath("image.bin"), 5 * kPageSize + 301); }

    std::string LastLine() { return ToText(plugged_.unit.Journal().back()); }

    PluggedUnit plugged_{Options()};
    QTemporaryDir directory_;
};

TEST_P(Stm32Flash, WritesVerifiesAndStartsAnImage)
{
    auto const image = WriteImage();
    plugged_.unit.LoadMemory(kFlashStart, Bytes(6 * kPageSize, std::byte{0x00}));

    Run(u"-w image.bin -v -g 0x08000000"_s);

    EXPECT_EQ(plugged_.unit.ReadMemory(kFlashStart, image.size()), image);
    auto const status = plugged_.unit.Status();
    EXPECT_EQ(status.state, UnitState::kRunning);
    EXPECT_EQ(status.jump_address, kFlashStart);
    EXPECT_EQ(status.programmed_over_unerased, 0U);
    EXPECT_EQ(LastLine(), "go 0x08000000 ack");
}

TEST_P(Stm32Flash, ReadsAndErasesTheFlash)
{
    auto const image = WriteImage();
    plugged_.unit.LoadMemory(kFlashStart, image);

    Run(u"-r read.bin -S 0x08000000:%1"_s.arg(image.size()));
    Run(u"-o"_s);

    EXPECT_EQ(ReadFile(FilePath("read.bin")), ReadFile(FilePath("image.bin")));
    EXPECT_EQ(plugged_.unit.ReadMemory(kFlashStart, image.size()),
              Bytes(image.size(), std::byte{0xFF}));
}

INSTANTIATE_TEST_SUITE_P(EraseCommands, Stm32Flash,
                         testing::Values(EraseCommands::kLegacy, EraseCommands::kExtended),
                         [](auto const& parameter) {
                             return parameter.param == EraseCommands::kLegacy ? "Erase"
                                                                              : "ExtendedErase";
                         });

}  // namespace
}  // namespace simulator
