// Builds the one backend that config.ini asks for.
#pragma once

#include <QSettings>
#include <QString>
#include <memory>

#include "config/startup_config.h"
#include "updater/firmware_updater_base.h"

struct Backend {
    targetInterfaceType type;
    std::unique_ptr<FirmwareUpdaterBase> updater;  // never null; without a parent
};

Backend MakeBackend(QSettings const& settings, QString const& firmware_path,
                    QString const& dfu_util_path);
