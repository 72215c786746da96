#include "mcuboot/cbor_dump.h"

#include <array>
#include <span>
#include <string_view>

#include "mcuboot/zcbor.h"

namespace mcuboot {
namespace {

constexpr size_t kDumpSlots = 5;
constexpr int kIndentation = 2;

QString Blanks(int count)
{
    return QString(count, QLatin1Char(' '));
}

QString ToQString(std::string_view text)
{
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

// One walk over one payload. Its recursion ends where the decoder's state slots do.
class Walker {
public:
    Walker(QByteArray const& payload, LineSink const& sink)
        : state_(zcbor_new_decode_state(slots_,
                                        {reinterpret_cast<uint8_t const*>(payload.constData()),
                                         static_cast<size_t>(payload.size())},
                                        1)),
          sink_(sink)
    {}

    // Prints the next item: `prefix` begins its first line, `indent` blanks begin its last one.
    // False when the walk cannot go on after it.
    bool DumpItem(QString const& prefix, int indent)
    {
        auto const major = zcbor_peek_major(state_);
        if (!major) {
            return false;
        }
        switch (*major) {
            case zcbor_major::kUnsigned:
            case zcbor_major::kNegative:
                return DumpInteger(prefix);
            case zcbor_major::kBytes:
                return DumpBytes(prefix);
            case zcbor_major::kText:
                return DumpText(prefix);
            case zcbor_major::kArray:
                return DumpArray(prefix, indent);
            case zcbor_major::kMap:
                return DumpMap(prefix, indent);
            case zcbor_major::kSimple:
                return DumpSimple(prefix);
            case zcbor_major::kTag:
                break;
        }
        return DumpUnknown(prefix);
    }

private:
    bool DumpMap(QString const& prefix, int indent)
    {
        if (!zcbor_map_start_decode(state_)) {
            return PrintAndSkip(prefix + QStringLiteral("<map decode error>"));
        }
        sink_(prefix + QLatin1Char('{'));
        auto go_on = true;
        while (go_on && !zcbor_array_at_end(state_)) {
            go_on = DumpEntry(indent + kIndentation);
        }
        sink_(Blanks(indent) + QLatin1Char('}'));
        return go_on && zcbor_map_end_decode(state_);
    }

    bool DumpEntry(int indent)
    {
        std::string_view key;
        auto name = QStringLiteral("<?>");
        if (zcbor_tstr_decode(state_, key)) {
            name = ToQString(key);
        } else if (state_.left() == 0) {
            return false;
        } else if (!zcbor_any_skip(state_)) {
            return PrintAndSkip(Blanks(indent) + QStringLiteral("<decode error>"));
        }
        return DumpItem(Blanks(indent) + name + QStringLiteral(": "), indent);
    }

    bool DumpArray(QString const& prefix, int indent)
    {
        if (!zcbor_list_start_decode(state_)) {
            return PrintAndSkip(prefix + QStringLiteral("<array decode error>"));
        }
        sink_(prefix + QLatin1Char('['));
        auto const inner = indent + kIndentation;
        auto go_on = true;
        for (int index = 0; go_on && !zcbor_array_at_end(state_); ++index) {
            go_on = DumpItem(Blanks(inner) + QStringLiteral("[%1] ").arg(index), inner);
        }
        sink_(Blanks(indent) + QLatin1Char(']'));
        return go_on && zcbor_list_end_decode(state_);
    }

    bool DumpInteger(QString const& prefix)
    {
        int64_t value = 0;
        if (!zcbor_int64_decode(state_, value)) {
            return PrintAndSkip(prefix + QStringLiteral("<decode error>"));
        }
        sink_(prefix + QString::number(value));
        return true;
    }

    bool DumpText(QString const& prefix)
    {
        std::string_view text;
        if (!zcbor_tstr_decode(state_, text)) {
            return PrintAndSkip(prefix + QStringLiteral("<decode error>"));
        }
        sink_(prefix + QLatin1Char('"') + ToQString(text) + QLatin1Char('"'));
        return true;
    }

    bool DumpBytes(QString const& prefix)
    {
        std::span<uint8_t const> bytes;
        if (!zcbor_bstr_decode(state_, bytes)) {
            return PrintAndSkip(prefix + QStringLiteral("<decode error>"));
        }
        auto const data = QByteArray(reinterpret_cast<char const*>(bytes.data()),
                                     static_cast<qsizetype>(bytes.size()));
        sink_(prefix + QStringLiteral("bstr[%1] ").arg(data.size()) +
              QString::fromLatin1(data.toHex(' ')));
        return true;
    }

    bool DumpSimple(QString const& prefix)
    {
        auto value = false;
        if (!zcbor_bool_decode(state_, value)) {
            return DumpUnknown(prefix);
        }
        sink_(prefix + (value ? QStringLiteral("true") : QStringLiteral("false")));
        return true;
    }

    // An item that is well-formed but of no interest here, or one that is malformed.
    bool DumpUnknown(QString const& prefix)
    {
        auto const skipped = zcbor_any_skip(state_);
        sink_(prefix + (skipped ? QStringLiteral("<unknown>") : QStringLiteral("<decode error>")));
        return skipped;
    }

    bool PrintAndSkip(QString const& line)
    {
        sink_(line);
        return zcbor_any_skip(state_);
    }

    std::array<zcbor_level, kDumpSlots> slots_;
    zcbor_decode_state state_;
    LineSink const& sink_;
};

}  // namespace

void dumpCbor(QByteArray const& payload, QString const& label, LineSink const& sink)
{
    sink(QStringLiteral("--- SMP CBOR \"%1\" ---").arg(label));
    Walker(payload, sink).DumpItem({}, 0);
    sink(QStringLiteral("--- end SMP CBOR \"%1\" ---").arg(label));
}

}  // namespace mcuboot
