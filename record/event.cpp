#include "record/event.h"

#include <QLatin1String>
#include <algorithm>

#include "record/pcapng_format.h"

namespace record {
namespace {

constexpr QLatin1String kPrefix("event: ");

bool IsPlain(QChar character)
{
    return character > QLatin1Char(' ') && character <= QLatin1Char('~') &&
           character != QLatin1Char('"') && character != QLatin1Char('\\') &&
           character != QLatin1Char('=');
}

bool IsNameCharacter(QChar character)
{
    return (character >= QLatin1Char('a') && character <= QLatin1Char('z')) ||
           (character >= QLatin1Char('0') && character <= QLatin1Char('9')) ||
           character == QLatin1Char('-');
}

struct Escape {
    char letter;
    char character;
};

constexpr Escape kEscapes[] = {{'"', '"'}, {'\\', '\\'}, {'n', '\n'}, {'r', '\r'}, {'t', '\t'}};

void AppendQuoted(QString& text, QChar character)
{
    for (auto const& escape : kEscapes) {
        if (character == QLatin1Char(escape.character)) {
            text += QLatin1Char('\\');
            text += QLatin1Char(escape.letter);
            return;
        }
    }
    text += character.category() == QChar::Other_Control ? QLatin1Char(' ') : character;
}

QString FormatValue(QString const& value)
{
    if (!value.isEmpty() && std::ranges::all_of(value, IsPlain)) {
        return value;
    }
    QString text(QLatin1Char('"'));
    for (auto const character : value) {
        AppendQuoted(text, character);
    }
    return text + QLatin1Char('"');
}

QByteArray Format(Event const& event)
{
    auto text = kPrefix + event.name;
    for (auto const& field : event.fields) {
        text += QLatin1Char(' ') + field.name + QLatin1Char('=') + FormatValue(field.value);
    }
    return text.toUtf8();
}

// Takes pieces from the front of a text. Each function returns nothing when the text does not begin
// with such a piece.
class Scanner {
public:
    explicit Scanner(QStringView text) : rest_(text) {}

    bool AtEnd() const { return rest_.isEmpty(); }

    bool Take(QChar character)
    {
        if (!rest_.startsWith(character)) {
            return false;
        }
        rest_ = rest_.sliced(1);
        return true;
    }

    std::optional<QString> TakeName()
    {
        auto name = TakeWhile(IsNameCharacter);
        return name.isEmpty() ? std::nullopt : std::optional(name);
    }

    std::optional<QString> TakeValue()
    {
        if (Take(QLatin1Char('"'))) {
            return TakeQuoted();
        }
        auto value = TakeWhile(IsPlain);
        return value.isEmpty() ? std::nullopt : std::optional(value);
    }

private:
    template <typename Predicate>
    QString TakeWhile(Predicate const& belongs)
    {
        auto const* const end = std::ranges::find_if_not(rest_, belongs);
        auto const size = end - rest_.begin();
        auto const text = rest_.first(size).toString();
        rest_ = rest_.sliced(size);
        return text;
    }

    std::optional<QString> TakeQuoted()
    {
        QString value;
        while (!rest_.isEmpty()) {
            auto const character = rest_.front();
            rest_ = rest_.sliced(1);
            if (character == QLatin1Char('"')) {
                return value;
            }
            if (character != QLatin1Char('\\')) {
                value += character;
            } else if (auto const escaped = TakeEscaped()) {
                value += *escaped;
            } else {
                return std::nullopt;
            }
        }
        return std::nullopt;
    }

    std::optional<QChar> TakeEscaped()
    {
        for (auto const& escape : kEscapes) {
            if (Take(QLatin1Char(escape.letter))) {
                return QLatin1Char(escape.character);
            }
        }
        return std::nullopt;
    }

    QStringView rest_;
};

}  // namespace

QString Event::GetValue(char const* field) const
{
    auto const found = std::ranges::find(fields, QLatin1String(field), &Field::name);
    return found == fields.end() ? QString() : found->value;
}

QByteArray FormatEvent(Event const& event)
{
    auto text = Format(event);
    if (text.size() <= kLongestOption) {
        return text;
    }
    // Escaped and in UTF-8, no character of a value needs more than three bytes.
    constexpr qsizetype kLongestValue = kLongestOption / 4;
    auto shorter = event;
    for (auto& field : shorter.fields) {
        field.value.truncate(kLongestValue / shorter.fields.size());
    }
    return Format(shorter);
}

std::optional<Event> ParseEvent(QStringView comment)
{
    if (!comment.startsWith(kPrefix)) {
        return std::nullopt;
    }
    Scanner scanner(comment.sliced(kPrefix.size()));
    auto name = scanner.TakeName();
    if (!name) {
        return std::nullopt;
    }
    Event event{*name, {}};
    while (!scanner.AtEnd()) {
        if (!scanner.Take(QLatin1Char(' '))) {
            return std::nullopt;
        }
        auto field = scanner.TakeName();
        if (!field || !scanner.Take(QLatin1Char('='))) {
            return std::nullopt;
        }
        auto value = scanner.TakeValue();
        if (!value) {
            return std::nullopt;
        }
        event.fields.append({*field, *value});
    }
    return event;
}

}  // namespace record
