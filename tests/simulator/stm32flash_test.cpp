// An independent client, Debian's stm32flash, against the simulated unit: whoever wrote it has read
// the same application note, and nothing of this project. A missing tool is a failure: without it
// nothing here would tell whether unit and updater merely share one misunderstanding.
#include <gtest/gtest.h>

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <ostream>
#include <string>

#include "tests/simulator/image_file.h"
#include "tests/simulator/port_test_support.h"

namespace simulator {

// Names the parameter in a test's name.
static void PrintTo(EraseCommands erase_commands, std::ostream* stream)
{
    *stream << (erase_commands == EraseCommands::kLegacy ? "Erase" : "Extended Erase");
}

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
    void Run(QStringList const& arguments)
    {
        QProcess process;
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.start(QStringLiteral("stm32flash"),
                      QStringList{QStringLiteral("-m"), QStringLiteral("8n1"), QStringLiteral("-b"),
                                  QStringLiteral("460800")} +
                          arguments + QStringList{QString::fromStdString(plugged_.Pty())});
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

    Run({QStringLiteral("-w"), FilePath("image.bin"), QStringLiteral("-v"), QStringLiteral("-g"),
         QStringLiteral("0x08000000")});

    EXPECT_EQ(plugged_.unit.ReadMemory(kFlashStart, image.size()), image);
    auto const status = plugged_.unit.Status();
    EXPECT_EQ(status.state, Stm32Bootloader::State::kRunning);
    EXPECT_EQ(status.jump_address, kFlashStart);
    EXPECT_EQ(status.programmed_over_unerased, 0U);
    EXPECT_EQ(LastLine(), "go 0x08000000 ack");
}

TEST_P(Stm32Flash, ReadsTheFlash)
{
    auto const image = WriteImage();
    plugged_.unit.LoadMemory(kFlashStart, image);

    Run({QStringLiteral("-r"), FilePath("read.bin"), QStringLiteral("-S"),
         QStringLiteral("0x08000000:%1").arg(image.size())});

    QFile read(FilePath("read.bin"));
    QFile written(FilePath("image.bin"));
    ASSERT_TRUE(read.open(QIODevice::ReadOnly));
    ASSERT_TRUE(written.open(QIODevice::ReadOnly));
    EXPECT_EQ(read.readAll(), written.readAll());
}

TEST_P(Stm32Flash, ErasesTheFlash)
{
    plugged_.unit.LoadMemory(0x0807F000, Bytes(4096, std::byte{0x00}));

    Run({QStringLiteral("-o")});

    EXPECT_EQ(plugged_.unit.ReadMemory(0x0807F000, 4096), Bytes(4096, std::byte{0xFF}));
}

INSTANTIATE_TEST_SUITE_P(EraseCommands, Stm32Flash,
                         testing::Values(EraseCommands::kLegacy, EraseCommands::kExtended),
                         [](auto const& parameter) {
                             return parameter.param == EraseCommands::kLegacy ? "Erase"
                                                                              : "ExtendedErase";
                         });

}  // namespace
}  // namespace simulator
