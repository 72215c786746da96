#include "bundle_check/font_name.h"

#include <QHash>
#include <QStringDecoder>
#include <QtEndian>

namespace bundle_check {

namespace {

// Numbers in the OpenType format's name table.
constexpr int kMacintosh = 1;
constexpr int kWindows = 3;
constexpr int kFamily = 1;
constexpr int kStyle = 2;
constexpr int kTypographicFamily = 16;
constexpr int kTypographicStyle = 17;

template <typename Number>
Number Read(QByteArray const& bytes, qsizetype offset)
{
    constexpr auto kSize = static_cast<qsizetype>(sizeof(Number));
    if (offset < 0 || offset > bytes.size() - kSize) {
        return 0;
    }
    return qFromBigEndian<Number>(bytes.constData() + offset);
}

// The bytes of the table, or none.
QByteArray FindTable(QByteArray const& bytes, QByteArray const& tag)
{
    constexpr qsizetype kHeader = 12;
    constexpr qsizetype kRecord = 16;
    auto const signature = bytes.left(4);
    if (signature != "OTTO" && signature != QByteArray("\0\1\0\0", 4) && signature != "true") {
        return {};
    }
    auto const count = Read<uint16_t>(bytes, 4);
    for (qsizetype i = 0; i < count; ++i) {
        auto const record = kHeader + i * kRecord;
        if (bytes.mid(record, tag.size()) == tag) {
            return bytes.mid(Read<uint32_t>(bytes, record + 8), Read<uint32_t>(bytes, record + 12));
        }
    }
    return {};
}

QString Decode(QByteArray const& text, int platform)
{
    if (platform == kMacintosh) {
        return QString::fromLatin1(text);  // the names that are looked for are ASCII
    }
    return QStringDecoder(QStringDecoder::Utf16BE)(text);
}

bool IsEnglish(int platform, int language)
{
    constexpr int kPrimaryLanguage = 0x3FF;
    constexpr int kWindowsEnglish = 0x009;  // 0x409 in the United States, and elsewhere
    constexpr int kMacintoshEnglish = 0;
    return platform == kWindows     ? (language & kPrimaryLanguage) == kWindowsEnglish
           : platform == kMacintosh ? language == kMacintoshEnglish
                                    : false;
}

// The first English text of each name; without one, the first of all.
class Names {
public:
    void Add(int name, QString const& text, bool is_english)
    {
        auto& texts = is_english ? english_ : others_;
        if (!texts.contains(name)) {
            texts[name] = text;
        }
    }

    // Null when there is none.
    QString Get(int name) const { return english_.value(name, others_.value(name)); }

private:
    QHash<int, QString> english_;
    QHash<int, QString> others_;
};

}  // namespace

std::optional<FontName> ReadFontName(QByteArray const& bytes)
{
    constexpr qsizetype kHeader = 6;
    constexpr qsizetype kRecord = 12;
    auto const table = FindTable(bytes, "name");
    auto const strings = Read<uint16_t>(table, 4);
    Names names;
    auto const count = Read<uint16_t>(table, 2);
    for (qsizetype i = 0; i < count; ++i) {
        auto const record = kHeader + i * kRecord;
        auto const text = table.mid(strings + Read<uint16_t>(table, record + 10),
                                    Read<uint16_t>(table, record + 8));
        if (!text.isEmpty()) {
            int const platform = Read<uint16_t>(table, record);
            names.Add(Read<uint16_t>(table, record + 6), Decode(text, platform),
                      IsEnglish(platform, Read<uint16_t>(table, record + 4)));
        }
    }
    auto const family = names.Get(kTypographicFamily);
    auto const style = names.Get(kTypographicStyle);
    FontName const name{family.isNull() ? names.Get(kFamily) : family,
                        style.isNull() ? names.Get(kStyle) : style};
    return name.family.isNull() ? std::nullopt : std::optional(name);
}

}  // namespace bundle_check
