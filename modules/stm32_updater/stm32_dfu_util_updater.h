// Updates and reads an STM32 microcontroller in its USB DFU bootloader by running dfu-util: starts
// the tool, follows its output and reports its end. dfu_util_arguments.h makes the arguments, and
// dfu_util_output.h parses the output.
#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QObject>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "modules/stm32_updater/i_stm32_updater.h"
#include "modules/stm32_updater/limits.h"
#include "record/sink.h"

namespace stm32_updater {

struct DfuUtilTimes {
    std::chrono::milliseconds poll = kDfuPollInterval;  // between two looks at a download's output
    std::chrono::milliseconds otp_limit = kDfuOtpTimeout;  // for a whole read of the OTP area
};

// What is known about the last run of the tool, for whoever explains it afterwards.
struct DfuUtilFacts {
    // Of a download: until its first percentage was seen, and from then on. A tool that ends before
    // the first look at its output has neither.
    std::optional<std::chrono::milliseconds> erase_time;
    std::optional<std::chrono::milliseconds> write_time;
    int percent = 0;       // of a download, as last seen
    bool crashed = false;  // or killed
    int exit_code = 0;     // unless it crashed
    QString start_error;   // empty for a tool that was started
    QByteArray errors;     // the last that it printed to standard error
    QString file_error;    // of a read of the OTP area: why its file was not used or made
};

// Everything runs on the thread to which the object belongs; a download needs that thread's event
// loop. A thread that ends during a download first waits for the tool, without limit: a tool that
// is stopped while it writes leaves a unit without firmware.
class Stm32DfuUtilUpdater : public QObject, public IStm32Updater {
    Q_OBJECT

public:
    // device: the USB ids "VVVV:PPPP" of the units, in hexadecimal. dfu_util_path: the tool.
    Stm32DfuUtilUpdater(QObject* parent, QString device, QString dfu_util_path,
                        DfuUtilTimes times = {});

    // From now on each run of the tool is recorded: its arguments, what it prints, the OTP area and
    // how it ended. `record` must outlive this object.
    void SetRecord(record::ISink& record) { record_ = &record; }

    // Writes a file to flash at `address`. Only starts the tool and always returns true; the
    // signals report the rest. Must not be called while a download runs. For a tool that cannot be
    // started, EraseStarted remains the only signal.
    bool Update(std::string file_path, unsigned int address);

    // Reads the OTP area into a file in the temporary directory, and that file into memory. Blocks
    // for up to the limit. Returns what the tool wrote, even if that is not `size` bytes; empty on
    // failure, and if the file is not this user's or not of this run. The file is removed before
    // and after; if that fails before, the tool does not run.
    std::vector<std::byte> GetOtp(unsigned address, unsigned long size) override;

    // The tool cannot write an image from memory: these do nothing and return false.
    bool Update(std::span<std::byte const> image, ProgressCallback const& progress) override;
    bool Update(std::span<std::byte const> image, ProgressCallback const& progress,
                unsigned address) override;

    uint8_t GetMcuId() const override { return 1; }

    // Nothing to do: the tool finds the unit in every run and restarts it after a download.
    void ExitDfu(unsigned start_address, unsigned boot_mode_address) override;
    bool ConnectDevice() override { return true; }
    void DisconnectDevice() override {}

    // Reports what the tool has printed since the last look, and looks again later until the tool
    // has ended.
    void ReadOutput();

    DfuUtilFacts const& Facts() const { return facts_; }

    // Called when the tool of a download cannot be started: no signal reports that.
    void SetStartFailureHandler(std::function<void()> handler)
    {
        failed_start_ = std::move(handler);
    }

Q_SIGNALS:
    void EraseStarted();
    // The first download bar was seen; the tool's own messages about erasing are ignored.
    void EraseFinished();
    // 0 to 100 as the tool prints it; then 100 at the look after its end, however it ended.
    void ProgressUpdate(int percent);
    // False only for a tool that crashed or was killed; the exit code is ignored.
    void UpdateFinished(bool status);

public Q_SLOTS:
    void onProcessFinished(int exit_code, QProcess::ExitStatus status);

private:
    void WaitForDownload();
    // Logs and notes the reason; returns nothing.
    std::vector<std::byte> RefuseOtp(QString const& reason);
    // Returns when the tool has ended or was killed.
    void RunForOtp(QStringList const& arguments);
    // Reads the output as it comes: what accumulates between two looks must stay bounded.
    void FollowOutput();
    // Passes the tool's error messages on to the terminal that started this program.
    void FollowErrors();
    void onProcessError(QProcess::ProcessError error);
    void RecordStart(QStringList const& arguments);
    void RecordOutput(QByteArray const& bytes);
    void RecordErrors(QByteArray const& bytes);
    void RecordEnd(QProcess const& process, char const* status);
    void ReadOutputLater();

    QString dfu_util_path_;
    QProcess* process_;  // a child; of downloads only
    QString device_;
    bool running_ = false;
    bool erasing_ = false;
    QByteArray output_;  // the last of what was printed since the last look
    DfuUtilTimes times_;
    DfuUtilFacts facts_;
    QElapsedTimer since_start_;
    std::function<void()> failed_start_;
    record::ISink* record_ = &record::NoSink();
};

}  // namespace stm32_updater
