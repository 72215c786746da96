// The USB devices that dfu-util lists: running the tool and reading its output. Which of them is a
// unit is for the caller to decide.
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <chrono>

#include "modules/stm32_updater/limits.h"

namespace stm32_updater {

// Runs the tool and parses what it printed on standard output. Blocks until the tool has ended, at
// most for `timeout`, and kills it then. A tool that is missing, fails or is killed counts for what
// it had printed, possibly nothing. Reads kLongestDfuListing bytes at most.
QStringList ListDfuDevices(QString const& dfu_util_path,
                           std::chrono::milliseconds timeout = kDfuListTimeout);

// The "VVVV:PPPP" ids of every line that has them in square brackets, in the order of the lines and
// with duplicates; of several on one line the first.
QStringList ParseDfuListing(QByteArray const& output);

}  // namespace stm32_updater
