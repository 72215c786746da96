// The two lists of config.ini: which products are looked for, and which models are accepted.
#include <QHash>
#include <QRegularExpression>
#include <QSet>
#include <QStringList>

#include "bundle_check/checks.h"
#include "modules/stm32_updater/limits.h"

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

constexpr qsizetype kParts = 3;
constexpr int kHexadecimal = 16;

void CheckUsbId(Place const& place, QString const& entry, QString const& id_text,
                QString const& name, Findings& findings)
{
    constexpr uint32_t kLargest = 0xFFFF;
    bool is_number = false;
    auto const id = id_text.toUInt(&is_number, kHexadecimal);
    auto const read_as = QString::number(id & kLargest, kHexadecimal);
    if (!is_number) {
        findings.Fail(place,
                      u"In %1 the %2 %3 is not a hexadecimal number and is read as 0; write "
                      "up to four digits, like ea60."_s.arg(Quote(entry), name, Quote(id_text)));
    } else if (id > kLargest) {
        findings.Fail(
            place,
            u"In %1 the %2 has more than four hexadecimal digits, so the program looks for "
            "%3; write up to four digits."_s.arg(Quote(entry), name, read_as));
    } else if (id == 0) {
        findings.Warn(place, u"In %1 the %2 is 0, which no device has; write the unit's own."_s.arg(
                                 Quote(entry), name));
    }
}

// True when the entry names a product.
bool CheckProduct(Place const& place, QString const& entry, Findings& findings)
{
    auto const parts = entry.split(u':');
    if (parts.size() < kParts) {
        findings.Fail(place,
                      u"%1 does not have the three parts NAME:VENDOR:PRODUCT and is ignored; write "
                      "it like Lumen:10c4:ea60."_s.arg(Quote(entry)));
        return false;
    }
    if (parts.size() > kParts) {
        findings.Warn(
            place,
            u"%1 has more than the three parts NAME:VENDOR:PRODUCT; remove the rest, which "
            "is ignored."_s.arg(Quote(entry)));
    }
    if (parts[0].trimmed().isEmpty()) {
        findings.Warn(place,
                      u"In %1 the product has no name; write one before the first colon."_s.arg(
                          Quote(entry)));
    }
    CheckUsbId(place, entry, parts[1], u"vendor ID"_s, findings);
    CheckUsbId(place, entry, parts[2], u"product ID"_s, findings);
    return true;
}

// Names and ids that appear twice: the program's map keeps one entry for each name.
void CheckRepeatedProducts(Config const& config, Place const& place, QStringList const& names,
                           Findings& findings)
{
    QSet<QString> seen;
    for (auto const& name : names) {
        if (seen.contains(name)) {
            findings.Fail(place,
                          u"The product name %1 appears twice, and only its last entry is used; "
                          "give each entry its own name."_s.arg(Quote(name)));
        }
        seen.insert(name);
    }
    auto const products = ReadProducts(config.Settings());
    QHash<uint32_t, QString> owners;
    for (auto product = products.cbegin(); product != products.cend(); ++product) {
        if (owners.contains(product.value())) {
            findings.Warn(place, u"%1 and %2 have the same USB IDs; remove one of them."_s.arg(
                                     Quote(owners[product.value()]), Quote(product.key())));
        }
        owners[product.value()] = product.key();
    }
}

void CheckDfuIds(Config const& config, Place const& place, Findings& findings)
{
    auto const ids = QString::fromLatin1(stm32_updater::kDfuDevice);
    auto const packed = PackUsbIds(ids.section(u':', 0, 0).toUInt(nullptr, kHexadecimal),
                                   ids.section(u':', 1, 1).toUInt(nullptr, kHexadecimal));
    bool const has_dfu = ReadProducts(config.Settings()).values().contains(packed);
    if (config.Type() == TargetUsb && !has_dfu) {
        findings.Fail(place,
                      u"No product has the USB IDs %1, the only ones that the program uses over "
                      "USB; add an entry with them."_s.arg(ids));
    } else if (config.Type() != TargetUsb && has_dfu) {
        findings.Warn(place,
                      u"The USB IDs %1 belong to an STM32 in USB boot mode, which has no serial "
                      "port, so such a unit is never found over this interface; write those of its "
                      "serial port, or set %2=%3."_s.arg(ids, QString(config_keys::kInterface.name),
                                                         GetInterfaceName(TargetUsb)));
    }
}

