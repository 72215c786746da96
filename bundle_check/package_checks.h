// What a bundle must fulfil in addition when it is packed: that it is firmware for customers, that
// the package has the firmware's version, and that the image fits into the unit's slot. A key in
// the bundle, a link out of it and the lack of one of the window's fonts are then errors (see
// Findings::InPackage), also in a package for benches.
#pragma once

#include <QString>
#include <optional>

#include "bundle_check/report.h"

namespace bundle_check {

class Config;

struct PackageRules {
    // The package may reach a customer, so fw_target_type must be "customer".
    bool for_customers = false;
    // The package's version must begin with the numbers in fw_version, so that the package of the
    // next firmware has a higher one. Empty: they are not compared.
    QString version;
    // The bytes that the unit's MCUboot has room for, which config.ini does not hold. 0: unknown.
    qint64 slot_size = 0;
};

// A number of bytes from 1, in decimal or with 0x; nothing for any other text. A leading 0 is
// refused, since it means octal in config.ini.
std::optional<qint64> ReadByteCount(QString const& text);

void CheckPackage(Config const& config, PackageRules const& rules, Findings& findings);

}  // namespace bundle_check
