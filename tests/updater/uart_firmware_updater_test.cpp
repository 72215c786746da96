// The UART backend on a real QSerialPort, with a simulated unit at the other end of the line.
#include "updater/uart_firmware_updater.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <termios.h>
#include <unistd.h>

#include "tests/support/pattern_image.h"
#include "tests/updater/uart_unit.h"

using namespace Qt::StringLiterals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// What the started firmware finds at the boot-mode address.
std::vector<std::byte> const kMarker{std::byte{'P'}, std::byte{'U'}, std::byte{'W'},
                                     std::byte{'F'}};

// What the engine puts in place of the image's last four bytes: its number, then zeros.
QByteArray const kTrailerEnd("\x01\x00\x00\x00", 4);

constexpr auto Pattern = PatternImage<QByteArray>;

QByteArray ErasedBytes(qsizetype size)
{
    return QByteArray(size, '\xFF');
}

using UartConnect = UartUnitTest;

class UartUpdate : public UartUnitTest {
protected:
    // A backend that is connected to a unit that was just reset.
    std::unique_ptr<UartFirmwareUpdater> Connect(QString const& path, unsigned address = kFlash)
    {
        unit_->Reset();
        signals_.clear();
        auto backend = MakeBackend(path, {}, address);
        backend->onConnectToDevice(port_, {kModel}, true);
        EXPECT_EQ(signals_, QStringList({u"Connected"_s}));
        signals_.clear();
        return backend;
    }

    // Runs one whole update.
    void Update(QByteArray const& image, unsigned address = kFlash)
    {
        Connect(MakeFile(image), address)->onStartUpdate();
    }

    // Expects that an update with the file at `path` fails without a byte on the line.
    void ExpectNothingSent(QString const& path)
    {
        auto backend = Connect(path);
        unit_->LoadMemory(kFlash, {std::byte{0x00}, std::byte{0x42}});
        auto const commands = Commands();

        backend->onStartUpdate();

        EXPECT_EQ(signals_.first(), u"started"_s);
        EXPECT_EQ(signals_.last(), u"finished false"_s);
        EXPECT_EQ(signals_.filter(u"finished"_s).size(), 1);
        EXPECT_EQ(Commands(), commands);
        EXPECT_EQ(Flash(2), QByteArray("\x00\x42", 2));
        EXPECT_EQ(unit_->Status().erased_pages, 0U);
    }
};

}  // namespace

TEST(UartBackend, HasItsNameItsBaseAndTheParentItWasGiven)
{
    QObject parent;
    auto const* backend = new UartFirmwareUpdater({}, 0, 0, 0, 0, 0, {}, &parent);

    EXPECT_STREQ(backend->metaObject()->className(), "UartFirmwareUpdater");
    EXPECT_EQ(backend->metaObject()->superClass(), &FirmwareUpdaterBase::staticMetaObject);
    EXPECT_EQ(backend->parent(), &parent);
}

