// A backend, a unit at the other end of its port, and what was logged.
#pragma once

#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/collected_log.h"
#include "tests/updater/mcuboot/pty_unit.h"
#include "updater/mcuboot_serial_updater.h"

// {"rc": rc}
QByteArray RcAnswer(int rc);
// {"off": offset}, as 32 bits
QByteArray OffAnswer(int32_t offset);
// {"rc": 0, "data": data}, at most 23 bytes
QByteArray OtpAnswer(QByteArray const& data);

class UpdaterFixture : public testing::Test {
protected:
    // A backend that is connected; the probe's line is the unit's first one.
    void ConnectUpdater(bool verbose = false, QString const& fw_target_type = QString());

    // A file with the image, and an updater that has its path.
    QString WriteImage(QByteArray const& image);

    // Lines that were logged since the updater was connected.
    std::vector<std::string> LinesSinceConnect() const;

    QTemporaryDir directory_;
    PtyUnit unit_;
    CollectedLog log_;
    size_t lines_at_connect_ = 0;
    std::unique_ptr<McubootSerialUpdater> updater_;
};
