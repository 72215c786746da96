#include "tests/updater/uart_unit.h"

#include <QDir>
#include <algorithm>

#include "simulator/chips/otp_image.h"
#include "tests/support/backend_signals.h"
#include "tests/support/files.h"

using namespace Qt::StringLiterals;

namespace {

// umockdev keeps its state for the whole process, so all tests share one testbed.
std::shared_ptr<simulator::UsbTestbed> SharedTestbed()
{
    static auto const testbed = std::make_shared<simulator::UsbTestbed>();
    return testbed;
}

}  // namespace

UartUnitTest::UartUnitTest()
{
    simulator::OtpImage otp(512);
    otp.SetModelId(3, kModel);
    simulator::Stm32BootloaderOptions bootloader;
    bootloader.otp = otp.Bytes();
    bootloader.boot_mode_address = kBootMode;
    simulator::SimulatedUnitOptions options;
    options.bootloader = bootloader;
    options.port.name = port_.toStdString();
    unit_ = std::make_unique<simulator::SimulatedUnit>(SharedTestbed(), options);
    unit_->Plug();
}

std::unique_ptr<UartFirmwareUpdater> UartUnitTest::MakeBackend(QString const& firmware_path,
                                                               QString const& fw_target_type,
                                                               unsigned programming_address)
{
    auto backend = std::make_unique<UartFirmwareUpdater>(
        firmware_path, kStart, programming_address, kOtp, 512, kBootMode, fw_target_type, nullptr);
    NoteSignals(*backend, [this](QString const& signal) { signals_.append(signal); });
    return backend;
}

QString UartUnitTest::MakeFile(QByteArray const& content) const
{
    auto const path = folder_.filePath(u"firmware.bin"_s);
    WriteFile(path, content);
    return path;
}

int UartUnitTest::OpenPorts()
{
    auto const line = QString::fromStdString(unit_->Status().pty_path);
    int count = 0;
    auto const entries =
        QDir(u"/proc/self/fd"_s).entryInfoList(QDir::NoDotAndDotDot | QDir::System | QDir::Files);
    for (auto const& entry : entries) {
        count += entry.symLinkTarget() == line ? 1 : 0;
    }
    return count - 1;
}

std::vector<std::string> UartUnitTest::Commands()
{
    std::vector<std::string> commands;
    for (auto const& entry : unit_->Journal()) {
        commands.push_back(entry.command);
    }
    return commands;
}

bool UartUnitTest::WasRead()
{
    auto const commands = Commands();
    return std::ranges::find(commands, "read") != commands.end();
}

QByteArray UartUnitTest::Flash(size_t size, uint32_t address)
{
    auto const bytes = unit_->ReadMemory(address, size);
    return {reinterpret_cast<char const*>(bytes.data()), static_cast<qsizetype>(bytes.size())};
}
