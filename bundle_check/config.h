// config.ini as the program reads it, together with the lines that its values come from.
#pragma once

#include <QHash>
#include <QSettings>
#include <QString>
#include <QVariant>

#include "bundle_check/config_keys.h"
#include "bundle_check/findings.h"
#include "bundle_check/ini_lines.h"
#include "config/startup_config.h"

namespace bundle_check {

class Config {
public:
    // Keeps references to both.
    Config(IniLines const& lines, QSettings const& settings);

    QSettings const& Settings() const { return settings_; }
    IniLines const& Lines() const { return lines_; }
    targetInterfaceType Type() const { return type_; }
    // Whether the program reads the key at all on the chosen transport.
    bool Reads(KeyRule const& rule) const { return (rule.transports & (1U << type_)) != 0; }
    // A service firmware is written to any unit, whatever its model.
    bool IsService() const { return target_type_ == QLatin1String("service"); }
    QString const& TargetType() const { return target_type_; }

    bool Has(QString const& key) const;
    // As QSettings hands it out: a text, or a list when there are unquoted commas.
    QVariant Value(QString const& key) const;
    // The line that counts, which is the last one.
    Place PlaceOf(QString const& key) const;
    // The entry on that line, or null.
    IniEntry const* EntryOf(QString const& key) const;

private:
    IniLines const& lines_;
    QSettings const& settings_;
    targetInterfaceType type_;
    QString target_type_;
    QHash<QString, qsizetype> entries_;  // index of the last entry of each visible key
};

}  // namespace bundle_check
