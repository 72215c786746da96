#include "bundle_check/value_checks.h"

#include <algorithm>
#include <iterator>

#include "bundle_check/list_checks.h"

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

constexpr int kBaseByPrefix = 0;
constexpr int kDecimal = 10;

bool IsList(QVariant const& value)
{
    return value.typeId() != QMetaType::QString;
}

QString Join(QVariant const& value)
{
    return IsList(value) ? value.toStringList().join(u", "_s) : value.toString();
}

void CheckMissing(Config const& config, KeyRule const& rule, Findings& findings)
{
    bool const unneeded =
        rule.need == Need::Optional || (rule.for_model_check && config.IsService());
    if (unneeded) {
        return;
    }
    auto const text = u"The key is missing: %1."_s.arg(QString::fromLatin1(rule.when_missing));
    Place const place{QString::fromLatin1(rule.name), 0};
    if (rule.need == Need::Required) {
        findings.Fail(place, text);
    } else {
        findings.Warn(place, text);
    }
}

// Why QSettings' text is no number of 32 bits, or an empty text if it is one.
QString TellNumberFault(QVariant const& value, int base)
{
    if (IsList(value)) {
        return u"the comma makes a list of it"_s;
    }
    auto const text = value.toString();
    if (text.isEmpty()) {
        return u"it is empty"_s;
    }
    bool is_number = false;
    text.toUInt(&is_number, base);
    if (is_number) {
        return {};
    }
    bool is_long_number = false;
    text.toULongLong(&is_long_number, base);
    if (is_long_number) {
        return u"it does not fit 32 bits"_s;
    }
    text.toUInt(&is_number, kBaseByPrefix);
    return is_number ? u"here only decimal digits count"_s : u"it is no number"_s;
}

// What the program itself makes of a key that it reads as a number.
uint32_t ReadNumber(Config const& config, QString const& key)
{
    if (FindKeyRule(key)->transports == kMcuboot) {
        return ReadMcubootConfig(config.Settings()).baud;
    }
    // The USB transport reads the same keys in the same way, only fewer of them.
    auto const addresses = ReadUartConfig(config.Settings());
    return key == QLatin1String("start_address")         ? addresses.start_address
           : key == QLatin1String("programming_address") ? addresses.programming_address
           : key == QLatin1String("boot_mode_address")   ? addresses.boot_mode_address
           : key == QLatin1String("otp_address")         ? addresses.otp_address
                                                         : addresses.otp_size;
}

void CheckNumber(Config const& config, QString const& key, int base, Findings& findings)
{
    auto const value = config.Value(key);
    auto const fault = TellNumberFault(value, base);
    if (!fault.isEmpty()) {
        findings.Fail(config.PlaceOf(key),
                      u"The program reads %1 as %2, because %3."_s.arg(
                          Quote(Join(value)), QString::number(ReadNumber(config, key)), fault));
        return;
    }
    auto const text = value.toString().trimmed();
    bool const looks_octal = text.size() > 1 && text[0] == u'0' && text[1].isDigit();
    if (base == kBaseByPrefix && looks_octal) {
        findings.Warn(config.PlaceOf(key),
                      u"The leading 0 makes %1 an octal number, which is %2."_s.arg(
                          Quote(text), QString::number(ReadNumber(config, key))));
    }
}

void CheckBaud(Config const& config, QString const& key, Findings& findings)
{
    static constexpr unsigned kUsual[] = {9600,   19200,  38400,   57600,   115200,  230400,
                                          460800, 921600, 1000000, 1500000, 2000000, 3000000};
    CheckNumber(config, key, kDecimal, findings);
    auto const baud = ReadNumber(config, key);
    if (TellNumberFault(config.Value(key), kDecimal).isEmpty() &&
        std::ranges::find(kUsual, baud) == std::end(kUsual)) {
        auto const text = u"%1 bits a second is not a usual speed of a serial line."_s.arg(baud);
        if (baud == 0) {
            findings.Fail(config.PlaceOf(key), text);
        } else {
            findings.Warn(config.PlaceOf(key), text);
        }
    }
}

void CheckDecimal(Config const& config, QString const& key, Findings& findings)
{
    if (FindKeyRule(key)->transports == kMcuboot) {
        CheckBaud(config, key, findings);
    } else {
        CheckNumber(config, key, kDecimal, findings);
    }
}

