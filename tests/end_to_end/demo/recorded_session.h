// What a session's record says about how the session ended, for comparing a replay with it.
#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

#include "config/startup_config.h"

struct RecordedImage {
    qsizetype size = 0;  // bytes
    QString sha256;      // hexadecimal
};

struct RecordedEnd {
    targetInterfaceType transport = TargetUart;
    bool has_update = false;
    // "done", "failed", "refused", "not-connected" or "connected"; empty when the record was cut
    // before its update had ended.
    QString outcome;
    std::optional<RecordedImage> image;
};

// Throws std::runtime_error when the file cannot be read or is no record of a session.
RecordedEnd ReadRecordedEnd(QString const& path);

// The outcome that the updater's log shows since its latest start, in the same words; empty before
// there is one.
QString FindOutcome(QByteArray const& log);

// A sentence when `firmware` is not the recorded image; else empty.
QString DescribeOtherImage(RecordedEnd const& end, QByteArray const& firmware);
