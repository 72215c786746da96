// The values of config.ini, each by the form of its key.
#include <QRegularExpression>
#include <algorithm>
#include <iterator>
#include <utility>

#include "bundle_check/checks.h"
#include "bundle_check/edits.h"

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

// The end of the sentence "The key is missing, so ...", for each key that is not optional.
constexpr std::pair<Key const*, char16_t const*> kWhenMissing[] = {
    {&config_keys::kFirmwareFilename, u"there is no firmware to write"},
    {&config_keys::kProgrammingAddress, u"the firmware is written to address 0"},
    {&config_keys::kStartAddress, u"the unit is started at address 0"},
    {&config_keys::kBootModeAddress, u"the boot-mode marker is written to address 0"},
    {&config_keys::kOtpAddress, u"the model identifier is read from address 0"},
    {&config_keys::kOtpSize, u"no model identifier is read and every unit is refused"},
    {&config_keys::kProductList, u"no unit is ever found"},
    {&config_keys::kDeviceIdList, u"every unit is refused"},
    {&config_keys::kFwTargetType, u"the firmware is neither for customers nor for service"},
    {&config_keys::kProductText, u"the window shows no product name"},
    {&config_keys::kFwVersion, u"the window shows no version number"},
    {&config_keys::kInstructionsText, u"the window shows no instructions"},
};

constexpr char16_t const* FindWhenMissing(Key const& key)
{
    for (auto const& [known, text] : kWhenMissing) {
        if (known == &key) {
            return text;
        }
    }
    return nullptr;
}

static_assert(std::ranges::all_of(config_keys::kAll, [](Key const* key) {
    return (key->need == Need::Optional) == (FindWhenMissing(*key) == nullptr);
}));

QString DescribeMissing(Key const& key)
{
    return QString::fromUtf16(FindWhenMissing(key));
}

Severity GetSeverity(Key const& key)
{
    return key.need == Need::Required ? Severity::Error : Severity::Warning;
}

bool IsList(QVariant const& value)
{
    return value.typeId() != QMetaType::QString;
}

QString Join(QVariant const& value)
{
    return IsList(value) ? value.toStringList().join(u", "_s) : value.toString();
}

void CheckMissing(Config const& config, Key const& key, Findings& findings)
{
    bool const is_skipped = key.for_model_check && config.IsService();
    if (key.need != Need::Optional && !is_skipped) {
        findings.Add(GetSeverity(key), {QString(key.name), 0},
                     u"The key is missing, so %1; add it."_s.arg(DescribeMissing(key)));
    }
}

// How to write the number that was probably meant, with a leading space; an empty text if it cannot
// be guessed.
QString SuggestNumber(Key const& key, QString const& text)
{
    static QRegularExpression const padded(u"^0+([0-9a-fA-F]+)$"_s);
    bool is_number = false;
    auto const number = text.toUInt(&is_number, 0);
    if (key.form == Form::Decimal) {
        auto const example = &key == &config_keys::kMcubootBaud
                                 ? uint64_t{kDefaultMcubootBaud}
                                 : uint64_t{kOtpRecords * kOtpRecordSize};
        return is_number ? u" Write %1."_s.arg(number)
                         : u" Write decimal digits only, for example %1."_s.arg(example);
    }
    if (auto const match = padded.match(text); match.hasMatch()) {
        return u" A leading 0 means octal; for hexadecimal write 0x%1."_s.arg(text);
    }
    text.toUInt(&is_number, 16);
    return is_number ? u" For hexadecimal write 0x%1."_s.arg(text)
                     : u" Write it like 0x08000000."_s;
}

struct NumberFault {
    QString reason;  // empty: there is none
    QString cure{};  // a sentence with a leading space
};

// Why the value is not a number of 32 bits.
NumberFault FindNumberFault(Config const& config, Key const& key)
{
    auto const value = config.Value(key);
    auto const text = value.toString();
    auto const base = Config::GetBase(key);
    bool is_number = false;
    bool is_long_number = false;
    bool is_in_another_base = false;
    text.toUInt(&is_number, base);
    text.toULongLong(&is_long_number, base);
    text.toUInt(&is_in_another_base, 0);
    auto const cure = SuggestNumber(key, text.trimmed());
    return IsList(value)    ? NumberFault{u"the comma turns it into a list"_s, cure}
           : text.isEmpty() ? NumberFault{u"it is empty"_s, cure}
           : is_number      ? NumberFault{}
           : is_long_number
               ? NumberFault{u"it does not fit into 32 bits"_s, u" Write a smaller number."_s}
           : is_in_another_base ? NumberFault{u"only decimal digits are allowed here"_s, cure}
                                : NumberFault{u"it is not a number"_s, cure};
}

