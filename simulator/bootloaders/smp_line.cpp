#include "simulator/bootloaders/smp_line.h"

#include <algorithm>
#include <array>
#include <string>

namespace simulator {
namespace {

constexpr std::array kStartMarker{std::byte{0x06}, std::byte{0x09}};
constexpr std::array kContinuationMarker{std::byte{0x04}, std::byte{0x14}};
constexpr std::byte kNewline{0x0A};

constexpr size_t kLengthSize = 2;
constexpr size_t kHeaderSize = 8;
constexpr size_t kCheckSize = 2;

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kPadding = '=';

using Bytes = std::vector<std::byte>;
using ByteSpan = std::span<std::byte const>;

unsigned ReadNumber(ByteSpan big_endian)
{
    unsigned number = 0;
    for (auto const byte : big_endian) {
        number = number << 8 | std::to_integer<unsigned>(byte);
    }
    return number;
}

void Append16(Bytes& bytes, size_t number)
{
    bytes.push_back(static_cast<std::byte>(number >> 8 & 0xFF));
    bytes.push_back(static_cast<std::byte>(number & 0xFF));
}

// CRC-16 with the polynomial 0x1021, highest bit first.
unsigned GetCrc(ByteSpan bytes, unsigned crc)
{
    for (auto const byte : bytes) {
        for (unsigned mask = 0x80; mask != 0; mask >>= 1) {
            bool const input = (std::to_integer<unsigned>(byte) & mask) != 0;
            bool const top = (crc & 0x8000) != 0;
            crc = (crc << 1 & 0xFFFF) ^ (input != top ? 0x1021 : 0);
        }
    }
    return crc;
}

// The rule by which a unit checks what it receives.
unsigned GetRequestCheck(ByteSpan packet)
{
    return GetCrc(packet, 0xFFFF) ^ 0xFFFF;
}

// The rule by which a unit stamps what it sends: the payload is counted from another value than the
// header's end. Both rules agree on a packet without payload.
unsigned GetAnswerCheck(ByteSpan packet)
{
    auto const header = GetCrc(packet.first(kHeaderSize), 0xFFFF);
    return GetCrc(packet.subspan(kHeaderSize), header ^ 0xE2F0) ^ 0x1D0F;
}

std::string EncodeBase64(ByteSpan bytes)
{
    std::string text;
    for (size_t i = 0; i < bytes.size(); i += 3) {
        auto const group = bytes.subspan(i, std::min<size_t>(3, bytes.size() - i));
        unsigned const bits = ReadNumber(group) << 8 * (3 - group.size());
        for (size_t digit = 0; digit < 4; ++digit) {
            auto const index = bits >> (18 - 6 * digit) & 0x3F;
            text += digit <= group.size() ? kAlphabet[index] : kPadding;
        }
    }
    return text;
}

// Nothing for anything but what EncodeBase64 makes.
std::optional<Bytes> DecodeBase64(ByteSpan text)
{
    Bytes bytes;
    size_t padding = 0;
    unsigned bits = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        auto const character = static_cast<char>(text[i]);
        padding += character == kPadding ? 1 : 0;
        // What is no digit counts as one here; it shows in the comparison below.
        bits = bits << 6 | static_cast<unsigned>(kAlphabet.find(character) & 0x3F);
        if (i % 4 == 3) {
            bytes.push_back(static_cast<std::byte>(bits >> 16 & 0xFF));
            Append16(bytes, bits & 0xFFFF);
        }
    }
    bytes.resize(bytes.size() - std::min(padding, bytes.size()));
    auto const is_same = [](std::byte a, char b) { return a == static_cast<std::byte>(b); };
    return std::ranges::equal(text, EncodeBase64(bytes), is_same) ? std::optional(bytes)
                                                                  : std::nullopt;
}

SmpRequest ReadPacket(ByteSpan packet)
{
    auto const payload = packet.subspan(kHeaderSize);
    if (ReadNumber(packet.subspan(2, 2)) != payload.size()) {
        return {std::nullopt, "length"};
    }
    SmpMessage message;
    message.operation = std::to_integer<uint8_t>(packet[0]);
    message.group = static_cast<uint16_t>(ReadNumber(packet.subspan(4, 2)));
    message.sequence = std::to_integer<uint8_t>(packet[6]);
    message.command = std::to_integer<uint8_t>(packet[7]);
    message.payload.assign(payload.begin(), payload.end());
    return {std::move(message), {}};
}

}  // namespace

SmpRequest ReadSmpRequest(ByteSpan line)
{
    if (line.size() < kStartMarker.size() ||
        !std::ranges::equal(line.first(kStartMarker.size()), kStartMarker)) {
        return {std::nullopt, "marker"};
    }
    auto const block = DecodeBase64(line.subspan(kStartMarker.size()));
    if (!block || block->empty()) {
        return {std::nullopt, "base64"};
    }
    if (block->size() < kLengthSize + kHeaderSize + kCheckSize ||
        ReadNumber(ByteSpan(*block).first(kLengthSize)) != block->size() - kLengthSize) {
        return {std::nullopt, "length"};
    }
    auto const packet =
        ByteSpan(*block).subspan(kLengthSize, block->size() - kLengthSize - kCheckSize);
    if (ReadNumber(ByteSpan(*block).last(kCheckSize)) != GetRequestCheck(packet)) {
        return {std::nullopt, "checksum"};
    }
    return ReadPacket(packet);
}

std::vector<std::byte> MakeSmpAnswer(SmpMessage const& answer)
{
    Bytes block;
    block.reserve(kLengthSize + kHeaderSize + answer.payload.size() + kCheckSize);
    Append16(block, kHeaderSize + answer.payload.size() + kCheckSize);
    block.push_back(std::byte{answer.operation});
    block.push_back(std::byte{0});
    Append16(block, answer.payload.size());
    Append16(block, answer.group);
    block.push_back(std::byte{answer.sequence});
    block.push_back(std::byte{answer.command});
    block.insert(block.end(), answer.payload.begin(), answer.payload.end());
    Append16(block, GetAnswerCheck(ByteSpan(block).subspan(kLengthSize)));
    return block;
}

std::vector<std::byte> MakeSmpLines(ByteSpan block, size_t line_size)
{
    auto const text = EncodeBase64(block);
    auto const piece_size = line_size == 0 ? text.size() : line_size;
    Bytes lines;
    for (size_t offset = 0; offset < text.size(); offset += piece_size) {
        auto const& marker = offset == 0 ? kStartMarker : kContinuationMarker;
        lines.insert(lines.end(), marker.begin(), marker.end());
        for (auto const character : text.substr(offset, piece_size)) {
            lines.push_back(static_cast<std::byte>(character));
        }
        lines.push_back(kNewline);
    }
    return lines;
}

}  // namespace simulator
