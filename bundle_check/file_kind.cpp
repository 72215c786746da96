#include "bundle_check/file_kind.h"

#include <QByteArrayView>
#include <algorithm>
#include <iterator>

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

enum class Cure {
    FromElf,
    FromHex,
    FromSRecord,
    FromDfu,
    Gunzip,
    Unzip,
    Untar,
    Unpack,
    LfsPull,
    NameAnother,  // no firmware at all
};

struct Magic {
    QByteArrayView bytes;
    char16_t const* name;
    Cure cure;
    bool is_firmware = false;
};

template <size_t size>
constexpr QByteArrayView Bytes(char const (&text)[size])
{
    return {text, size - 1};
}

constexpr Magic kMagics[] = {
    {Bytes("\x7F"
           "ELF"),
     u"an ELF file", Cure::FromElf, true},
    {Bytes("\xCF\xFA\xED\xFE"), u"a Mach-O program", Cure::FromElf},
    {Bytes("\xCA\xFE\xBA\xBE"), u"a universal Mach-O program", Cure::FromElf},
    {Bytes("MZ"), u"a program for Windows", Cure::NameAnother},
    {Bytes("!<arch>\n"), u"a static library", Cure::FromElf},
    {Bytes("DfuSe"), u"a DfuSe file", Cure::FromElf, true},
    {Bytes("UF2\n\x57\x51\x5D\x9E"), u"a UF2 file", Cure::FromElf, true},
    {Bytes("\x1F\x8B"), u"a gzip archive", Cure::Gunzip},
    {Bytes("PK\x03\x04"), u"a ZIP archive", Cure::Unzip},
    {Bytes("PK\x05\x06"), u"an empty ZIP archive", Cure::NameAnother},
    {Bytes("BZh"), u"a bzip2 archive", Cure::Unpack},
    {Bytes("\xFD"
           "7zXZ"),
     u"an xz archive", Cure::Unpack},
    {Bytes("7z\xBC\xAF\x27\x1C"), u"a 7z archive", Cure::Unpack},
    {Bytes("\x28\xB5\x2F\xFD"), u"a zstd archive", Cure::Unpack},
    {Bytes("\x89PNG"), u"a PNG picture", Cure::NameAnother},
    {Bytes("\xFF\xD8\xFF"), u"a JPEG picture", Cure::NameAnother},
    {Bytes("%PDF-"), u"a PDF document", Cure::NameAnother},
    {Bytes("\xFF\xFE"), u"a text file", Cure::NameAnother},  // UTF-16
    {Bytes("\xFE\xFF"), u"a text file", Cure::NameAnother},
};

// In lower case. Only what the whole head, as text, begins with.
constexpr Magic kTextMagics[] = {
    {Bytes("version https://git-lfs.github.com/spec/"), u"a Git LFS pointer", Cure::LfsPull},
    {Bytes("<!doctype html"), u"an HTML page", Cure::NameAnother},
    {Bytes("<html"), u"an HTML page", Cure::NameAnother},
    {Bytes("<?xml"), u"an XML file", Cure::NameAnother},
    {Bytes("{"), u"a JSON file", Cure::NameAnother},
    {Bytes("["), u"a JSON file", Cure::NameAnother},
};

QString Describe(Cure cure)
{
    auto from_elf = u"make the raw image with 'objcopy -O binary FILE.elf FILE.bin'"_s;
    auto const then = u"; if that gives an ELF file, "_s + from_elf;
    switch (cure) {
        case Cure::FromHex:
            return u"make the raw image with 'objcopy -I ihex -O binary FILE.hex FILE.bin'"_s;
        case Cure::FromSRecord:
            return u"make the raw image with 'objcopy -I srec -O binary FILE.s19 FILE.bin'"_s;
        case Cure::FromDfu:
            return u"remove the suffix with 'dfu-suffix -D FILE', or "_s + from_elf;
        case Cure::Gunzip:
            return u"unpack it with 'gunzip'"_s + then;
        case Cure::Unzip:
            return u"unpack it with 'unzip'"_s + then;
        case Cure::Untar:
            return u"unpack it with 'tar -xf'"_s + then;
        case Cure::Unpack:
            return u"unpack it"_s + then;
        case Cure::LfsPull:
            return u"get the file itself with 'git lfs pull'"_s + then;
        case Cure::NameAnother:
            return u"name the raw image instead, made with 'objcopy -O binary FILE.elf FILE.bin'"_s;
        case Cure::FromElf:
            break;
    }
    return from_elf;
}

