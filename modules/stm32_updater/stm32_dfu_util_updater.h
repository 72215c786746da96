// Updates and reads an STM32 microcontroller in its USB DFU bootloader by running dfu-util: what
// the tool is told, how it is followed, and what becomes of its end. Its output is read in
// dfu_util_output.h.
#pragma once

#include <QObject>
#include <QProcess>
#include <QString>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "modules/stm32_updater/dfu_util_output.h"
#include "modules/stm32_updater/i_stm32_updater.h"

namespace stm32_updater {

struct DfuUtilTimes {
    std::chrono::milliseconds poll{1000};        // between two looks at a download's output
    std::chrono::milliseconds otp_limit{30000};  // for a whole read of the OTP area
};

// Everything runs on the thread to which the object belongs; a download needs that thread's event
// loop. When the thread ends during a download, its end waits for the tool, without limit: a tool
// that is stopped while it writes leaves a unit without firmware.
class Stm32DfuUtilUpdater : public QObject, public IStm32Updater {
    Q_OBJECT

public:
    // device: the USB ids "VVVV:PPPP" of the units, in hexadecimal. dfu_util_path: the tool.
    Stm32DfuUtilUpdater(QObject* parent, QString device, QString dfu_util_path,
                        DfuUtilTimes times = {});

    // Writes a file to flash at `address`. Only starts the tool, and always returns true: the rest
    // is told by the signals. Not while a download runs. A tool that cannot be started gives no
    // signal but EraseStarted, then or later.
    bool Update(std::string file_path, unsigned int address);

    // Reads the OTP area into a file of the temporary directory, and that into memory. Blocks for
    // up to the limit. The length is what the tool wrote, whatever `size` asked for; empty on
    // failure, which includes a file of that name that cannot be removed: the tool is not run then.
    // The file is removed before and after.
    std::vector<std::byte> GetOtp(unsigned address, unsigned long size) override;

    // An image in memory cannot be written through the tool: nothing is done, the answer is false.
    bool Update(std::span<std::byte const> image, ProgressCallback const& progress) override;
    bool Update(std::span<std::byte const> image, ProgressCallback const& progress,
                unsigned address) override;

    uint8_t GetMcuId() const override { return 1; }

    // The tool finds the unit in every run, and restarts it after a download: nothing to do here.
    void ExitDfu(unsigned start_address, unsigned boot_mode_address) override;
    bool ConnectDevice() override { return true; }
    void DisconnectDevice() override {}

    // Looks at what the tool printed since the last look, reports it, and comes again until the
    // tool has ended.
    void ReadOutput();

Q_SIGNALS:
    void EraseStarted();
    // The first download bar was seen; the tool's own messages about erasing are not read.
    void EraseFinished();
    // 0 to 100 as the tool tells; then 100 at the look after its end, however it ended.
    void ProgressUpdate(int percent);
    // False only for a tool that crashed or was killed: its exit code is not looked at.
    void UpdateFinished(bool status);

public Q_SLOTS:
    void onProcessFinished(int exit_code, QProcess::ExitStatus status);

private:
    void WaitForDownload();
    // Takes the output as it comes: what gathers between two looks would be without limit.
    void FollowOutput();
    void ReadOutputLater();

    QString dfu_util_path_;
    QProcess* process_;  // a child; of downloads only
    QString device_;
    bool running_ = false;
    bool erasing_ = false;
    DownloadBarReader bars_;  // since the last look
    DfuUtilTimes times_;
};

}  // namespace stm32_updater