// True when the value is a number.
bool CheckNumber(Config const& config, Key const& key, Findings& findings)
{
    auto const value = config.Value(key);
    auto const read_as = QString::number(config.Number(key));
    auto const fault = FindNumberFault(config, key);
    if (!fault.reason.isEmpty()) {
        findings.Fail(config.PlaceOf(key),
                      u"The program reads %1 as %2: %3.%4"_s.arg(Quote(Join(value)), read_as,
                                                                 fault.reason, fault.cure));
        return false;
    }
    auto const text = value.toString().trimmed();
    static QRegularExpression const zeros(u"^0+(?=.)"_s);
    bool const looks_octal = text.size() > 1 && text[0] == u'0' && text[1].isDigit();
    if (key.form == Form::Address && looks_octal) {
        findings.Warn(config.PlaceOf(key),
                      u"The leading 0 makes %1 an octal number, 0x%2; for hexadecimal write 0x%3, "
                      "for decimal %3."_s.arg(Quote(text), QString::number(config.Number(key), 16),
                                              QString(text).remove(zeros)));
    }
    return true;
}

void CheckBaud(Config const& config, Key const& key, Findings& findings)
{
    static constexpr unsigned kUsual[] = {9600,   19200,  38400,   57600,   115200,  230400,
                                          460800, 921600, 1000000, 1500000, 2000000, 3000000};
    auto const baud = config.Number(key);
    if (CheckNumber(config, key, findings) && std::ranges::find(kUsual, baud) == std::end(kUsual)) {
        findings.Add(baud == 0 ? Severity::Error : Severity::Warning, config.PlaceOf(key),
                     u"%1 bits per second is not a common speed of a serial line; use the one "
                     "that the unit uses."_s.arg(baud));
    }
}

// False when the program sees no text at all.
bool CheckText(Config const& config, Key const& key, Findings& findings)
{
    auto const value = config.Value(key);
    auto const text = value.toString();
    auto const place = config.PlaceOf(key);
    if (IsList(value)) {
        findings.Fail(place,
                      u"The unquoted comma turns %1 into a list, and the program reads an empty "
                      "text; put the text in quotation marks."_s.arg(Quote(Join(value))));
        return false;
    }
    bool const is_file = key.form == Form::FileName;
    if ((is_file ? text : text.trimmed()).isEmpty() && key.need != Need::Optional) {
        findings.Add(GetSeverity(key), place,
                     u"The value is empty, so %1; write one."_s.arg(DescribeMissing(key)));
        return false;
    }
    if (text.contains(QChar::ReplacementCharacter)) {
        findings.Warn(place,
                      u"The text contains bytes that are not UTF-8, and the window shows %1; save "
                      "config.ini as UTF-8."_s.arg(Quote(text)));
    }
    if (auto const* entry = config.EntryOf(key); entry != nullptr && entry->mixed_quotes) {
        findings.Warn(
            place,
            u"Quotation marks inside a text, and spaces after them, are dropped: the "
            "program reads %1. Write \\\" for a visible quotation mark."_s.arg(Quote(text)));
    }
    return true;
}

void CheckInterface(Config const& config, Key const& key, Findings& findings)
{
    auto const value = config.Value(key);
    auto const text = Join(value);
    if (!IsList(value) && text == GetInterfaceName(config.Type())) {
        return;
    }
    auto const usb = GetInterfaceName(TargetUsb);
    auto const mcuboot = GetInterfaceName(TargetMcubootSerial);
    findings.Add(config.Type() == TargetUart ? Severity::Warning : Severity::Error,
                 config.PlaceOf(key),
                 u"%1 is not a known interface, so the program uses UART; write %2, %3 or %4, in "
                 "lower case."_s.arg(Quote(text), usb, mcuboot, GetInterfaceName(TargetUart)));
}

