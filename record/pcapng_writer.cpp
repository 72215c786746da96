#include "record/pcapng_writer.h"

#include <algorithm>
#include <type_traits>

namespace record {
namespace {

constexpr qsizetype kPadding = 4;  // everything begins at a multiple of it

constexpr qsizetype Pad(qsizetype size)
{
    return (size + kPadding - 1) / kPadding * kPadding;
}

template <typename Number>
void AppendNumber(QByteArray& file, Number number)
{
    static_assert(std::is_unsigned_v<Number>);
    file.append(reinterpret_cast<char const*>(&number), sizeof number);
}

void AppendPadded(QByteArray& file, QByteArrayView bytes)
{
    file.append(bytes);
    file.append(Pad(bytes.size()) - bytes.size(), '\0');
}

// The longest beginning that fits an option and does not end within a character.
QByteArrayView FitOption(QByteArrayView utf8)
{
    if (utf8.size() <= kLongestOption) {
        return utf8;
    }
    auto size = kLongestOption;
    auto const continues = [&] { return (static_cast<uint8_t>(utf8[size]) & 0xC0U) == 0x80U; };
    while (size > 0 && continues()) {
        --size;
    }
    return utf8.first(size);
}

void AppendOption(QByteArray& file, uint16_t code, QByteArrayView value)
{
    AppendNumber(file, code);
    AppendNumber(file, static_cast<uint16_t>(value.size()));
    AppendPadded(file, value);
}

void AppendText(QByteArray& file, uint16_t code, QString const& text)
{
    if (!text.isEmpty()) {
        auto const utf8 = text.toUtf8();
        AppendOption(file, code, FitOption(utf8));
    }
}

// Writes type and length; the length is corrected at the end.
qsizetype BeginBlock(QByteArray& file, uint32_t type)
{
    auto const begin = file.size();
    AppendNumber(file, type);
    AppendNumber(file, uint32_t{0});
    return begin;
}

void EndBlock(QByteArray& file, qsizetype begin)
{
    AppendOption(file, kEndOfOptions, {});
    auto const length = static_cast<uint32_t>(file.size() - begin + kBlockTrailerSize);
    std::copy_n(reinterpret_cast<char const*>(&length), sizeof length, file.data() + begin + 4);
    AppendNumber(file, length);
}

constexpr qsizetype kOptionHeaderSize = 4;
constexpr qsizetype kPacketFieldsSize = 20;  // interface, time in two halves, length twice

}  // namespace

void AppendSection(QByteArray& file, Section const& section)
{
    auto const begin = BeginBlock(file, kSectionHeaderBlock);
    AppendNumber(file, kByteOrderMagic);
    AppendNumber(file, kMajorVersion);
    AppendNumber(file, uint16_t{0});
    AppendNumber(file, kUnknownSectionLength);
    AppendText(file, kHardwareOption, section.hardware);
    AppendText(file, kSystemOption, section.system);
    AppendText(file, kApplicationOption, section.application);
    EndBlock(file, begin);
}

void AppendInterface(QByteArray& file, Interface const& interface)
{
    auto const begin = BeginBlock(file, kInterfaceBlock);
    AppendNumber(file, kLinkTypeUser0);
    AppendNumber(file, uint16_t{0});
    AppendNumber(file, uint32_t{0});  // no limit to a packet's length
    AppendText(file, kNameOption, interface.name);
    AppendText(file, kDescriptionOption, interface.description);
    constexpr auto kResolution = static_cast<char>(kNanoseconds);
    AppendOption(file, kTimeResolutionOption, QByteArrayView(&kResolution, 1));
    EndBlock(file, begin);
}

void AppendPacket(QByteArray& file, PacketInfo const& packet, QByteArrayView bytes,
                  QByteArrayView comment)
{
    auto const begin = BeginBlock(file, kPacketBlock);
    AppendNumber(file, packet.interface);
    AppendNumber(file, static_cast<uint32_t>(packet.time >> 32U));
    AppendNumber(file, static_cast<uint32_t>(packet.time));
    AppendNumber(file, static_cast<uint32_t>(bytes.size()));
    AppendNumber(file, static_cast<uint32_t>(bytes.size()));
    AppendPadded(file, bytes);
    if (!comment.isEmpty()) {
        AppendOption(file, kCommentOption, FitOption(comment));
    }
    auto const flags = static_cast<uint32_t>(packet.direction);
    AppendOption(file, kFlagsOption,
                 QByteArrayView(reinterpret_cast<char const*>(&flags), sizeof flags));
    EndBlock(file, begin);
}

qsizetype GetPacketSize(qsizetype bytes, qsizetype comment)
{
    auto const option =
        comment == 0 ? 0 : kOptionHeaderSize + Pad(std::min(comment, kLongestOption));
    constexpr qsizetype kFlags = kOptionHeaderSize + 4;
    return kBlockHeaderSize + kPacketFieldsSize + Pad(bytes) + option + kFlags + kOptionHeaderSize +
           kBlockTrailerSize;
}

}  // namespace record
