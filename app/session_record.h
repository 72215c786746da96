// Makes each session leave a record: from the backend's signals and the log's lines come the events
// and the outcome, from the backend's lines the bytes. docs/session-records.md describes the files.
#pragma once

#include <QString>

#include "app/support_log.h"
#include "config/startup_config.h"
#include "record/session_recorder.h"
#include "updater/firmware_updater_base.h"

// log_directory: the records go to its folder "sessions"; without one (empty) there are none. A
// failure to write there goes to `log`, which must outlive the recorder.
record::RecorderSetup GetRecorderSetup(QString const& log_directory, targetInterfaceType type,
                                       SupportLog& log);

// To be called before the backend's first request; `recorder` must outlive the backend.
void RecordSessions(FirmwareUpdaterBase& backend, record::SessionRecorder& recorder);

// As long as this lives, each line of the log becomes an event as well, also those that the log
// only counts: every record must have the cause of its session. There must be only one for a log.
class LogRecorder {
public:
    // Both must outlive it.
    LogRecorder(SupportLog& log, record::ISink& record);
    ~LogRecorder();
    LogRecorder(LogRecorder const&) = delete;
    LogRecorder& operator=(LogRecorder const&) = delete;

private:
    SupportLog& log_;
};