// The elements as the program separates them.
QStringList GetDeviceIdTexts(QVariant const& value)
{
    return value.typeId() == QMetaType::QString ? QStringList{value.toString()}
                                                : value.toStringList();
}

// Quotation marks make one text of a list. True if there are such.
bool CheckQuotedList(Place const& place, QVariant const& value, Findings& findings)
{
    auto const text = value.toString();
    if (value.typeId() != QMetaType::QString || !text.contains(u',')) {
        return false;
    }
    findings.Fail(place, u"The quotation marks make one text of the list %1; remove them."_s.arg(
                             Quote(text)));
    return true;
}

// True when the text is an identifier.
bool CheckDeviceId(Place const& place, QString const& text, uint8_t read_as, Findings& findings)
{
    constexpr int kLargest = 255;
    static QRegularExpression const decimal(u"^\\s*[+-]?[0-9]+\\s*$"_s);
    bool fits_int = false;
    auto const id = text.toInt(&fits_int);
    auto const reading = u"The program reads %1."_s.arg(QString::number(read_as));
    if (text.trimmed().isEmpty()) {
        findings.Fail(
            place,
            u"A comma without an identifier is read as the model identifier 0; remove the "
            "comma."_s);
    } else if (!decimal.match(text).hasMatch()) {
        bool is_number = false;
        auto const number = text.trimmed().toUInt(&is_number, 0);
        findings.Fail(place, u"%1 is not a decimal number; %2. %3"_s.arg(
                                 Quote(text),
                                 is_number ? u"write %1"_s.arg(number)
                                           : u"separate identifiers with commas"_s,
                                 reading));
    } else if (!fits_int || id < 0 || id > kLargest) {
        findings.Fail(place, u"%1 does not fit into one byte; identifiers are 0 to %2. %3"_s.arg(
                                 Quote(text), QString::number(kLargest), reading));
    } else {
        return true;
    }
    return false;
}

}  // namespace

void CheckProducts(Config const& config, Findings& findings)
{
    auto const& key = config_keys::kProductList;
    auto const place = config.PlaceOf(key);
    if (CheckQuotedList(place, config.Value(key), findings)) {
        return;
    }
    QStringList names;
    for (auto const& entry : config.Value(key).toStringList()) {
        if (CheckProduct(place, entry, findings)) {
            names.append(entry.section(u':', 0, 0));
        }
    }
    CheckRepeatedProducts(config, place, names, findings);
    CheckDfuIds(config, place, findings);
}

void CheckDeviceIds(Config const& config, Findings& findings)
{
    auto const& key = config_keys::kDeviceIdList;
    auto const place = config.PlaceOf(key);
    if (CheckQuotedList(place, config.Value(key), findings)) {
        return;
    }
    auto const texts = GetDeviceIdTexts(config.Value(key));
    if (texts.join(QString()).trimmed().isEmpty()) {
        findings.Fail(place,
                      u"The list is empty, which the program reads as the model identifier 0; "
                      "write the identifiers that this firmware is for, separated by commas."_s);
        return;
    }
    auto const ids = ReadDeviceIds(config.Settings());
    QSet<uint8_t> seen;
    for (qsizetype i = 0; i < ids.size() && i < texts.size(); ++i) {
        if (!CheckDeviceId(place, texts[i], ids[i], findings)) {
            continue;
        }
        if (seen.contains(ids[i])) {
            findings.Warn(place,
                          u"The model identifier %1 appears twice; remove one."_s.arg(ids[i]));
        }
        seen.insert(ids[i]);
    }
}

}  // namespace bundle_check
