// The checks of a bundle, in the order in which they are made, and the configuration that they look
// at. None of them opens a file without a limit or changes anything.
#pragma once

#include <QDir>
#include <QHash>
#include <QSettings>
#include <QString>
#include <QVariant>
#include <chrono>
#include <optional>

#include "bundle_check/ini_lines.h"
#include "bundle_check/report.h"
#include "config/startup_config.h"
#include "updater/model_id.h"

namespace bundle_check {

using config_keys::Form;
using config_keys::Key;
using config_keys::Need;

// The interface that the value means, read without regard to case and to what is not a letter, also
// where "serial" is missing. The program takes UART for every spelling but the right one.
targetInterfaceType FindMeantInterface(QSettings const& settings);

// config.ini as the program reads it, together with the lines that its values come from. Keeps
// references to both.
class Config {
public:
    Config(IniLines const& lines, QSettings const& settings)
        : settings_(settings), type_(FindMeantInterface(settings))
    {
        for (auto const& entry : lines.entries) {
            if (!entry.section) {
                entries_[entry.key] = &entry;
            }
        }
    }

    QSettings const& Settings() const { return settings_; }
    // Of a misspelt interface, which is an error of its own, the one that is meant: what follows
    // from UART would not help to correct it.
    targetInterfaceType Type() const { return type_; }
    QString TargetType() const { return ReadWindowTexts(settings_).fw_target_type; }
    // Service firmware is written to any unit, whatever its model.
    bool IsService() const { return SkipsModelCheck(TargetType()); }

    bool Has(Key const& key) const { return settings_.contains(key.name); }
    // As QSettings returns it: a text, or a list when there are unquoted commas.
    QVariant Value(Key const& key) const { return settings_.value(key.name); }
    // The value of a key of Form::Address or Form::Decimal as the program reads it.
    uint32_t Number(Key const& key) const { return ReadNumber(settings_, key); }
    // Whether the program uses the key and it holds a number of 32 bits. Otherwise Number() is only
    // what the program makes of a mistake, which is reported elsewhere.
    bool HoldsNumber(Key const& key) const
    {
        bool is_number = false;
        Value(key).toString().toUInt(&is_number, GetBase(key));
        return is_number && key.IsReadOver(type_);
    }
    // As QString::toUInt takes it; 0: by the number's prefix.
    static int GetBase(Key const& key) { return key.form == Form::Address ? 0 : 10; }

    // The line that is used, which is the last one.
    Place PlaceOf(Key const& key) const
    {
        auto const* entry = EntryOf(key);
        return {QString(key.name), entry == nullptr ? 0 : entry->line};
    }
    // The entry on that line, or null.
    IniEntry const* EntryOf(Key const& key) const { return entries_.value(QString(key.name)); }

private:
    QSettings const& settings_;
    targetInterfaceType type_;
    QHash<QString, IniEntry const*> entries_;  // the last one of each visible key
};

// The lines of config.ini, whatever their values: keys that the program does not see, and notation
// that does not mean what it looks like.
void CheckLines(IniLines const& lines, Findings& findings);

// Values that QSettings could take for something other than text ("@Variant(...)" and the like):
// nobody writes them by hand, and a malicious one can exhaust the memory of the program that reads
// it. True if there is one; QSettings must not be given the file then.
bool FindForeignForms(IniLines const& lines, Findings& findings);

// Compares what the program makes of each value with what can be intended. The firmware file and
// the place of an address in a chip are left to the checks below.
void CheckValues(Config const& config, Findings& findings);
void CheckProducts(Config const& config, Findings& findings);
void CheckDeviceIds(Config const& config, Findings& findings);

// The addresses of an STM32 unit, each by itself, against the memories of the chips that it can
// have. Values that are missing or not numbers are reported elsewhere.
void CheckAddresses(Config const& config, Findings& findings);

// The image on such a chip: flash, programming units, erase time, number of pages, and the
// addresses that depend on it. `size` in bytes.
void CheckImageInFlash(Config const& config, uint64_t size, Findings& findings);

// The firmware image: whether the file can be one, and whether it fits. Returns its size in bytes,
// or nothing when there is none to be written. `slot_size`: what the unit has room for, in bytes;
// 0: unknown. Only MCUboot has slots; other units are compared with their flash.
std::optional<qint64> CheckImage(Config const& config, QDir const& resources, qint64 slot_size,
                                 Findings& findings);

// What does not belong into a folder that is shipped: private keys, version control, backups, and
// images other than `image`, the file that the configuration names (which need not exist). Looks at
// `root`, the folder that holds all of the bundle, without following links. A key
// is an error in a package.
void CheckFolder(QDir const& root, QDir const& resources, QString const& image, Findings& findings);

// Only macOS needs the serial driver: its absence is an error in a macOS application (one with an
// Info.plist), a note around a Linux program, and a warning while there is no program.
void CheckDriver(QDir const& resources, QString const& application_dir, Findings& findings);

// The dfu-util beside the program: whether it is there, can be run, and supports the modifier
// "fast", which the program always passes. One that does not refuses the download with an exit code
// that the program does not look at: the window would show that the update is done.
// Its absence is a warning while there is no folder for programs: the bundle is not complete yet.
// Runs `path` for its version and its usage, each for at most `limit`; dfu-util then exits before
// it looks for a device. It judges modifiers only once it has found one, so what it supports is
// taken from its usage, and from the text in the file where that is a script or cannot be run here.
void CheckDfuUtil(QString const& path, Findings& findings,
                  std::chrono::milliseconds limit = std::chrono::seconds(5));

}  // namespace bundle_check
