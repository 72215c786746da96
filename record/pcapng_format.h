// The numbers of the file format pcapng that records use (IETF draft-ietf-opsawg-pcapng), for the
// writer and the reader.
#pragma once

#include <QtGlobal>
#include <cstdint>

namespace record {

// The direction of bytes, as the two lowest bits of the option epb_flags have it.
enum class Direction : uint32_t {
    kUnknown = 0,
    kIn = 1,   // from the unit to the program
    kOut = 2,  // from the program to the unit
};

// Types of blocks.
inline constexpr uint32_t kSectionHeaderBlock = 0x0A0D0D0A;  // the same in both byte orders
inline constexpr uint32_t kInterfaceBlock = 1;
inline constexpr uint32_t kPacketBlock = 6;  // "enhanced packet"

inline constexpr uint32_t kByteOrderMagic = 0x1A2B3C4D;
inline constexpr uint16_t kMajorVersion = 1;
inline constexpr uint64_t kUnknownSectionLength = 0xFFFFFFFFFFFFFFFF;

// Options of every block.
inline constexpr uint16_t kEndOfOptions = 0;
inline constexpr uint16_t kCommentOption = 1;
// Options of a section header: what wrote the file.
inline constexpr uint16_t kHardwareOption = 2;
inline constexpr uint16_t kSystemOption = 3;
inline constexpr uint16_t kApplicationOption = 4;
// Options of an interface.
inline constexpr uint16_t kNameOption = 2;
inline constexpr uint16_t kDescriptionOption = 3;
inline constexpr uint16_t kTimeResolutionOption = 9;  // if_tsresol
// An option of a packet.
inline constexpr uint16_t kFlagsOption = 2;

inline constexpr uint8_t kNanoseconds = 9;          // if_tsresol: units of 10^-9 s
inline constexpr uint8_t kDefaultResolution = 6;    // where a file has none
inline constexpr uint16_t kLinkTypeUser0 = 147;     // for private use: bytes without a protocol
inline constexpr qsizetype kLongestOption = 65535;  // bytes, by the width of its length

// A block has this many bytes before its body (type and length) and after it (length again).
inline constexpr qsizetype kBlockHeaderSize = 8;
inline constexpr qsizetype kBlockTrailerSize = 4;

}  // namespace record