// A word that the program does not know. It may be one of the known words with a typing error.
void CheckUnknownTarget(Place const& place, QString const& type, Findings& findings)
{
    auto const folded = type.trimmed().toLower();
    auto const is_meant = [&](char const* known) {
        return CountEdits(folded, QString::fromLatin1(known)) <= kMostEdits;
    };
    if (is_meant(kCustomerTarget)) {
        findings.Warn(
            place,
            u"Every customer sees %1 in yellow in the window, but the program does not know "
            "the word; did you mean %2?"_s.arg(Quote(type), QLatin1StringView(kCustomerTarget)));
    } else if (is_meant(kServiceTarget)) {
        findings.Warn(place,
                      u"%1 appears in yellow in the window and does not skip the model check; did "
                      "you mean %2?"_s.arg(Quote(type), QLatin1StringView(kServiceTarget)));
    } else {
        // Right for firmware that testers get, so it leaves the bundle clean.
        findings.Note(place,
                      u"%1 appears in yellow in the window; for firmware that customers get, write "
                      "%2."_s.arg(Quote(type), QLatin1StringView(kCustomerTarget)));
    }
}

void CheckTargetType(Config const& config, Key const& key, Findings& findings)
{
    if (!CheckText(config, key, findings)) {
        return;
    }
    auto const place = config.PlaceOf(key);
    auto const type = config.TargetType();
    auto const folded = type.trimmed().toLower();
    if (config.IsService()) {
        findings.Warn(
            place,
            u"Service firmware is written to any unit, whatever its model; never ship this "
            "bundle to a customer. For firmware that customers get, write %1."_s.arg(
                QLatin1StringView(kCustomerTarget)));
    } else if (folded == QLatin1StringView(kServiceTarget)) {
        findings.Warn(place,
                      u"%1 appears in the window but does not skip the model check; only '%2', in "
                      "lower case and without spaces, does."_s.arg(
                          Quote(type), QLatin1StringView(kServiceTarget)));
    } else if (folded != QLatin1StringView(kCustomerTarget)) {
        CheckUnknownTarget(place, type, findings);
    } else if (type.size() != folded.size()) {
        findings.Warn(place,
                      u"%1 has spaces around it, so it appears in the window; remove them."_s.arg(
                          Quote(type)));
    }
}

void CheckPresent(Config const& config, Key const& key, Findings& findings)
{
    switch (key.form) {
        case Form::Text:
        case Form::FileName:
            CheckText(config, key, findings);
            break;
        case Form::TargetType:
            CheckTargetType(config, key, findings);
            break;
        case Form::Interface:
            CheckInterface(config, key, findings);
            break;
        case Form::Address:
            CheckNumber(config, key, findings);
            break;
        case Form::Decimal:
            if (&key == &config_keys::kMcubootBaud) {
                CheckBaud(config, key, findings);
            } else {
                CheckNumber(config, key, findings);
            }
            break;
        case Form::Products:
            CheckProducts(config, findings);
            break;
        case Form::DeviceIds:
            CheckDeviceIds(config, findings);
            break;
    }
}

}  // namespace

targetInterfaceType FindMeantInterface(QSettings const& settings)
{
    static QRegularExpression const others(u"[^a-z]"_s);
    auto const get_letters = [](QString const& text) { return text.toLower().remove(others); };
    auto const letters = get_letters(settings.value(config_keys::kInterface.name).toString());
    for (auto const type : {TargetUsb, TargetMcubootSerial}) {
        auto const known = get_letters(GetInterfaceName(type));
        if (letters == known || letters + u"serial"_s == known) {
            return type;
        }
    }
    return TargetUart;
}

void CheckValues(Config const& config, Findings& findings)
{
    for (auto const* key : config_keys::kAll) {
        if (!config.Has(*key)) {
            if (key->IsReadOver(config.Type())) {
                CheckMissing(config, *key, findings);
            }
        } else if (key->IsReadOver(config.Type())) {
            CheckPresent(config, *key, findings);
        } else {
            findings.Note(
                config.PlaceOf(*key),
                u"The chosen interface does not use this key; remove it, or correct %1."_s.arg(
                    QString(config_keys::kInterface.name)));
        }
    }
}

}  // namespace bundle_check
