#include "modules/stm32_updater/stm32_dfu_util_updater.h"

#include <QDebug>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QTemporaryFile>
#include <QThread>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <iterator>
#include <utility>

#include "modules/stm32_updater/child_process.h"
#include "modules/stm32_updater/dfu_util_arguments.h"
#include "modules/stm32_updater/dfu_util_output.h"

namespace stm32_updater {
namespace {

constexpr QLatin1String kTool("dfu-util");

char const* GetEnd(QProcess const& process)
{
    if (process.error() == QProcess::FailedToStart) {
        return "not-started";
    }
    return process.exitStatus() == QProcess::NormalExit ? "normal" : "crashed";
}

bool IsThere(QFileInfo const& file)
{
    return file.exists() || file.isSymLink();
}

// Removes the file of an earlier run, which must not pass for this unit's area; the tool overwrites
// no file anyway. False when something is still there.
bool RemoveLeftFile(QString const& path)
{
    QFileInfo const found(path);
    if ((found.isFile() || found.isSymLink()) && QFile::remove(path)) {
        return true;
    }
    return !IsThere(QFileInfo(path));
}

// Anybody can put a file into a shared temporary folder. A file is believed only if it belongs to
// this user and was written since `marker`, which this user created in the same folder just before
// the tool ran. A link may lead to somebody else's file, and a pipe would block its reader.
bool IsOfThisRun(QFileInfo const& file, QFileInfo const& marker)
{
    return file.isFile() && !file.isSymLink() && file.ownerId() == marker.ownerId() &&
           file.lastModified() >= marker.lastModified();
}

std::vector<std::byte> TakeFile(QString const& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
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
    connect(process_, &QProcess::readyReadStandardOutput, this, &Stm32DfuUtilUpdater::FollowOutput);
    connect(process_, &QProcess::readyReadStandardError, this, &Stm32DfuUtilUpdater::FollowErrors);
    connect(process_, &QProcess::errorOccurred, this, &Stm32DfuUtilUpdater::onProcessError);
    connect(process_, &QProcess::finished, this, &Stm32DfuUtilUpdater::onProcessFinished);
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the signature is fixed
bool Stm32DfuUtilUpdater::Update(std::string file_path, unsigned int address)
{
    // The ending thread emits the signal itself, after its event loop has ended and while
    // everything on the thread is still alive.
    connect(QThread::currentThread(), &QThread::finished, this,
            &Stm32DfuUtilUpdater::WaitForDownload,
            // NOLINTNEXTLINE(clang-analyzer-optin.core.EnumCastOutOfRange): Qt adds this bit so
            static_cast<Qt::ConnectionType>(Qt::DirectConnection | Qt::UniqueConnection));

    output_.clear();
    facts_ = {};
    since_start_.start();
    auto const arguments =
        GetDownloadArguments(device_, QString::fromStdString(file_path), address);
    RecordStart(arguments);
    process_->start(dfu_util_path_, arguments, QIODevice::ReadWrite);
    running_ = true;
    erasing_ = true;
    Q_EMIT EraseStarted();
    ReadOutputLater();
    return true;
}

void Stm32DfuUtilUpdater::WaitForDownload()
{
    constexpr int kWithoutLimit = -1;
    process_->waitForFinished(kWithoutLimit);
}

void Stm32DfuUtilUpdater::FollowOutput()
{
    auto const bytes = process_->readAllStandardOutput();
    RecordOutput(bytes);
    AppendToTail(output_, bytes);
}

void Stm32DfuUtilUpdater::FollowErrors()
{
    auto const bytes = process_->readAllStandardError();
    RecordErrors(bytes);
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stderr);
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
    if (auto const percentage = FindDownloadPercentage(std::exchange(output_, {}))) {
        facts_.percent = *percentage;
        if (erasing_) {
            erasing_ = false;
            facts_.erase_time = std::chrono::milliseconds(since_start_.elapsed());
            Q_EMIT EraseFinished();
        }
        Q_EMIT ProgressUpdate(*percentage);
    }
    ReadOutputLater();
}

void Stm32DfuUtilUpdater::onProcessError(QProcess::ProcessError error)
{
    if (error == QProcess::FailedToStart) {
        facts_.start_error = process_->errorString();
        RecordEnd(*process_, GetEnd(*process_));
        if (failed_start_) {
            failed_start_();
        }
    }
}

void Stm32DfuUtilUpdater::onProcessFinished(int exit_code, QProcess::ExitStatus status)
{
    running_ = false;
    if (facts_.erase_time) {
        facts_.write_time = std::chrono::milliseconds(since_start_.elapsed()) - *facts_.erase_time;
    }
    facts_.crashed = status == QProcess::CrashExit;
    facts_.exit_code = exit_code;
    RecordEnd(*process_, GetEnd(*process_));
    Q_EMIT UpdateFinished(status == QProcess::NormalExit);
}

std::vector<std::byte> Stm32DfuUtilUpdater::GetOtp(unsigned address, unsigned long size)
{
    auto const path = QStandardPaths::writableLocation(QStandardPaths::TempLocation) +
                      QStringLiteral("/kelvane_otp.bin");
    facts_ = {};
    if (!RemoveLeftFile(path)) {
        return RefuseOtp(path + QStringLiteral(" is in the way and cannot be removed"));
    }
    QTemporaryFile marker(path + QStringLiteral(".XXXXXX"));
    if (!marker.open()) {
        return RefuseOtp(QStringLiteral("no file can be made in %1: %2")
                             .arg(QFileInfo(path).path(), marker.errorString()));
    }
    RunForOtp(GetOtpArguments(device_, path, address, size));
    QFileInfo const found(path);
    if (!IsOfThisRun(found, QFileInfo(marker))) {
        return IsThere(found)
                   ? RefuseOtp(path + QStringLiteral(" was not written by this run of dfu-util"))
                   : std::vector<std::byte>();
    }
    auto otp = TakeFile(path);
    if (!otp.empty()) {
        auto const line = record_->AddLine(kTool + QLatin1String(" file"),
                                           QStringLiteral("the OTP area as the tool wrote it"));
        record_->AddBytes(line, record::Direction::kIn, otp);
    }
    return otp;
}

std::vector<std::byte> Stm32DfuUtilUpdater::RefuseOtp(QString const& reason)
{
    qWarning().noquote() << "the OTP area is not read:" << reason;
    facts_.file_error = reason;
    return {};
}

void Stm32DfuUtilUpdater::RunForOtp(QStringList const& arguments)
{
    auto const dfu_util = MakeChildProcess();
    // Nothing accumulates here, however much the tool prints.
    connect(dfu_util.get(), &QProcess::readyReadStandardOutput, this,
            [this, &dfu_util] { RecordOutput(dfu_util->readAllStandardOutput()); });
    connect(dfu_util.get(), &QProcess::readyReadStandardError, this,
            [this, &dfu_util] { RecordErrors(dfu_util->readAllStandardError()); });
    RecordStart(arguments);
    dfu_util->start(dfu_util_path_, arguments, QIODevice::ReadWrite);
    // The outcome matters to nobody but support: what counts is the file.
    auto const ended = dfu_util->waitForFinished(static_cast<int>(times_.otp_limit.count()));
    if (!ended) {
        facts_.start_error = dfu_util->errorString();
    }
    auto const is_late = dfu_util->state() != QProcess::NotRunning;
    KillIfRunning(*dfu_util);
    facts_.crashed = dfu_util->exitStatus() == QProcess::CrashExit;
    facts_.exit_code = dfu_util->exitCode();
    RecordEnd(*dfu_util, is_late ? "killed" : GetEnd(*dfu_util));
}

void Stm32DfuUtilUpdater::RecordStart(QStringList const& arguments)
{
    auto const line = record_->AddLine(
        kTool,
        QStringLiteral("USB DFU, %1: the tool's arguments and standard output").arg(device_));
    QByteArray bytes;
    for (auto const& argument : arguments) {
        bytes += argument.toUtf8() + '\0';
    }
    record_->AddBytes(line, record::Direction::kOut, bytes);
}

void Stm32DfuUtilUpdater::RecordOutput(QByteArray const& bytes)
{
    record_->AddBytes(record_->AddLine(kTool, {}), record::Direction::kIn, bytes);
}

void Stm32DfuUtilUpdater::RecordErrors(QByteArray const& bytes)
{
    AppendToTail(facts_.errors, bytes);
    auto const line = record_->AddLine(kTool + QLatin1String(" stderr"),
                                       QStringLiteral("the tool's standard error"));
    record_->AddBytes(line, record::Direction::kIn, bytes);
}

void Stm32DfuUtilUpdater::RecordEnd(QProcess const& process, char const* status)
{
    record_->AddEvent({QLatin1String(record::events::kExit),
                       {{QLatin1String(record::fields::kCode), QString::number(process.exitCode())},
                        {QLatin1String(record::fields::kStatus), QLatin1String(status)}}});
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
