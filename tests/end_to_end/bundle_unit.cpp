#include "tests/end_to_end/bundle_unit.h"

#include <QCryptographicHash>
#include <QFileInfo>
#include <QSettings>
#include <stdexcept>

#include "modules/stm32_updater/limits.h"
#include "simulator/chips/chips.h"

using namespace Qt::StringLiterals;

namespace {

QString Hex(uint32_t value)
{
    return u"0x%1"_s.arg(value, 8, 16, QChar(u'0'));
}

// Enough of it to tell images apart.
QString Digest(QByteArray const& bytes)
{
    auto const digest = QCryptographicHash::hash(bytes, QCryptographicHash::Sha256);
    return QString::fromLatin1(digest.toHex().left(16));
}

// The first chip of the table with room for an image of `size` bytes, by preference one whose OTP
// area is at `otp_address`.
simulator::Chip const& FindChip(qsizetype size, uint32_t otp_address)
{
    simulator::Chip const* found = nullptr;
    for (auto const& chip : simulator::kChips) {
        bool const has_room = size <= static_cast<qsizetype>(chip.flash_size);
        if (has_room && chip.otp_address == otp_address) {
            return chip;
        }
        found = has_room && found == nullptr ? &chip : found;
    }
    if (found == nullptr) {
        throw std::runtime_error(
            "no simulated chip (simulator/chips/chips.h) has room for the "
            "image of " +
            std::to_string(size) + " bytes");
    }
    return *found;
}

// What an update over UART leaves in flash: whole words, and in the last of them the number of the
// microcontroller instead of the image's own bytes.
QByteArray GetFlashAfterUart(QByteArray image)
{
    constexpr auto kWord = static_cast<qsizetype>(stm32_updater::kWordSize);
    image.append((kWord - image.size() % kWord) % kWord, '\0');
    return image.chopped(kWord) + QByteArray("\x01\x00\x00\x00", kWord);
}

QString ReadLastCommand(UnitProcess& unit)
{
    auto const journal = unit.Journal();
    return journal.isEmpty() ? u"none"_s : journal.constLast().section(u' ', 0, 0);
}

}  // namespace

targetInterfaceType GetTransport(TestBundle const& bundle)
{
    return ReadInterfaceType(QSettings(bundle.ConfigPath(), QSettings::IniFormat));
}

QStringList GetUnitOptions(TestBundle const& bundle)
{
    QSettings const settings(bundle.ConfigPath(), QSettings::IniFormat);
    auto const products = ReadProducts(settings);
    if (products.isEmpty()) {
        throw std::runtime_error("the bundle's product_list names no product");
    }
    auto const ids = products.first();
    auto const models = ReadDeviceIds(settings);
    auto const config = ReadUartConfig(settings);
    auto const& chip = FindChip(QFileInfo(bundle.FirmwarePath()).size(), config.otp_address);
    QStringList options{
        u"--product-id"_s, QString::number(chip.product_id, 16),
        u"--vid"_s,        QString::number(ids & 0xFFFF, 16),
        u"--pid"_s,        QString::number(ids >> 16, 16),
        u"--model-id"_s,   models.isEmpty() ? u"none"_s : QString::number(models.first())};
    QStringList const otp{u"--otp-address"_s, Hex(config.otp_address), u"--otp-size"_s,
                          QString::number(config.otp_size)};
    switch (ReadInterfaceType(settings)) {
        case TargetUart:
            return options + otp +
                   QStringList{u"--protocol"_s, u"stm32"_s, u"--boot-mode-address"_s,
                               Hex(config.boot_mode_address)};
        case TargetUsb:
            return options + otp + QStringList{u"--protocol"_s, u"dfu"_s};
        case TargetMcubootSerial:
            break;
    }
    return options + QStringList{u"--protocol"_s, u"mcuboot"_s};
}

QList<UnitFact> ReadUnitFacts(TestBundle const& bundle, UnitProcess& unit)
{
    auto const config = ReadUartConfig(QSettings(bundle.ConfigPath(), QSettings::IniFormat));
    auto const transport = GetTransport(bundle);
    bool const is_uart = transport == TargetUart;
    bool const is_mcuboot = transport == TargetMcubootSerial;
    auto const image = bundle.ReadFirmware();
    auto const expected = is_uart ? GetFlashAfterUart(image) : image;
    auto const address = is_mcuboot ? simulator::kFlashStart : config.programming_address;
    auto const flash = unit.ReadMemory(address, expected.size());
    QList<UnitFact> facts{
        {u"%1, %2 bytes"_s.arg(is_mcuboot ? u"slot"_s : u"flash"_s).arg(expected.size()),
         Digest(expected), Digest(flash)}};
    if (is_uart) {
        facts.append(
            {u"trailer"_s, u"01 00 00 00"_s, QString::fromLatin1(flash.right(4).toHex(' '))});
        facts.append({u"boot-mode marker"_s, u"PUWF"_s, unit.Status(u"marker"_s)});
        facts.append({u"jump address"_s, Hex(config.start_address), unit.Status(u"jump"_s)});
    } else if (is_mcuboot) {
        facts.append(
            {u"announced size"_s, QString::number(image.size()), unit.Status(u"image-size"_s)});
        facts.append({u"last request"_s, u"reset"_s, ReadLastCommand(unit)});
    } else {
        facts.append({u"jump address"_s, Hex(address), unit.Status(u"jump"_s)});
        facts.append({u"last command"_s, u"leave"_s, ReadLastCommand(unit)});
    }
    facts.append({u"written unerased"_s, u"0"_s, unit.Status(u"over-unerased"_s)});
    facts.append({u"state"_s, u"running"_s, unit.Status(u"state"_s)});
    return facts;
}
