// The UART backend on a real QSerialPort, with a simulated unit at the other end of the line.
#include "updater/uart_firmware_updater.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/updater/uart_unit.h"

using namespace Qt::StringLiterals;
using testing::ElementsAre;

namespace {

// What the started firmware finds at the boot-mode address.
std::vector<std::byte> const kMarker{std::byte{'P'}, std::byte{'U'}, std::byte{'W'},
                                     std::byte{'F'}};

QByteArray Pattern(qsizetype size)
{
    QByteArray bytes(size, '\0');
    for (qsizetype i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>((i * 7 + i / 256) % 251);
    }
    return bytes;
}

QByteArray ErasedBytes(qsizetype size)
{
    return QByteArray(size, '\xFF');
}

class UartConnect : public UartUnitTest {};
class UartUpdate : public UartUnitTest {
protected:
    // Runs one whole update of a unit that was just reset.
    void Update(QByteArray const& image)
    {
        auto backend = MakeBackend(MakeFile(image));
        backend->onConnectToDevice(port_, {kModel}, true);
        ASSERT_EQ(signals_, QStringList({u"Connected"_s}));
        signals_.clear();
        backend->onStartUpdate();
    }

    // Expects that an upload of `path` fails without a byte on the line.
    void ExpectNothingSent(QString const& path)
    {
        auto backend = MakeBackend(path);
        backend->onConnectToDevice(port_, {kModel}, true);
        ASSERT_EQ(signals_, QStringList({u"Connected"_s}));
        unit_->LoadMemory(kFlash, {std::byte{0x00}, std::byte{0x42}});
        auto const commands = Commands();
        signals_.clear();

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

TEST(UartBackend, TellsItsNamesAndPlaceInTheHierarchy)
{
    UartFirmwareUpdater const backend({}, 0, 0, 0, 0, 0, {}, nullptr);

    EXPECT_STREQ(backend.metaObject()->className(), "UartFirmwareUpdater");
    EXPECT_EQ(backend.metaObject()->superClass(), &FirmwareUpdaterBase::staticMetaObject);
    EXPECT_EQ(backend.parent(), nullptr);
}

TEST(UartBackend, BelongsToTheParentItWasGiven)
{
    QObject parent;

    auto const* backend = new UartFirmwareUpdater({}, 0, 0, 0, 0, 0, {}, &parent);

    EXPECT_EQ(backend->parent(), &parent);
}

TEST_F(UartConnect, OfAListedModelReadsTheOtpAndReportsConnected)
{
    auto backend = MakeBackend();

    backend->onConnectToDevice(port_, {kModel}, true);

    EXPECT_EQ(signals_, QStringList({u"Connected"_s}));
    EXPECT_TRUE(WasRead());
    EXPECT_EQ(OpenPorts(), 1);
}

TEST_F(UartConnect, WithoutVerificationDoesNotReadTheOtp)
{
    auto backend = MakeBackend();

    backend->onConnectToDevice(port_, {}, false);

    EXPECT_EQ(signals_, QStringList({u"Connected"_s}));
    EXPECT_THAT(Commands(), ElementsAre("sync", "get", "get-id"));
}

TEST_F(UartConnect, OfServiceFirmwareDoesNotReadTheOtp)
{
    auto backend = MakeBackend({}, u"service"_s);

    backend->onConnectToDevice(port_, {}, true);

    EXPECT_EQ(signals_, QStringList({u"Connected"_s}));
    EXPECT_FALSE(WasRead());
}

TEST_F(UartConnect, OfServiceInOtherLettersReadsTheOtp)
{
    auto backend = MakeBackend({}, u"Service"_s);

    backend->onConnectToDevice(port_, {}, true);

    EXPECT_EQ(signals_, QStringList({u"VerificationFailed"_s}));
    EXPECT_TRUE(WasRead());
}

TEST_F(UartConnect, OfAWrongModelClosesThePort)
{
    auto backend = MakeBackend();

    backend->onConnectToDevice(port_, {kModel + 1}, true);

    EXPECT_EQ(signals_, QStringList({u"VerificationFailed"_s}));
    EXPECT_EQ(OpenPorts(), 0);
}

TEST_F(UartConnect, AfterAWrongModelStartsFromScratch)
{
    auto backend = MakeBackend();
    backend->onConnectToDevice(port_, {kModel + 1}, true);
    ASSERT_EQ(signals_, QStringList({u"VerificationFailed"_s}));
    unit_->Reset();

    backend->onConnectToDevice(port_, {kModel}, true);

    EXPECT_EQ(signals_.last(), u"Connected"_s);
    EXPECT_EQ(unit_->Status().connects, 2U);
}

TEST_F(UartConnect, WithUnreadableOtpCountsAsAWrongModel)
{
    // Get and Get ID are answered, the first Read Memory is refused.
    unit_->AddFault({.kind = simulator::FaultKind::kNackCommand, .at = 3});
    auto backend = MakeBackend();

    backend->onConnectToDevice(port_, {kModel}, true);

    EXPECT_EQ(signals_, QStringList({u"VerificationFailed"_s}));
    EXPECT_EQ(OpenPorts(), 0);
}

TEST_F(UartConnect, IsRepeatedUntilASilentUnitAnswers)
{
    auto backend = MakeBackend();
    unit_->SetSilent(true);
    for (int i = 0; i < 3; ++i) {
        backend->onConnectToDevice(port_, {kModel}, true);
    }
    ASSERT_EQ(signals_, QStringList({u"Disconnected"_s, u"Disconnected"_s, u"Disconnected"_s}));
    EXPECT_LE(OpenPorts(), 1);

    unit_->SetSilent(false);
    backend->onConnectToDevice(port_, {kModel}, true);

    EXPECT_EQ(signals_.last(), u"Connected"_s);
    EXPECT_EQ(OpenPorts(), 1);
}

TEST_F(UartConnect, WhileStillConnectedOpensThePortAnew)
{
    auto backend = MakeBackend();
    backend->onConnectToDevice(port_, {kModel}, true);
    unit_->Reset();

    backend->onConnectToDevice(port_, {kModel}, true);

    EXPECT_EQ(signals_, QStringList({u"Connected"_s, u"Connected"_s}));
    EXPECT_EQ(OpenPorts(), 1);
}

TEST_F(UartConnect, ToAUnitThatReturnedUnderAnotherNameSucceeds)
{
    auto backend = MakeBackend();
    backend->onConnectToDevice(port_, {kModel}, true);
    backend->onDisconnectDevice();
    unit_->Unplug();
    auto const other = port_ + u"1"_s;
    unit_->Plug(other.toStdString());

    backend->onConnectToDevice(other, {kModel}, true);

    EXPECT_EQ(signals_, QStringList({u"Connected"_s, u"Disconnected"_s, u"Connected"_s}));
}

TEST_F(UartConnect, IsEndedByDisconnectWhichClosesThePort)
{
    auto backend = MakeBackend();
    backend->onConnectToDevice(port_, {kModel}, true);

    backend->onDisconnectDevice();

    EXPECT_EQ(signals_, QStringList({u"Connected"_s, u"Disconnected"_s}));
    EXPECT_EQ(OpenPorts(), 0);
}

TEST_F(UartConnect, DisconnectTwiceReportsTwice)
{
    auto backend = MakeBackend();
    backend->onConnectToDevice(port_, {kModel}, true);

    backend->onDisconnectDevice();
    backend->onDisconnectDevice();

    EXPECT_EQ(signals_, QStringList({u"Connected"_s, u"Disconnected"_s, u"Disconnected"_s}));
}

TEST_F(UartConnect, DisconnectWithoutAConnectOnlyReports)
{
    auto backend = MakeBackend();

    backend->onDisconnectDevice();

    EXPECT_EQ(signals_, QStringList({u"Disconnected"_s}));
    EXPECT_TRUE(Commands().empty());
}

TEST_F(UartConnect, EndsWithTheBackend)
{
    auto backend = MakeBackend();
    backend->onConnectToDevice(port_, {kModel}, true);
    ASSERT_EQ(OpenPorts(), 1);

    backend.reset();

    EXPECT_EQ(OpenPorts(), 0);
}

TEST_F(UartConnect, AnswersThroughTheBaseClass)
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

TEST_F(UartUpdate, WritesTheImageMarksTheBootModeAndStartsTheFirmware)
{
    auto const image = Pattern(4096);

    Update(image);

    EXPECT_EQ(signals_.first(), u"started"_s);
    EXPECT_EQ(signals_.last(), u"finished true"_s);
    auto expected = image;
    expected.replace(4092, 4, QByteArray("\x01\x00\x00\x00", 4));
    EXPECT_EQ(Flash(4096), expected);
    auto const status = unit_->Status();
    EXPECT_EQ(status.marker, kMarker);
    EXPECT_EQ(status.jump_address, kStart);
    EXPECT_EQ(status.erased_pages, 2U);
    EXPECT_EQ(status.programmed_over_unerased, 0U);
}

TEST_F(UartUpdate, ReportsItsProgressInOrderBetweenStartAndEnd)
{
    Update(Pattern(20008));

    // The first 20000 bytes pass 8 KiB twice: 8192 and 16384 of 20000.
    EXPECT_EQ(signals_, QStringList({u"started"_s, u"0"_s, u"40"_s, u"81"_s, u"finished true"_s}));
}

TEST_F(UartUpdate, FillsUpToAMultipleOfFourBytes)
{
    for (qsizetype size = 9; size <= 12; ++size) {
        unit_->Reset();
        signals_.clear();
        Update(Pattern(size));

        EXPECT_EQ(signals_.last(), u"finished true"_s);
        EXPECT_EQ(Flash(16), Pattern(8) + QByteArray("\x01\x00\x00\x00", 4) + ErasedBytes(4))
            << size;
    }
}

TEST_F(UartUpdate, WritesToTheAddressItWasGiven)
{
    auto backend = MakeBackend(MakeFile(Pattern(16)), {}, 0x08000400);
    backend->onConnectToDevice(port_, {kModel}, true);

    backend->onStartUpdate();

    EXPECT_EQ(signals_.last(), u"finished true"_s);
    EXPECT_EQ(Flash(0x400), ErasedBytes(0x400));
    EXPECT_EQ(Flash(12, 0x08000400), Pattern(12));
}

TEST_F(UartUpdate, TakesAFileOfExactlyEightBytes)
{
    Update(Pattern(8));

    EXPECT_EQ(signals_.last(), u"finished true"_s);
    EXPECT_EQ(Flash(12), Pattern(4) + QByteArray("\x01\x00\x00\x00", 4) + ErasedBytes(4));
}

TEST_F(UartUpdate, OfAMissingFileSaysSoAndSendsNothing)
{
    auto const path = folder_.filePath(u"missing.bin"_s);
    testing::internal::CaptureStdout();

    ExpectNothingSent(path);

    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "File " + path.toStdString() + " not found/could not be opened\n");
}

TEST_F(UartUpdate, OfAMissingFileReturnsFalseWithoutProgress)
{
    auto backend = MakeBackend();
    bool progressed = false;

    EXPECT_FALSE(
        backend->upload(folder_.filePath(u"missing.bin"_s), [&](int) { progressed = true; }));

    EXPECT_FALSE(progressed);
    EXPECT_TRUE(signals_.isEmpty());
}

TEST_F(UartUpdate, OfAnEmptyFileSendsNothing)
{
    ExpectNothingSent(MakeFile({}));
}

TEST_F(UartUpdate, OfThreeBytesSendsNothing)
{
    ExpectNothingSent(MakeFile(Pattern(3)));
}

TEST_F(UartUpdate, OfFourBytesSendsNothing)
{
    ExpectNothingSent(MakeFile(Pattern(4)));
}

TEST_F(UartUpdate, OfSevenBytesSendsNothing)
{
    ExpectNothingSent(MakeFile(Pattern(7)));
}

TEST_F(UartUpdate, OfADirectorySendsNothing)
{
    ExpectNothingSent(folder_.path());
}

TEST_F(UartUpdate, OfAFileThatOpensButCannotBeReadSaysSoAndSendsNothing)
{
    testing::internal::CaptureStdout();

    // Nothing is mapped where it begins.
    ExpectNothingSent(u"/proc/self/mem"_s);

    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "File /proc/self/mem not found/could not be opened\n");
}

TEST_F(UartUpdate, NeedsNoOneToHearItsProgress)
{
    auto backend = MakeBackend();
    ASSERT_TRUE(backend->connect(port_));

    EXPECT_TRUE(backend->upload(MakeFile(Pattern(8200)), {}));

    EXPECT_EQ(Flash(16), Pattern(16));
}

TEST_F(UartUpdate, HandsEachPercentageToItsCaller)
{
    auto backend = MakeBackend();
    ASSERT_TRUE(backend->connect(port_));
    std::vector<int> percentages;

    EXPECT_TRUE(backend->upload(MakeFile(Pattern(8200)),
                                [&](int percent) { percentages.push_back(percent); }));

    EXPECT_THAT(percentages, ElementsAre(0, 100));
    EXPECT_TRUE(signals_.isEmpty());
}

TEST_F(UartUpdate, ThatTheUnitRefusesFailsAndDoesNotStartTheFirmware)
{
    auto backend = MakeBackend(MakeFile(Pattern(64)));
    backend->onConnectToDevice(port_, {kModel}, true);
    unit_->AddFault({.kind = simulator::FaultKind::kNackErase});

    backend->onStartUpdate();

    EXPECT_EQ(signals_, QStringList({u"Connected"_s, u"started"_s, u"0"_s, u"finished false"_s}));
    EXPECT_EQ(unit_->Status().jump_address, std::nullopt);
    EXPECT_NE(unit_->Status().marker, kMarker);
}

TEST_F(UartUpdate, CanBeRepeatedAfterAFailure)
{
    auto backend = MakeBackend(MakeFile(Pattern(64)));
    backend->onConnectToDevice(port_, {kModel}, true);
    unit_->AddFault({.kind = simulator::FaultKind::kSilentInWrite, .parameter = 10});
    backend->onStartUpdate();
    ASSERT_EQ(signals_.last(), u"finished false"_s);
    unit_->ClearFaults();
    unit_->Reset();
    signals_.clear();

    backend->onConnectToDevice(port_, {kModel}, true);
    backend->onStartUpdate();

    EXPECT_EQ(signals_, QStringList({u"Connected"_s, u"started"_s, u"0"_s, u"finished true"_s}));
    EXPECT_EQ(Flash(60), Pattern(60));
}

TEST_F(UartUpdate, SucceedsAlthoughTheFirmwareDoesNotStart)
{
    auto backend = MakeBackend(MakeFile(Pattern(16)));
    backend->onConnectToDevice(port_, {kModel}, true);
    // The first write is the image's body, the second its trailer, the third the marker.
    unit_->AddFault({.kind = simulator::FaultKind::kNackWriteCommand, .at = 3, .count = 100});

    backend->onStartUpdate();

    EXPECT_EQ(signals_.last(), u"finished true"_s);
    EXPECT_EQ(signals_.filter(u"finished"_s).size(), 1);
    EXPECT_EQ(Flash(12), Pattern(12));
    EXPECT_EQ(unit_->Status().jump_address, std::nullopt);
}

TEST_F(UartUpdate, ResetAloneMarksTheBootModeAndStartsTheFirmware)
{
    auto backend = MakeBackend();
    ASSERT_TRUE(backend->connect(port_));

    backend->reset();

    EXPECT_EQ(unit_->Status().marker, kMarker);
    EXPECT_EQ(unit_->Status().jump_address, kStart);
    EXPECT_TRUE(FlashIsErased());
}

TEST_F(UartUpdate, LeavesThePortToTheBackendsEnd)
{
    {
        auto backend = MakeBackend(MakeFile(Pattern(64)));
        backend->onConnectToDevice(port_, {kModel}, true);
        backend->onStartUpdate();
    }

    EXPECT_EQ(OpenPorts(), 0);
}
