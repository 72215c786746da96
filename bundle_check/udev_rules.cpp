#include "bundle_check/udev_rules.h"

#include <QFileInfo>
#include <QList>
#include <QSettings>
#include <QStringList>

#include "bundle_check/checks.h"
#include "bundle_check/files.h"
#include "bundle_check/ini_lines.h"
#include "config/bundle_paths.h"
#include "config/startup_config.h"
#include "modules/stm32_updater/limits.h"

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

constexpr uint16_t kSerialAdapterVendor = 0x10c4;
constexpr uint16_t kSerialAdapterProduct = 0xea60;

// Read before 73-seat-late.rules, which gives the user at the seat access to devices tagged
// "uaccess".
constexpr char kHead[] =
    "# Units of a firmware updater in boot mode.\n"
    "ACTION==\"remove\", GOTO=\"firmware_updater_end\"\n";
constexpr char kTail[] = "LABEL=\"firmware_updater_end\"\n";

// As udev writes them: four lower-case digits each.
struct UsbIds {
    QString vendor;
    QString product;

    bool operator==(UsbIds const&) const = default;
};

UsbIds GetIds(uint32_t packed)
{
    auto const format = [](uint32_t id) {
        return u"%1"_s.arg(id & 0xFFFF, 4, 16, QLatin1Char('0'));
    };
    return {format(packed), format(packed >> 16)};
}

UsbIds GetDfuIds()
{
    auto const ids = QString::fromLatin1(stm32_updater::kDfuDevice).split(u':');
    return {ids[0], ids[1]};
}

void AddOnce(QList<UsbIds>& list, UsbIds const& ids)
{
    if (!list.contains(ids)) {
        list.append(ids);
    }
}

QString MatchUsbDevice(UsbIds const& ids)
{
    return u"SUBSYSTEM==\"usb\", ENV{DEVTYPE}==\"usb_device\", ATTR{idVendor}==\"%1\", "
           "ATTR{idProduct}==\"%2\", ENV{ID_MM_DEVICE_IGNORE}=\"1\""_s.arg(ids.vendor, ids.product);
}

QString MatchSerialPort(UsbIds const& ids)
{
    return u"SUBSYSTEM==\"tty\", ATTRS{idVendor}==\"%1\", ATTRS{idProduct}==\"%2\", "
           "ENV{ID_MM_DEVICE_IGNORE}=\"1\""_s.arg(ids.vendor, ids.product);
}

// The config.ini of a bundle, of a folder of a product's sources, or the file itself.
QString FindConfig(QString const& path)
{
    if (!QFileInfo(path).isDir()) {
        return path;
    }
    auto const own = GetConfigPath(QDir(path));
    auto const application_dir = FindApplicationDir(path);
    return application_dir && !QFileInfo::exists(own)
               ? QDir::cleanPath(GetConfigPath(QDir(GetBundlePaths(*application_dir).resources)))
               : own;
}

// Looks at the text first: QSettings must not be given every file.
bool IsReadable(QString const& path, Findings& findings)
{
    constexpr qint64 kMostBytes = 1024 * 1024;
    auto const fault = DescribeFileFault(path);
    auto const text = fault.isEmpty() ? ReadHead(path, kMostBytes + 1) : std::nullopt;
    if (!text) {
        findings.Fail({}, u"%1 %2; give the folder of a bundle, or its config.ini."_s.arg(
                              Quote(path), fault.isEmpty() ? u"cannot be read"_s : fault));
        return false;
    }
    if (text->size() > kMostBytes || text->contains('\0')) {
        findings.Fail({},
                      u"%1 is not a config.ini; give the file of a product."_s.arg(Quote(path)));
        return false;
    }
    return !FindForeignForms(ScanIni(*text), findings);
}

}  // namespace

QString MakeUdevRules(targetInterfaceType type, QMap<QString, uint32_t> const& products)
{
    QList<UsbIds> serial{GetIds(PackUsbIds(kSerialAdapterVendor, kSerialAdapterProduct))};
    QList<UsbIds> dfu{GetDfuIds()};
    for (auto const packed : products) {
        AddOnce(type == TargetUsb ? dfu : serial, GetIds(packed));
    }
    auto const for_user = u", TAG+=\"uaccess\"\n"_s;
    auto rules = QString::fromLatin1(kHead);
    for (auto const& ids : serial) {
        rules += MatchUsbDevice(ids) + u'\n' + MatchSerialPort(ids) + for_user;
    }
    for (auto const& ids : dfu) {
        rules += MatchUsbDevice(ids) + for_user;
    }
    return rules + QString::fromLatin1(kTail);
}

std::optional<QString> MakeUdevRules(QString const& path, Findings& findings)
{
    auto const config = FindConfig(path);
    if (!IsReadable(config, findings)) {
        return std::nullopt;
    }
    QSettings const settings(config, QSettings::IniFormat);
    return MakeUdevRules(ReadInterfaceType(settings), ReadProducts(settings));
}

}  // namespace bundle_check
