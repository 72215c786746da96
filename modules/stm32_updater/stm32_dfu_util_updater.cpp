#include "modules/stm32_updater/stm32_dfu_util_updater.h"

#include <QDebug>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QStringList>
#include <QThread>
#include <QTimer>
#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

namespace stm32_updater {

namespace {

// The alternate settings under which the bootloader offers its memories.
constexpr auto kFlashSetting = "0";
constexpr auto kOtpSetting = "2";

constexpr int kHexadecimal = 16;
constexpr int kAddressDigits = 8;

// "0x" and eight lower-case digits.
QString ToAddressText(unsigned address)
{
    return QStringLiteral("0x%1").arg(address, kAddressDigits, kHexadecimal, QLatin1Char('0'));
}

QStringList GetDownloadArguments(QString const& device, std::string const& file_path,
                                 unsigned address)
{
    auto const target = ToAddressText(address).toUpper() + QStringLiteral(":fast:leave");
    return {QStringLiteral("-d"), device, QStringLiteral("-a"), QLatin1String(kFlashSetting),
            QStringLiteral("-s"), target, QStringLiteral("-D"), QString::fromStdString(file_path)};
}

QStringList GetOtpArguments(QString const& device, QString const& file_path, unsigned address,
                            unsigned long size)
{
    auto const source = QStringLiteral("%1:%2").arg(ToAddressText(address)).arg(size);
    return {QStringLiteral("-d"), device, QStringLiteral("-a"), QLatin1String(kOtpSetting),
            QStringLiteral("-s"), source, QStringLiteral("-U"), file_path};
}

// Nothing gathers in a channel that nobody reads, and the tool can still write to it.
void DiscardOutput(QProcess& process, QProcess::ProcessChannel channel)
{
    process.closeReadChannel(channel);
}

// What an earlier run left must not pass for this unit's, and the tool writes over no file. False
// when it is still there.
bool RemoveLeftFile(QString const& path)
{
    if (!QFileInfo(path).isFile() || QFile::remove(path) || !QFileInfo(path).isFile()) {
        return true;
    }
    qWarning().noquote() << "the OTP area is not read:" << path
                         << "is in the way and cannot be removed";
    return false;
}

std::vector<std::byte> TakeFile(QString const& path)
{
    QFile file(path);
    // Opening a pipe that somebody put there would wait for its writer.
    if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly)) {
        return {};
    }
    auto const content = file.readAll();
    file.close();
    file.remove();
    std::vector<std::byte> bytes;
    bytes.reserve(static_cast<size_t>(content.size()));
    std::ranges::transform(content, std::back_inserter(bytes),
                           [](char value) { return static_cast<std::byte>(value); });
    return bytes;
}

}  // namespace

Stm32DfuUtilUpdater::Stm32DfuUtilUpdater(QObject* parent, QString device, QString dfu_util_path,
                                         DfuUtilTimes times)
    : QObject(parent),
      dfu_util_path_(std::move(dfu_util_path)),
      process_(new QProcess(this)),
      device_(std::move(device)),
      times_(times)
{
    // What the tool complains about is for whoever started this program from a terminal.
    process_->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    connect(process_, &QProcess::readyReadStandardOutput, this, &Stm32DfuUtilUpdater::FollowOutput);
    connect(process_, &QProcess::finished, this, &Stm32DfuUtilUpdater::onProcessFinished);
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): a caller's text may be built in place
bool Stm32DfuUtilUpdater::Update(std::string file_path, unsigned int address)
{
    // The signal comes from the ending thread itself, after its event loop and before anything of
    // the thread is gone.
    connect(QThread::currentThread(), &QThread::finished, this,
            &Stm32DfuUtilUpdater::WaitForDownload,
            // NOLINTNEXTLINE(clang-analyzer-optin.core.EnumCastOutOfRange): Qt adds this bit so
            static_cast<Qt::ConnectionType>(Qt::DirectConnection | Qt::UniqueConnection));

    bars_ = {};
    process_->start(dfu_util_path_, GetDownloadArguments(device_, file_path, address),
                    QIODevice::ReadWrite);
    running_ = true;
    erasing_ = true;
    Q_EMIT EraseStarted();
    ReadOutputLater();
    return true;
}

void Stm32DfuUtilUpdater::WaitForDownload()
{
    constexpr int kWithoutLimit = -1;
    // There is no further look at it.
    DiscardOutput(*process_, QProcess::StandardOutput);
    process_->waitForFinished(kWithoutLimit);
}

void Stm32DfuUtilUpdater::FollowOutput()
{
    auto const output = process_->readAllStandardOutput();
    bars_.Read(std::string_view(output.constData(), static_cast<size_t>(output.size())));
}

void Stm32DfuUtilUpdater::ReadOutputLater()
{
    QTimer::singleShot(times_.poll, this, &Stm32DfuUtilUpdater::ReadOutput);
}

void Stm32DfuUtilUpdater::ReadOutput()
{
    if (!running_) {
        Q_EMIT ProgressUpdate(100);
        return;
    }
    if (auto const percentage = bars_.TakePercentage()) {
        if (erasing_) {
            erasing_ = false;
            Q_EMIT EraseFinished();
        }
        Q_EMIT ProgressUpdate(*percentage);
    }
    ReadOutputLater();
}

void Stm32DfuUtilUpdater::onProcessFinished(int /*exit_code*/, QProcess::ExitStatus status)
{
    running_ = false;
    Q_EMIT UpdateFinished(status == QProcess::NormalExit);
}

std::vector<std::byte> Stm32DfuUtilUpdater::GetOtp(unsigned address, unsigned long size)
{
    auto const path = QStandardPaths::writableLocation(QStandardPaths::TempLocation) +
                      QStringLiteral("/kelvane_otp.bin");
    if (!RemoveLeftFile(path)) {
        return {};
    }
    QProcess dfu_util;
    dfu_util.start(dfu_util_path_, GetOtpArguments(device_, path, address, size),
                   QIODevice::ReadWrite);
    DiscardOutput(dfu_util, QProcess::StandardOutput);
    DiscardOutput(dfu_util, QProcess::StandardError);
    // However it went, the file tells.
    dfu_util.waitForFinished(static_cast<int>(times_.otp_limit.count()));
    return TakeFile(path);
}

bool Stm32DfuUtilUpdater::Update(std::span<std::byte const> /*image*/,
                                 ProgressCallback const& /*progress*/)
{
    return false;
}

bool Stm32DfuUtilUpdater::Update(std::span<std::byte const> image, ProgressCallback const& progress,
                                 unsigned /*address*/)
{
    return Update(image, progress);
}

void Stm32DfuUtilUpdater::ExitDfu(unsigned /*start_address*/, unsigned /*boot_mode_address*/) {}

}  // namespace stm32_updater
