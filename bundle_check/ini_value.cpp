#include "bundle_check/ini_value.h"

#include <QStringDecoder>
#include <algorithm>

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

constexpr int kOctal = 8;
constexpr int kHexadecimal = 16;

bool IsBlank(char byte)
{
    return byte == ' ' || byte == '\t';
}

bool IsLineEnd(char byte)
{
    return byte == '\n' || byte == '\r';
}

// -1: no digit in that base.
int ToDigit(char byte, int base)
{
    int const digit = byte >= '0' && byte <= '9'   ? byte - '0'
                      : byte >= 'a' && byte <= 'f' ? byte - 'a' + 10
                      : byte >= 'A' && byte <= 'F' ? byte - 'A' + 10
                                                   : kHexadecimal;
    return digit < base ? digit : -1;
}

class ValueReader {
public:
    explicit ValueReader(QByteArray const& bytes) : bytes_(bytes) {}

    IniValue Read()
    {
        SkipBlanks();
        while (!AtEnd()) {
            TakePart();
        }
        EndElement();
        return value_;
    }

private:
    bool AtEnd() const { return position_ >= bytes_.size(); }
    bool IsDigit(int base) const { return !AtEnd() && ToDigit(bytes_[position_], base) >= 0; }

    void TakePart()
    {
        char const byte = bytes_[position_];
        if (byte == '\\') {
            TakeEscape();
        } else if (byte == '"') {
            TakeQuotationMark();
        } else if (byte == ',' && !in_quotes_) {
            ++position_;
            EndElement();
            SkipBlanks();
        } else {
            TakeRun();
        }
    }

    void TakeEscape()
    {
        static QByteArray const letters("abfnrtv\"?'\\");
        static QString const meanings(u"\a\b\f\n\r\t\v\"?'\\"_s);
        ++position_;
        if (IsDigit(kOctal)) {
            TakeNumber(kOctal);
            return;
        }
        char const letter = AtEnd() ? '\0' : bytes_[position_++];
        auto const meaning = letters.indexOf(letter);
        kept_ = text_.size();  // whatever becomes of it, it keeps the spaces before it
        if (meaning >= 0) {
            AppendEscaped(meanings[meaning]);
        } else if (letter == 'x' && IsDigit(kHexadecimal)) {
            TakeNumber(kHexadecimal);
        } else if (IsLineEnd(letter) && !AtEnd() && IsLineEnd(bytes_[position_]) &&
                   bytes_[position_] != letter) {
            ++position_;
        }
        // Any other character is dropped together with its backslash.
    }

    // As many digits as there are; what does not fit 16 bits is lost at the upper end.
    void TakeNumber(int base)
    {
        char16_t number = 0;
        for (; IsDigit(base); ++position_) {
            number = static_cast<char16_t>(number * base + ToDigit(bytes_[position_], base));
        }
        AppendEscaped(QChar(number));
    }

    void AppendEscaped(QChar character)
    {
        text_ += character;
        kept_ = text_.size();
        text_outside_ = text_outside_ || !in_quotes_;
    }

    void TakeQuotationMark()
    {
        ++position_;
        in_quotes_ = !in_quotes_;
        if (in_quotes_) {
            ++quoted_parts_;
        } else {
            SkipBlanks();
        }
    }

    void TakeRun()
    {
        auto const begin = position_++;
        while (!AtEnd() && bytes_[position_] != '\\' && bytes_[position_] != '"' &&
               bytes_[position_] != ',') {
            ++position_;
        }
        auto const run = QByteArrayView(bytes_).sliced(begin, position_ - begin);
        text_ += decoder_.decode(run);
        text_outside_ = text_outside_ || (!in_quotes_ && !std::ranges::all_of(run, IsBlank));
    }

    void SkipBlanks()
    {
        while (!AtEnd() && IsBlank(bytes_[position_])) {
            ++position_;
        }
        kept_ = text_.size();
    }

    void EndElement()
    {
        while (quoted_parts_ == 0 && text_.size() > kept_ &&
               (text_.back() == u' ' || text_.back() == u'\t')) {
            text_.chop(1);
        }
        value_.mixed_quotes =
            value_.mixed_quotes || quoted_parts_ > 1 || (quoted_parts_ == 1 && text_outside_);
        value_.elements.append(text_);
        text_.clear();
        quoted_parts_ = 0;
        text_outside_ = false;
    }

    QByteArray const& bytes_;
    qsizetype position_ = 0;
    QStringDecoder decoder_{QStringDecoder::Utf8};
    QString text_;        // of the element
    qsizetype kept_ = 0;  // how much of it is not taken for spaces at its end
    bool in_quotes_ = false;
    int quoted_parts_ = 0;
    bool text_outside_ = false;
    IniValue value_;
};

// The character that a "%" at `position` stands for, and how many bytes of the key it takes.
struct PercentCode {
    QChar character = u'%';
    qsizetype length = 1;
};

PercentCode ReadPercentCode(QByteArray const& key, qsizetype position)
{
    bool const is_long = key.mid(position + 1, 1) == "U";
    qsizetype const digits = is_long ? 4 : 2;
    auto const begin = position + (is_long ? 2 : 1);
    bool is_number = false;
    auto const code = key.mid(begin, digits).toUShort(&is_number, kHexadecimal);
    bool const complete = begin + digits <= key.size();
    return is_number && complete ? PercentCode{QChar(code), begin + digits - position}
                                 : PercentCode{};
}

}  // namespace

IniValue DecodeIniValue(QByteArray const& value)
{
    return ValueReader(value).Read();
}

QString DecodeIniKey(QByteArray const& key)
{
    QString decoded;
    qsizetype copied = 0;
    for (auto at = key.indexOf('%'); at >= 0; at = key.indexOf('%', copied)) {
        auto const code = ReadPercentCode(key, at);
        decoded += QString::fromUtf8(key.mid(copied, at - copied)).replace(u'\\', u'/');
        decoded += code.character;
        copied = at + code.length;
    }
    return decoded + QString::fromUtf8(key.mid(copied)).replace(u'\\', u'/');
}

bool IsForeignForm(QString const& element)
{
    static QStringList const beginnings{u"@ByteArray("_s, u"@DateTime("_s, u"@Invalid("_s,
                                        u"@Point("_s,     u"@Rect("_s,     u"@Size("_s,
                                        u"@String("_s,    u"@Variant("_s};
    return element.endsWith(u')') && std::ranges::any_of(beginnings, [&](QString const& beginning) {
               return element.startsWith(beginning);
           });
}

}  // namespace bundle_check
