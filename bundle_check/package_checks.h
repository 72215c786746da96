// What a bundle must fulfil in addition when it is packed: that it is firmware for customers, and
// that the package has the firmware's version.
#pragma once

#include <QString>

#include "bundle_check/report.h"

namespace bundle_check {

class Config;

struct PackageRules {
    // The package may reach a customer, so fw_target_type must be "customer", and a key in the
    // bundle or the lack of one of the window's fonts is an error.
    bool for_customers = false;
    // The package's version must begin with the numbers in fw_version, so that the package of the
    // next firmware has a higher one. Empty: they are not compared.
    QString version;
};

void CheckPackage(Config const& config, PackageRules const& rules, Findings& findings);

}  // namespace bundle_check