// False when the program sees no text at all.
bool CheckText(Config const& config, KeyRule const& rule, Findings& findings)
{
    auto const key = QString::fromLatin1(rule.name);
    auto const value = config.Value(key);
    if (IsList(value)) {
        findings.Fail(config.PlaceOf(key),
                      u"The unquoted comma makes a list of %1, and the program reads an empty "
                      "text. Put it in quotation marks."_s.arg(Quote(Join(value))));
        return false;
    }
    if (value.toString().isEmpty() && rule.need != Need::Optional) {
        auto const text = u"The value is empty: %1."_s.arg(QString::fromLatin1(rule.when_missing));
        if (rule.need == Need::Required) {
            findings.Fail(config.PlaceOf(key), text);
        } else {
            findings.Warn(config.PlaceOf(key), text);
        }
        return false;
    }
    if (value.toString().contains(QChar::ReplacementCharacter)) {
        findings.Warn(config.PlaceOf(key),
                      u"The text has bytes that are not UTF-8; the window shows %1."_s.arg(
                          Quote(value.toString())));
    }
    if (auto const* entry = config.EntryOf(key); entry != nullptr && entry->decoded.mixed_quotes) {
        findings.Warn(config.PlaceOf(key),
                      u"Quotation marks inside a text are dropped, and the spaces behind them: the "
                      "program reads %1. One that is to be seen is written \\\"."_s.arg(
                          Quote(value.toString())));
    }
    return true;
}

void CheckInterface(Config const& config, QString const& key, Findings& findings)
{
    auto const text = Join(config.Value(key));
    bool const is_known = !IsList(config.Value(key)) &&
                          (config.Type() != TargetUart || text == QLatin1String("uart"));
    if (is_known) {
        return;
    }
    auto const meant = text.trimmed().toLower().replace(QLatin1Char('-'), QLatin1Char('_'));
    bool const nearly = meant == QLatin1String("usb") || meant == QLatin1String("mcuboot_serial");
    auto const advice =
        u"%1 is none of the names that the program knows, and so means UART. The names are usb and "
        "mcuboot_serial, in small letters; for UART leave the key out or write uart."_s.arg(
            Quote(text));
    if (nearly) {
        findings.Fail(config.PlaceOf(key), advice);
    } else {
        findings.Warn(config.PlaceOf(key), advice);
    }
}

void CheckTargetType(Config const& config, KeyRule const& rule, Findings& findings)
{
    if (!CheckText(config, rule, findings)) {
        return;
    }
    auto const place = config.PlaceOf(QString::fromLatin1(rule.name));
    auto const& type = config.TargetType();
    auto const folded = type.trimmed().toLower();
    if (config.IsService()) {
        findings.Warn(place,
                      u"A service firmware: it is written to any unit that is found, whatever its "
                      "model. Such a bundle must never reach a customer."_s);
    } else if (folded == QLatin1String("service")) {
        findings.Warn(place,
                      u"%1 is shown in the window, but only \"service\" in small letters "
                      "leaves out the check of the unit's model."_s.arg(Quote(type)));
    } else if (folded == QLatin1String("customer") && type.size() != folded.size()) {
        findings.Warn(place,
                      u"With a space around it %1 does not mean a customer's firmware, and "
                      "the window shows the word."_s.arg(Quote(type)));
    }
}

void CheckPresent(Config const& config, KeyRule const& rule, Findings& findings)
{
    auto const key = QString::fromLatin1(rule.name);
    switch (rule.form) {
        case Form::Text:
        case Form::FileName:
            CheckText(config, rule, findings);
            break;
        case Form::TargetType:
            CheckTargetType(config, rule, findings);
            break;
        case Form::Interface:
            CheckInterface(config, key, findings);
            break;
        case Form::Address:
            CheckNumber(config, key, kBaseByPrefix, findings);
            break;
        case Form::Decimal:
            CheckDecimal(config, key, findings);
            break;
        case Form::Products:
            CheckProducts(config, key, findings);
            break;
        case Form::DeviceIds:
            CheckDeviceIds(config, key, findings);
            break;
    }
}

}  // namespace

void CheckValues(Config const& config, Findings& findings)
{
    for (auto const& rule : kKeyRules) {
        auto const key = QString::fromLatin1(rule.name);
        if (!config.Reads(rule)) {
            if (config.Has(key)) {
                findings.Note(config.PlaceOf(key),
                              u"The chosen interface does not use this key."_s);
            }
        } else if (config.Has(key)) {
            CheckPresent(config, rule, findings);
        } else {
            CheckMissing(config, rule, findings);
        }
    }
}

}  // namespace bundle_check
