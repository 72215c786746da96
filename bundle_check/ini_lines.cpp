#include "bundle_check/ini_lines.h"

#include <QRegularExpression>
#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

constexpr char kByteOrderMark[] = "\xEF\xBB\xBF";

bool IsLineEnd(char byte)
{
    return byte == '\n' || byte == '\r';
}

bool IsSpace(char byte)
{
    return byte == ' ' || byte == '\t' || IsLineEnd(byte);
}

// Counts from `begin` up to `end`; a pair of carriage return and line feed is one.
int CountLineEnds(QByteArray const& bytes, qsizetype begin, qsizetype end)
{
    int count = 0;
    for (auto i = begin; i < end; ++i) {
        bool const second_of_pair = bytes[i] == '\n' && i > 0 && bytes[i - 1] == '\r';
        count += IsLineEnd(bytes[i]) && !second_of_pair ? 1 : 0;
    }
    return count;
}

// A piece of the file that QSettings looks at as one line.
struct LogicalLine {
    qsizetype begin = 0;
    qsizetype end = 0;
    qsizetype equals = -1;  // of the first unquoted "="; -1: none
    bool semicolon = false;
    bool open_quotes = false;
};

class Scanner {
public:
    explicit Scanner(QByteArray const& bytes)
        : bytes_(bytes), position_(bytes.startsWith(kByteOrderMark) ? 3 : 0)
    {}

    // False at the end of the file.
    bool Next(LogicalLine& line)
    {
        SkipSpaceAndComments();
        line = LogicalLine{.begin = position_};
        bool in_quotes = false;
        while (position_ < bytes_.size() && !EndsLine(in_quotes)) {
            TakeByte(line, in_quotes);
        }
        line.end = position_;
        line.open_quotes = in_quotes;
        line.semicolon = position_ < bytes_.size() && bytes_[position_] == ';';
        return line.end > line.begin;
    }

    // The line of a byte; no earlier byte than in the last call, since the file is counted once.
    int LineOf(qsizetype position)
    {
        line_ += CountLineEnds(bytes_, counted_, position);
        counted_ = std::max(counted_, position);
        return line_;
    }

private:
    bool EndsLine(bool in_quotes) const
    {
        return !in_quotes && (IsLineEnd(bytes_[position_]) || bytes_[position_] == ';');
    }

    void TakeByte(LogicalLine& line, bool& in_quotes)
    {
        char const byte = bytes_[position_];
        if (byte == '"') {
            in_quotes = !in_quotes;
        } else if (byte == '=' && !in_quotes && line.equals < 0) {
            line.equals = position_;
        } else if (byte == '\\') {
            SkipEscaped();
        }
        position_ = std::min(position_ + 1, bytes_.size());
    }

    // Moves to the last byte that the backslash escapes.
    void SkipEscaped()
    {
        ++position_;
        if (position_ + 1 < bytes_.size() && IsLineEnd(bytes_[position_]) &&
            IsLineEnd(bytes_[position_ + 1]) && bytes_[position_] != bytes_[position_ + 1]) {
            ++position_;
        }
    }

    void SkipSpaceAndComments()
    {
        while (position_ < bytes_.size() &&
               (IsSpace(bytes_[position_]) || bytes_[position_] == ';')) {
            if (bytes_[position_] == ';') {
                SkipComment();
            } else {
                ++position_;
            }
        }
    }

    void SkipComment()
    {
        while (position_ < bytes_.size() && !IsLineEnd(bytes_[position_])) {
            ++position_;
        }
    }

    QByteArray const& bytes_;
    qsizetype position_;
    qsizetype counted_ = 0;
    int line_ = 1;
};

// The character that the code at a "%" encodes, and how many bytes of the key the code takes.
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
    auto const code = key.mid(begin, digits).toUShort(&is_number, 16);
    bool const complete = begin + digits <= key.size();
    return is_number && complete ? PercentCode{QChar(code), begin + digits - position}
                                 : PercentCode{};
}

