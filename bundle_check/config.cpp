#include "bundle_check/config.h"

namespace bundle_check {

Config::Config(IniLines const& lines, QSettings const& settings)
    : lines_(lines),
      settings_(settings),
      type_(ReadInterfaceType(settings)),
      target_type_(ReadWindowTexts(settings).fw_target_type)
{
    for (qsizetype i = 0; i < lines.entries.size(); ++i) {
        if (!lines.entries[i].section) {
            entries_[lines.entries[i].key] = i;
        }
    }
}

bool Config::Has(QString const& key) const
{
    return settings_.contains(key);
}

QVariant Config::Value(QString const& key) const
{
    return settings_.value(key);
}

Place Config::PlaceOf(QString const& key) const
{
    auto const* entry = EntryOf(key);
    return {key, entry == nullptr ? 0 : entry->line};
}

IniEntry const* Config::EntryOf(QString const& key) const
{
    auto const found = entries_.constFind(key);
    return found == entries_.constEnd() ? nullptr : &lines_.entries[*found];
}

}  // namespace bundle_check