FileKind MakeKind(QString const& name, Cure cure, bool is_firmware = false)
{
    return {name, Describe(cure), is_firmware};
}

bool IsHexadecimal(QByteArray const& digits)
{
    return !digits.isEmpty() && std::ranges::all_of(digits, [](char digit) {
        return (digit >= '0' && digit <= '9') || (digit >= 'a' && digit <= 'f') ||
               (digit >= 'A' && digit <= 'F');
    });
}

// Without the mark of UTF-8, and without spaces and empty lines.
QByteArray SkipToText(QByteArray const& head)
{
    auto const text = head.startsWith("\xEF\xBB\xBF") ? head.mid(3) : head;
    auto const is_space = [](char byte) {
        return byte == ' ' || byte == '\t' || byte == '\r' || byte == '\n';
    };
    auto const* const begin = std::ranges::find_if_not(text, is_space);
    return text.mid(begin - text.cbegin());
}

bool IsText(QByteArray const& head)
{
    return std::ranges::all_of(head, [](char byte) {
        return (byte >= ' ' && byte <= '~') || byte == '\t' || byte == '\r' || byte == '\n';
    });
}

// Records of digits, whose first bytes are the mark, a type or a length, and an address.
std::optional<FileKind> FindRecords(QByteArray const& text)
{
    constexpr qsizetype kDigits = 8;
    auto const digits = text.mid(1, kDigits);
    if (digits.size() < kDigits || !IsHexadecimal(digits)) {
        return std::nullopt;
    }
    if (text.startsWith(':')) {
        return MakeKind(u"an Intel HEX file"_s, Cure::FromHex, true);
    }
    if (text.startsWith('S') || text.startsWith('s')) {
        return MakeKind(u"an S-record file"_s, Cure::FromSRecord, true);
    }
    return std::nullopt;
}

std::optional<FileKind> FindText(QByteArray const& text)
{
    auto const lower = text.toLower();
    for (auto const& magic : kTextMagics) {
        if (lower.startsWith(magic.bytes)) {
            return MakeKind(QString::fromUtf16(magic.name), magic.cure);
        }
    }
    return MakeKind(u"a text file"_s, Cure::NameAnother);
}

// The first entry's header has the format's name behind the file's name and attributes.
bool IsTar(QByteArray const& head)
{
    constexpr qsizetype kFormatAt = 257;
    return head.mid(kFormatAt).startsWith("ustar");
}

// The suffix is 16 bytes long. It ends with its signature, its length and a check value.
bool HasDfuSuffix(QByteArray const& tail)
{
    constexpr qsizetype kSignatureFromEnd = 8;
    return tail.right(kSignatureFromEnd).startsWith("UFD\x10");
}

}  // namespace

std::optional<FileKind> FindForeignKind(QByteArray const& head, QByteArray const& tail)
{
    for (auto const& magic : kMagics) {
        if (head.startsWith(magic.bytes)) {
            return MakeKind(QString::fromUtf16(magic.name), magic.cure, magic.is_firmware);
        }
    }
    if (IsTar(head)) {
        return MakeKind(u"a tar archive"_s, Cure::Untar);
    }
    auto const text = SkipToText(head);
    if (auto const records = FindRecords(text)) {
        return records;
    }
    if (!head.isEmpty() && IsText(text)) {
        return FindText(text);
    }
    if (HasDfuSuffix(tail)) {
        return MakeKind(u"a file with a DFU suffix"_s, Cure::FromDfu, true);
    }
    return std::nullopt;
}

}  // namespace bundle_check
