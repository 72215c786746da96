#include "bundle_check/list_checks.h"

#include <QHash>
#include <QRegularExpression>
#include <QSet>
#include <QStringList>

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

constexpr qsizetype kPieces = 3;
// The ids of every STM32 in its USB bootloader, which the program always hands to dfu-util.
constexpr uint32_t kDfuVendor = 0x0483;
constexpr uint32_t kDfuProduct = 0xDF11;

void CheckUsbId(Place const& place, QString const& entry, QString const& piece, QString const& name,
                Findings& findings)
{
    constexpr int kHexadecimal = 16;
    constexpr uint32_t kLargest = 0xFFFF;
    bool is_number = false;
    auto const id = piece.toUInt(&is_number, kHexadecimal);
    auto const read_as = QString::number(id & kLargest, kHexadecimal);
    if (!is_number) {
        findings.Fail(place, u"In %1 the %2 %3 is no hexadecimal number, and is read as 0."_s.arg(
                                 Quote(entry), name, Quote(piece)));
    } else if (id > kLargest) {
        findings.Fail(place,
                      u"In %1 the %2 has more than four hexadecimal digits; the program "
                      "looks for %3."_s.arg(Quote(entry), name, read_as));
    } else if (id == 0) {
        findings.Warn(place, u"In %1 the %2 is 0, which no device has."_s.arg(Quote(entry), name));
    }
}

// True when the entry names a product.
bool CheckProduct(Place const& place, QString const& entry, Findings& findings)
{
    auto const pieces = entry.split(QLatin1Char(':'));
    if (pieces.size() < kPieces) {
        findings.Fail(place,
                      u"%1 does not have the three pieces NAME:VENDOR:PRODUCT, and names no "
                      "product."_s.arg(Quote(entry)));
        return false;
    }
    if (pieces.size() > kPieces) {
        findings.Warn(place,
                      u"%1 has more than the three pieces NAME:VENDOR:PRODUCT; what follows "
                      "the third is ignored."_s.arg(Quote(entry)));
    }
    if (pieces[0].trimmed().isEmpty()) {
        findings.Warn(place, u"In %1 the product has no name."_s.arg(Quote(entry)));
    }
    CheckUsbId(place, entry, pieces[1], u"vendor ID"_s, findings);
    CheckUsbId(place, entry, pieces[2], u"product ID"_s, findings);
    return true;
}

// What the program's map makes of names and ids that stand twice.
void CheckRepeatedProducts(Config const& config, Place const& place, QStringList const& names,
                           Findings& findings)
{
    QSet<QString> seen;
    for (auto const& name : names) {
        if (seen.contains(name)) {
            findings.Fail(place,
                          u"The product name %1 stands twice; the program keeps only the "
                          "last entry."_s.arg(Quote(name)));
        }
        seen.insert(name);
    }
    auto const products = ReadProducts(config.Settings());
    QHash<uint32_t, QString> owners;
    for (auto product = products.cbegin(); product != products.cend(); ++product) {
        if (owners.contains(product.value())) {
            findings.Warn(place, u"%1 and %2 have the same USB ids; one entry is enough."_s.arg(
                                     Quote(owners[product.value()]), Quote(product.key())));
        }
        owners[product.value()] = product.key();
    }
}

void CheckDfuIds(Config const& config, Place const& place, Findings& findings)
{
    auto const products = ReadProducts(config.Settings()).values();
    bool const has_dfu = products.contains(PackUsbIds(kDfuVendor, kDfuProduct));
    if (config.Type() == TargetUsb && !has_dfu) {
        findings.Fail(place,
                      u"No product has the USB ids 0483:df11, and over USB the program "
                      "addresses no other device."_s);
    } else if (config.Type() != TargetUsb && has_dfu) {
        findings.Warn(place,
                      u"The USB ids 0483:df11 belong to an STM32 in USB boot mode, which is "
                      "no serial port: on this interface such a unit is never found."_s);
    }
}

// The elements as the program tells them apart, to be looked at one by one.
QStringList GetDeviceIdTexts(QVariant const& value)
{
    return value.typeId() == QMetaType::QString ? QStringList{value.toString()}
                                                : value.toStringList();
}

void CheckDeviceId(Place const& place, QString const& text, uint8_t read_as, Findings& findings)
{
    constexpr int kLargest = 255;
    static QRegularExpression const decimal(u"^\\s*[+-]?[0-9]+\\s*$"_s);
    bool fits_int = false;
    auto const id = text.toInt(&fits_int);
    if (!decimal.match(text).hasMatch()) {
        findings.Fail(place,
                      u"The model identifier %1 is no decimal number, and is read as %2."_s.arg(
                          Quote(text), QString::number(read_as)));
    } else if (!fits_int || id < 0 || id > kLargest) {
        findings.Fail(place,
                      u"The model identifier %1 does not fit one byte, and is read as %2."_s.arg(
                          Quote(text), QString::number(read_as)));
    }
}

}  // namespace

void CheckProducts(Config const& config, QString const& key, Findings& findings)
{
    auto const place = config.PlaceOf(key);
    auto const entries = config.Value(key).toStringList();
    QStringList names;
    for (auto const& entry : entries) {
        if (CheckProduct(place, entry, findings)) {
            names.append(entry.section(QLatin1Char(':'), 0, 0));
        }
    }
    CheckRepeatedProducts(config, place, names, findings);
    CheckDfuIds(config, place, findings);
}

void CheckDeviceIds(Config const& config, QString const& key, Findings& findings)
{
    auto const place = config.PlaceOf(key);
    auto const texts = GetDeviceIdTexts(config.Value(key));
    auto const ids = ReadDeviceIds(config.Settings());
    QSet<uint8_t> seen;
    for (qsizetype i = 0; i < ids.size() && i < texts.size(); ++i) {
        CheckDeviceId(place, texts[i], ids[i], findings);
        if (seen.contains(ids[i])) {
            findings.Warn(place, u"The model identifier %1 stands twice."_s.arg(ids[i]));
        }
        seen.insert(ids[i]);
    }
}

}  // namespace bundle_check