// A pseudo-terminal keeps the speed that its client sets.
TEST_F(UartConnect, OpensThePortAt460800Baud)
{
    auto backend = MakeBackend();
    backend->onConnectToDevice(port_, {kModel}, true);

    int const line = ::open(unit_->Status().pty_path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios modes{};
    EXPECT_EQ(tcgetattr(line, &modes), 0);
    ::close(line);

    EXPECT_EQ(cfgetospeed(&modes), speed_t{B460800});
    EXPECT_EQ(cfgetispeed(&modes), speed_t{B460800});
}

// model_id_test.cpp has every spelling of "service".
TEST_F(UartConnect, ReadsTheOtpOnlyToVerifyFirmwareThatIsNotForService)
{
    struct {
        QString target_type;
        QList<uint8_t> models;
        bool verify;
        bool reads;
    } const rows[] = {{{}, {}, false, false},
                      {u"service"_s, {}, true, false},
                      {{}, {kModel}, true, true}};  // last, since the unit's journal goes on
    for (auto const& [target_type, models, verify, reads] : rows) {
        SCOPED_TRACE(target_type.toStdString() + " verify: " + std::to_string(verify));
        unit_->Reset();
        signals_.clear();
        auto backend = MakeBackend({}, target_type);

        backend->onConnectToDevice(port_, models, verify);

        EXPECT_EQ(signals_, QStringList({u"Connected"_s}));
        EXPECT_EQ(WasRead(), reads);
        EXPECT_EQ(OpenPorts(), 1);
    }
}

TEST_F(UartConnect, OfAWrongOrUnreadableModelClosesThePortAndTheNextOneStartsFromScratch)
{
    auto backend = MakeBackend();
    backend->onConnectToDevice(port_, {kModel + 1}, true);
    EXPECT_EQ(OpenPorts(), 0);
    unit_->Reset();
    // Get and Get ID are answered, the next Read Memory is refused.
    unit_->AddFault({.kind = simulator::FaultKind::kNackCommand, .at = 3});
    backend->onConnectToDevice(port_, {kModel}, true);
    EXPECT_EQ(OpenPorts(), 0);
    unit_->Reset();
    unit_->ClearFaults();
    backend->onConnectToDevice(port_, {kModel}, true);

    EXPECT_EQ(signals_,
              QStringList({u"VerificationFailed"_s, u"VerificationFailed"_s, u"Connected"_s}));
    EXPECT_EQ(unit_->Status().connects, 3U);
}

TEST_F(UartConnect, CanBeRepeatedUntilASilentUnitAnswers)
{
    auto backend = MakeBackend();
    unit_->SetSilent(true);
    for (int i = 0; i < 2; ++i) {
        backend->onConnectToDevice(port_, {kModel}, true);
    }
    ASSERT_EQ(signals_, QStringList({u"Disconnected"_s, u"Disconnected"_s}));
    EXPECT_LE(OpenPorts(), 1);

    unit_->SetSilent(false);
    backend->onConnectToDevice(port_, {kModel}, true);

    EXPECT_EQ(signals_.last(), u"Connected"_s);
    EXPECT_EQ(OpenPorts(), 1);
}

TEST_F(UartConnect, IsEndedByDisconnectWhichReportsEachTimeAndCanBeRepeatedWithoutIt)
{
    auto backend = MakeBackend();
    backend->onDisconnectDevice();
    EXPECT_TRUE(Commands().empty());
    backend->onConnectToDevice(port_, {kModel}, true);
    unit_->Reset();
    backend->onConnectToDevice(port_, {kModel}, true);
    EXPECT_EQ(OpenPorts(), 1) << "the port is opened anew";

    backend->onDisconnectDevice();
    EXPECT_EQ(OpenPorts(), 0);
    backend->onDisconnectDevice();
    unit_->Unplug();
    auto const other = port_ + u"1"_s;
    unit_->Plug(other.toStdString());
    backend->onConnectToDevice(other, {kModel}, true);

    EXPECT_EQ(signals_, QStringList({u"Disconnected"_s, u"Connected"_s, u"Connected"_s,
                                     u"Disconnected"_s, u"Disconnected"_s, u"Connected"_s}));
}

TEST_F(UartConnect, WorksThroughTheBaseClass)
{
    auto backend = MakeBackend();
    FirmwareUpdaterBase& base = *backend;

    EXPECT_TRUE(base.connect(port_));
    EXPECT_TRUE(base.verifyDeviceId({1, 2, kModel}));
    EXPECT_FALSE(base.verifyDeviceId({1, 2}));
    EXPECT_FALSE(base.verifyDeviceId({}));
    base.disconnect();
    EXPECT_EQ(OpenPorts(), 0);
    EXPECT_TRUE(signals_.isEmpty());
}

TEST_F(UartUpdate, WritesTheImageReportsItsProgressMarksTheBootModeAndStartsTheFirmware)
{
    auto const image = Pattern(20008);

    Update(image);

    // The first 20000 bytes pass 8 KiB twice: 8192 and 16384 of 20000.
    EXPECT_EQ(signals_, QStringList({u"started"_s, u"0"_s, u"40"_s, u"81"_s, u"finished true"_s}));
    EXPECT_EQ(Flash(20008), image.first(20004) + kTrailerEnd);
    auto const status = unit_->Status();
    EXPECT_EQ(status.marker, kMarker);
    EXPECT_EQ(status.jump_address, kStart);
    EXPECT_EQ(status.erased_pages, 10U);
    EXPECT_EQ(status.programmed_over_unerased, 0U);
}

TEST_F(UartUpdate, PadsTheImageWithZerosToAMultipleOfFourBytes)
{
    // Padded to 8 or 16 bytes, which the unit's flash takes.
    for (size_t const size : {5U, 6U, 7U, 8U, 13U, 14U, 15U, 16U}) {
        unit_->Reset();
        signals_.clear();
        Update(Pattern(size));

        auto const kept = size <= 8 ? 4 : 12;
        EXPECT_EQ(signals_.last(), u"finished true"_s) << size;
        EXPECT_EQ(Flash(20), Pattern(size).leftJustified(kept, '\0', true) + kTrailerEnd +
                                 ErasedBytes(16 - kept))
            << size;
    }
}

TEST_F(UartUpdate, WritesToTheAddressItWasGiven)
{
    Update(Pattern(16), 0x08000400);

    EXPECT_EQ(signals_.last(), u"finished true"_s);
    EXPECT_EQ(Flash(0x400), ErasedBytes(0x400));
    EXPECT_EQ(Flash(12, 0x08000400), Pattern(12));
}

// Nothing is mapped where /proc/self/mem begins: it opens, but cannot be read.
TEST_F(UartUpdate, OfAFileThatCannotBeReadSaysSoAndSendsNothing)
{
    for (auto const& path : {folder_.filePath(u"missing.bin"_s), u"/proc/self/mem"_s}) {
        testing::internal::CaptureStdout();

        ExpectNothingSent(path);

        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  "File " + path.toStdString() + " not found/could not be opened\n");
    }
}

