#include "bundle_check/ini_lines.h"

#include <algorithm>
#include <utility>

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

// Of the bytes from `begin` up to `end`; a pair of carriage return and line feed is one.
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

    // Of a byte not before the last one that was asked for: the file is counted once.
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

    // To the last byte of what a backslash keeps from having a meaning of its own.
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

std::optional<QString> GetSection(QByteArray const& line)
{
    auto const closing = line.indexOf(']');
    auto const name = line.mid(1, closing < 0 ? -1 : closing - 1).trimmed();
    if (name.compare("general", Qt::CaseInsensitive) == 0) {
        return std::nullopt;
    }
    // The way to a section that really has this name.
    bool const is_escaped_general = name.compare("%general", Qt::CaseInsensitive) == 0;
    return is_escaped_general ? QString::fromUtf8(name.mid(1)) : DecodeIniKey(name);
}

IniEntry ReadEntry(QByteArray const& text, qsizetype equals, LogicalLine const& line)
{
    auto const value = text.mid(equals + 1);
    IniEntry entry;
    entry.key = DecodeIniKey(text.left(equals).trimmed());
    entry.value = value.trimmed();
    entry.decoded = DecodeIniValue(value);
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

}  // namespace bundle_check
