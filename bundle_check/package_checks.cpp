#include "bundle_check/package_checks.h"

#include <QRegularExpression>
#include <QVersionNumber>

#include "bundle_check/checks.h"

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

void CheckTarget(Config const& config, Findings& findings)
{
    auto const target = config.TargetType();
    auto const name = target.isEmpty() ? u"An empty value"_s : Quote(target);
    if (target.compare(QLatin1StringView(kCustomerTarget), Qt::CaseInsensitive) != 0) {
        findings.Fail(
            config.PlaceOf(config_keys::kFwTargetType),
            u"%1 is not firmware for customers; set %2 to %3, or make a package for benches "
            "(make_product_package --bench)."_s.arg(name, QString(config_keys::kFwTargetType.name),
                                                    QLatin1StringView(kCustomerTarget)));
    }
}

// The first number in the text with all that follows after dots: 2.4.0 in "v2.4.0 beta".
QVersionNumber FindVersion(QString const& text)
{
    static QRegularExpression const number(u"[0-9]+(\\.[0-9]+)*"_s);
    return QVersionNumber::fromString(number.match(text).captured());
}

// Whether the numbers of `version` begin with those of `beginning`; missing ones are 0.
bool BeginsWith(QVersionNumber const& version, QVersionNumber const& beginning)
{
    auto const segments = beginning.segments();
    for (int i = 0; i < segments.size(); ++i) {
        if (segments[i] != (i < version.segmentCount() ? version.segmentAt(i) : 0)) {
            return false;
        }
    }
    return true;
}

void CheckVersion(Config const& config, QString const& version, Findings& findings)
{
    auto const shown = ReadWindowTexts(config.Settings()).fw_version;
    auto const firmware = FindVersion(shown);
    if (!firmware.isNull() && !BeginsWith(QVersionNumber::fromString(version), firmware)) {
        findings.Fail(config.PlaceOf(config_keys::kFwVersion),
                      u"%1 is not the version of the package, %2; change FW_PRODUCT_VERSION in "
                      "product.cmake so that it begins with the firmware's version."_s.arg(
                          Quote(shown), Quote(version)));
    }
}

// The image is compared with the slot where there is one, by CheckImage().
void CheckSlot(Config const& config, Findings& findings)
{
    if (config.Type() != TargetMcubootSerial) {
        findings.Warn(config.PlaceOf(config_keys::kInterface),
                      u"Only MCUboot has a slot, and the interface is %1; leave out --slot-size "
                      "and FW_PRODUCT_SLOT_SIZE, or write %2=%3."_s.arg(
                          GetInterfaceName(config.Type()), QString(config_keys::kInterface.name),
                          GetInterfaceName(TargetMcubootSerial)));
    }
}

}  // namespace

std::optional<qint64> ReadByteCount(QString const& text)
{
    static QRegularExpression const form(
        QRegularExpression::anchoredPattern(u"0[xX][0-9a-fA-F]+|[1-9][0-9]*"_s));
    bool fits = false;
    auto const count = text.toLongLong(&fits, 0);
    return fits && count > 0 && form.match(text).hasMatch() ? std::optional<qint64>(count)
                                                            : std::nullopt;
}

void CheckPackage(Config const& config, PackageRules const& rules, Findings& findings)
{
    if (rules.for_customers) {
        CheckTarget(config, findings);
    }
    if (!rules.version.isEmpty()) {
        CheckVersion(config, rules.version, findings);
    }
    if (rules.slot_size > 0) {
        CheckSlot(config, findings);
    }
}

}  // namespace bundle_check
