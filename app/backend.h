// Builds the one backend that config.ini asks for.
#pragma once

#include <QSettings>
#include <QString>
#include <memory>

#include "app/startup_config.h"
#include "updater/firmware_updater_base.h"

struct Backend {
    targetInterfaceType type;
    // Null when this build cannot drive the transport; `problem` then tells the user so.
    std::unique_ptr<FirmwareUpdaterBase> updater;
    QString problem;
};

Backend MakeBackend(QSettings const& settings, QString const& firmware_path);