TEST_F(UartUpdate, OfAnImageBelowFiveBytesOrOfADirectorySendsNothing)
{
    for (auto const size : {0U, 1U, 4U}) {
        SCOPED_TRACE(size);
        ExpectNothingSent(MakeFile(Pattern(size)));
    }
    ExpectNothingSent(folder_.path());
}

TEST_F(UartUpdate, PassesEachPercentageToItsCallerIfThatGaveAFunction)
{
    auto backend = MakeBackend();
    std::vector<int> percentages;
    auto const note = [&](int percent) { percentages.push_back(percent); };
    EXPECT_FALSE(backend->upload(folder_.filePath(u"missing.bin"_s), note));
    EXPECT_THAT(percentages, IsEmpty());
    ASSERT_TRUE(backend->connect(port_));

    EXPECT_TRUE(backend->upload(MakeFile(Pattern(8200)), note));
    unit_->Reset();
    ASSERT_TRUE(backend->connect(port_));
    EXPECT_TRUE(backend->upload(MakeFile(Pattern(8200)), {}));

    EXPECT_THAT(percentages, ElementsAre(0, 100));
    EXPECT_TRUE(signals_.isEmpty());
}

TEST_F(UartUpdate, FailsWithoutStartingTheFirmwareAndCanBeRepeated)
{
    for (auto const& fault : {simulator::Fault{.kind = simulator::FaultKind::kNackErase},
                              {.kind = simulator::FaultKind::kSilentInWrite, .parameter = 10}}) {
        auto backend = Connect(MakeFile(Pattern(64)));
        unit_->AddFault(fault);
        backend->onStartUpdate();
        EXPECT_EQ(signals_, QStringList({u"started"_s, u"0"_s, u"finished false"_s}));
        EXPECT_EQ(unit_->Status().jump_address, std::nullopt);
        EXPECT_NE(unit_->Status().marker, kMarker);
    }
    unit_->ClearFaults();

    Update(Pattern(64));

    EXPECT_EQ(signals_, QStringList({u"started"_s, u"0"_s, u"finished true"_s}));
    EXPECT_EQ(Flash(60), Pattern(60));
}

TEST_F(UartUpdate, SucceedsAlthoughTheFirmwareDoesNotStart)
{
    auto backend = Connect(MakeFile(Pattern(16)));
    // The first write is the image's body, the second its trailer, the third the marker.
    unit_->AddFault({.kind = simulator::FaultKind::kNackWriteCommand, .at = 3, .count = 100});

    backend->onStartUpdate();

    EXPECT_EQ(signals_.last(), u"finished true"_s);
    EXPECT_EQ(signals_.filter(u"finished"_s).size(), 1);
    EXPECT_EQ(Flash(12), Pattern(12));
    EXPECT_EQ(unit_->Status().jump_address, std::nullopt);
}

TEST_F(UartUpdate, ResetAloneStartsTheFirmwareAndKeepsThePortOpenUntilTheBackendEnds)
{
    auto backend = MakeBackend();
    ASSERT_TRUE(backend->connect(port_));

    backend->reset();

    EXPECT_EQ(unit_->Status().marker, kMarker);
    EXPECT_EQ(unit_->Status().jump_address, kStart);
    EXPECT_EQ(Flash(512 * 1024), ErasedBytes(512 * 1024));
    EXPECT_EQ(OpenPorts(), 1);
    backend.reset();
    EXPECT_EQ(OpenPorts(), 0);
}