// True when the quotation marks of an element enclose only a part of it.
bool HasMixedQuotes(QByteArray const& value)
{
    bool in_quotes = false;
    int pairs = 0;
    bool text_outside = false;
    for (qsizetype i = 0; i < value.size(); ++i) {
        char const byte = value[i];
        if (byte == ',' && !in_quotes) {
            pairs = 0;
            text_outside = false;
            continue;
        }
        if (byte == '"') {
            in_quotes = !in_quotes;
            pairs += in_quotes ? 1 : 0;
        } else {
            text_outside = text_outside || (!in_quotes && !IsSpace(byte));
            i += byte == '\\' ? 1 : 0;
        }
        if (pairs > 1 || (pairs == 1 && text_outside)) {
            return true;
        }
    }
    return false;
}

std::optional<QString> GetSection(QByteArray const& line)
{
    auto const closing = line.indexOf(']');
    auto const name = line.mid(1, closing < 0 ? -1 : closing - 1).trimmed();
    if (name.compare("general", Qt::CaseInsensitive) == 0) {
        return std::nullopt;
    }
    // QSettings writes a section that really has this name like that.
    bool const is_escaped_general = name.compare("%general", Qt::CaseInsensitive) == 0;
    return is_escaped_general ? QString::fromUtf8(name.mid(1)) : DecodeIniKey(name);
}

IniEntry ReadEntry(QByteArray const& text, qsizetype equals, LogicalLine const& line)
{
    auto const value = text.mid(equals + 1);
    IniEntry entry;
    entry.key = DecodeIniKey(text.left(equals).trimmed());
    entry.value = value.trimmed();
    entry.mixed_quotes = HasMixedQuotes(entry.value);
    entry.semicolon = line.semicolon;
    entry.open_quotes = line.open_quotes;
    return entry;
}

}  // namespace

IniLines ScanIni(QByteArray const& bytes)
{
    IniLines lines;
    Scanner scanner(bytes);
    LogicalLine line;
    std::optional<QString> section;
    while (scanner.Next(line)) {
        auto const text = bytes.mid(line.begin, line.end - line.begin);
        auto const number = scanner.LineOf(line.begin);
        if (text.startsWith('[')) {
            section = GetSection(text);
        } else if (line.equals < 0) {
            lines.strays.append({number, QString::fromUtf8(text.trimmed())});
        } else {
            auto entry = ReadEntry(text, line.equals - line.begin, line);
            entry.section = section;
            entry.line = number;
            entry.last_line = number + CountLineEnds(text, 0, text.trimmed().size());
            lines.entries.append(std::move(entry));
        }
    }
    return lines;
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

bool MayBeForeignForm(QByteArray const& value)
{
    // An "@" that an element may begin with. It does not follow a word, with or without a space.
    // Nor does it follow another "@", which begins ordinary text, unless a backslash precedes that.
    auto const at = uR"((?<![\w.]{2})(?<![^\\,"\s]\s)(?<![^\\]@)(?<!^@)@)"_s;
    // QSettings drops quotation marks, and the spaces after a closing one.
    static QRegularExpression const dropped(uR"("\s*)"_s);
    static QRegularExpression const form(
        at + uR"((?:ByteArray|DateTime|Invalid|Point|Rect|Size|String|Variant)\()"_s);
    // In a name, an escape that is not a known character may vanish, or spell a letter.
    static QRegularExpression const hidden_name(at +
                                                uR"((?:[A-Za-z]|"\s*+)*+\\(?![abfnrtv"?'\\]))"_s);
    // "@" is 40 in hexadecimal and 100 in octal; digits before those may be lost beyond 16 bits.
    static QRegularExpression const hidden_at(
        uR"((?<!\\)(?:\\\\)*+\\(?:x[0-9A-Fa-f]*40(?![0-9A-Fa-f])|[0-7]*100(?![0-7])))"_s);
    // Every form has a parenthesis, which is 28 in hexadecimal and 50 in octal.
    static QRegularExpression const parenthesis(uR"(\(|\\x[0-9A-Fa-f]*28|\\[0-7]*50)"_s);
    // A search that was given up has no match, but proves nothing.
    auto const may_match = [](QRegularExpression const& pattern, QString const& in) {
        auto const match = pattern.match(in);
        return match.hasMatch() || !match.isValid();
    };
    auto const text = QString::fromLatin1(value);
    return may_match(parenthesis, text) &&
           (may_match(form, QString(text).remove(dropped)) || may_match(hidden_name, text) ||
            may_match(hidden_at, text));
}

}  // namespace bundle_check
