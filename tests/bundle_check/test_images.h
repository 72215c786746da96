// Images that a unit would start.
#pragma once

#include <QByteArray>
#include <QCryptographicHash>
#include <QtEndian>
#include <cstdint>

// Where the stack of an image made here begins.
inline constexpr uint32_t kTestStack = 0x20010000;

template <typename Number>
QByteArray ToBytes(Number number)
{
    QByteArray bytes(sizeof(number), '\0');
    qToLittleEndian(number, bytes.data());
    return bytes;
}

// A vector table for flash at `address`; the rest is free. At least 8 bytes.
inline QByteArray MakeStm32Image(qsizetype size, uint32_t address = 0x08000000,
                                 uint32_t stack = kTestStack)
{
    // The handler is the table's second word, which is enough for an image that nobody executes.
    auto const table = ToBytes(stack) + ToBytes<uint32_t>(address + 4 + 1);
    return table + QByteArray(size - table.size(), '\xFF');
}

inline QByteArray MakeTlv(uint16_t type, QByteArray const& value)
{
    return ToBytes(type) + ToBytes(static_cast<uint16_t>(value.size())) + value;
}

// With its beginning; `magic` 0x6907, or 0x6908 for a protected area.
inline QByteArray MakeTlvArea(uint16_t magic, QByteArray const& entries)
{
    return ToBytes(magic) + ToBytes(static_cast<uint16_t>(entries.size() + 4)) + entries;
}

struct McubootParts {
    QByteArray header;  // 32 bytes or more
    QByteArray firmware;
    QByteArray protected_area{};

    QByteArray Hashed() const { return header + firmware + protected_area; }
    QByteArray Digest() const
    {
        return QCryptographicHash::hash(Hashed(), QCryptographicHash::Sha256);
    }
    QByteArray Image() const { return Hashed() + MakeTlvArea(0x6907, MakeTlv(0x10, Digest())); }
};

// Version 1.0.0.
inline McubootParts MakeMcubootParts(qsizetype firmware_size, QByteArray const& protected_area = {},
                                     uint32_t flags = 0)
{
    constexpr uint16_t kHeaderSize = 64;
    auto header = QByteArray("\x3D\xB8\xF3\x96") + ToBytes<uint32_t>(0) + ToBytes(kHeaderSize) +
                  ToBytes(static_cast<uint16_t>(protected_area.size())) +
                  ToBytes(static_cast<uint32_t>(firmware_size)) + ToBytes(flags) + '\x01' + '\0' +
                  ToBytes<uint16_t>(0) + ToBytes<uint32_t>(0);
    header += QByteArray(kHeaderSize - header.size(), '\0');
    return {header, MakeStm32Image(firmware_size), protected_area};
}
