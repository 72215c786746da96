// The first facts that support needs about a run of the program, as lines for the log.
#pragma once

#include <QString>
#include <QStringList>

#include "record/sink.h"
#include "updater/firmware_updater_base.h"

class QGuiApplication;
class SupportLog;

// Versions of program, Qt and system, the configuration's lines as they are given, and the image's
// path and size. Does not open the image.
QStringList DescribeSession(QStringList const& configuration, QString const& firmware_path);

// From now on each start of an update adds the image's size and SHA-256 to the log and to the
// record of the session. Reads only regular files of at most 16 MiB, on the backend's thread. `log`
// and `record` must outlive the backend.
void LogImageOfEachUpdate(FirmwareUpdaterBase const& backend, QString const& firmware_path,
                          SupportLog& log, record::ISink& record = record::NoSink());

// From now on the log has a line when the application's last window is closed during an update. The
// update goes on, and its end adds a line of its own. `log` must outlive the backend.
void LogClosingDuringUpdates(QGuiApplication const& application, FirmwareUpdaterBase const& backend,
                             SupportLog& log);
