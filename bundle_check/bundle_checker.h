// Reads a bundle the way the updater does and says what is wrong with it or suspicious in it.
#pragma once

#include <QList>
#include <QString>

#include "bundle_check/config.h"
#include "bundle_check/findings.h"
#include "bundle_check/prediction.h"

namespace bundle_check {

struct Report {
    Findings findings;
    QList<Prediction> predictions;
    QString interface_name;  // as in config.ini; empty when it was not read
};

// `path`: the folder that holds Contents, an application bundle, or its Contents or Resources
// folder. Whatever is there, a report comes back; no file is read without a limit, and nothing is
// waited for longer than some seconds.
Report CheckBundle(QString const& path);

// What can be said of the text of a config.ini by itself, and whether it may be given to QSettings.
bool CheckConfigText(QByteArray const& text, IniLines const& lines, Findings& findings);

// What can be said once QSettings has read it; touches no other file.
void CheckConfig(Config const& config, Findings& findings);

}  // namespace bundle_check
