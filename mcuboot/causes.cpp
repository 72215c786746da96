#include "mcuboot/causes.h"

namespace mcuboot {
namespace {

QString DescribeFrameError(FrameError error)
{
    switch (error) {
        case FrameError::kNoLine:
            return QStringLiteral("no line of it is a frame");
        case FrameError::kBase64:
            return QStringLiteral("its text is not base64");
        case FrameError::kLength:
            return QStringLiteral("a length in it is wrong");
        case FrameError::kCheckValue:
            return QStringLiteral("its check value is wrong");
        case FrameError::kNoPayload:
            return QStringLiteral("it has no payload");
        case FrameError::kNone:
            break;
    }
    return {};
}

// As it came, without what a log cannot show.
QString Quote(QByteArray const& raw)
{
    constexpr qsizetype kShown = 48;
    QString text;
    for (auto const value : raw.first(std::min(raw.size(), kShown))) {
        auto const code = static_cast<unsigned char>(value);
        text += code >= 0x20 && code < 0x7F
                    ? QString(QLatin1Char(value))
                    : QStringLiteral("\\x%1").arg(uint{code}, 2, 16, QLatin1Char('0'));
    }
    return QLatin1Char('"') + text +
           (raw.size() > kShown ? QLatin1String("\"...") : QLatin1String("\""));
}

}  // namespace

QString DescribeCause(Answer const& answer)
{
    auto const time = QStringLiteral(" %1 ms").arg(answer.time.count());
    switch (answer.outcome) {
        case Outcome::kNotEncoded:
            return QStringLiteral("the request is too long");
        case Outcome::kNoAnswer:
            return QStringLiteral("no answer within") + time;
        case Outcome::kUnusable:
            return QStringLiteral("%1 %2 after%3, not a good answer: %4: %5")
                .arg(answer.raw.size())
                .arg(answer.raw.size() == 1 ? QLatin1String("byte") : QLatin1String("bytes"), time,
                     DescribeFrameError(answer.frame_error), Quote(answer.raw));
        case Outcome::kErrorCode:
            return QStringLiteral("error code %1 after").arg(answer.error_code) + time;
        case Outcome::kNoData:
            return QStringLiteral("an answer without a value after") + time;
        case Outcome::kSuccess:
        case Outcome::kNegativeOffset:
        case Outcome::kStalled:
            break;
    }
    return {};
}

}  // namespace mcuboot
