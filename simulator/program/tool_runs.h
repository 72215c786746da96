// The runs of dfu-util in the record of a session (docs/session-records.md), for a stand-in that
// prints what the recorded tool printed.
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <chrono>
#include <optional>

#include "record/pcapng_reader.h"

namespace simulator {

struct ToolOutput {
    std::chrono::nanoseconds time{0};  // since the tool was started
    bool is_error = false;             // on standard error
    QByteArray bytes;
};

struct ToolRun {
    qsizetype number = 0;  // of its packet in the record, from 1
    QStringList arguments{};
    QList<ToolOutput> outputs{};
    std::chrono::nanoseconds time{0};  // until it ended
    int exit_code = 0;
    QString status{};   // as in the event "exit"; empty if the record ends before it
    QByteArray file{};  // that it wrote
};

// In their order.
QList<ToolRun> ReadToolRuns(record::Recording const& recording);

// "argument 2: \"1\" expected, \"0\" received", of the first that differs; nothing when all are the
// same but for the last, which is the path of a file.
std::optional<QString> FindDifference(QStringList const& expected, QStringList const& received);

// The ids of the recorded unit, such as "0483:df11", or nothing when there is no run.
QString FindDeviceIds(QList<ToolRun> const& runs);

}  // namespace simulator
