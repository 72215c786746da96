// The udev rules of a Linux package, made from the product's config.ini with the program's own
// reader.
#pragma once

#include <QMap>
#include <QString>
#include <cstdint>
#include <optional>

#include "bundle_check/report.h"
#include "config/config_keys.h"

namespace bundle_check {

// The text of a rules file. It lets the person at the computer open units in boot mode, and makes
// ModemManager ignore them, whose commands would otherwise reach the bootloader first. It names the
// serial adapter and the STM32 DFU bootloader, which every bench uses, and the product's own USB
// ids. products: as ReadProducts returns them.
QString MakeUdevRules(targetInterfaceType type, QMap<QString, uint32_t> const& products);

// The same for a config.ini, a folder that contains it, or whatever CheckBundle() takes. Nothing,
// and the reason in `findings`, when it cannot be read.
std::optional<QString> MakeUdevRules(QString const& path, Findings& findings);

}  // namespace bundle_check
