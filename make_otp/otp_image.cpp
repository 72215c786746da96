#include "make_otp/otp_image.h"

#include <algorithm>
#include <span>
#include <vector>

#include "updater/model_id.h"
#include "updater/otp_handler.h"

using namespace Qt::StringLiterals;

namespace make_otp {
namespace {

using Handler = otp::OtpHandler<kOtpRecordSize, kOtpRecords>;

constexpr uint32_t kFreeTag = 0xFFFFFFFF;
constexpr size_t kContentSize = kOtpRecordSize - kModelIdOffset;
static_assert(kLongestSerialNumber == kContentSize - 1);

std::span<std::byte const> AsBytes(QByteArray const& bytes)
{
    return std::as_bytes(std::span(bytes.constData(), static_cast<size_t>(bytes.size())));
}

void AppendRecord(QByteArray& image, uint32_t tag, QByteArray const& content)
{
    Handler handler({}, [&](Handler::Record record, unsigned char /*index*/) {
        image.append(reinterpret_cast<char const*>(record.data()), record.size());
        return otp::kWritten;
    });
    handler.Write(tag, AsBytes(content), 0);
}

bool IsPrintable(char16_t character)
{
    return character >= u' ' && character <= u'~';
}

uint32_t GetTag(QByteArray const& record)
{
    uint32_t tag = 0;
    for (auto i = static_cast<qsizetype>(kModelIdOffset); i > 0; --i) {
        tag = tag << 8 | static_cast<uint8_t>(record[i - 1]);
    }
    return tag;
}

// The text of a serial number's record up to its zero byte; all of it if there is none.
QString GetText(QByteArray const& content)
{
    auto const end = content.indexOf('\0');
    return QString::fromLatin1(end < 0 ? content : content.first(end));
}

// Text that cannot be a serial number is shown as bytes: it may be anything.
QString DescribeContent(uint32_t tag, QByteArray const& content)
{
    if (tag == kModelIdTag) {
        return u"model %1"_s.arg(static_cast<uint8_t>(content[0]));
    }
    auto const text = GetText(content);
    if (tag == kSerialNumberTag && FindFault(text).isEmpty()) {
        return u"serial number '%1'"_s.arg(text);
    }
    auto const name = tag == kSerialNumberTag ? u"serial number"_s
                                              : u"tag 0x%1"_s.arg(tag, 8, 16, QLatin1Char('0'));
    return u"%1, bytes %2"_s.arg(name, QString::fromLatin1(content.toHex(' ')));
}

// What is wrong with a record that the program knows. `is_first`: no record before it has its tag.
QString FindFaultOfRecord(uint32_t tag, QByteArray const& content, bool is_first)
{
    if (tag != kModelIdTag && tag != kSerialNumberTag) {
        return {};
    }
    if (!is_first) {
        return u"An earlier record has the same tag, and only that one counts."_s;
    }
    if (tag == kModelIdTag) {
        return {};
    }
    if (content.indexOf('\0') < 0) {
        return u"No zero byte ends the serial number, so it runs on into the next record; use at "
               "most %1 characters."_s.arg(kLongestSerialNumber);
    }
    return FindFault(GetText(content));
}

}  // namespace

std::optional<uint8_t> ReadModel(QString const& text)
{
    auto const is_digit = [](QChar c) { return c >= u'0' && c <= u'9'; };
    bool is_number = false;
    auto const number = text.toUInt(&is_number);
    if (!is_number || !std::ranges::all_of(text, is_digit) || number > 0xFF) {
        return std::nullopt;
    }
    return static_cast<uint8_t>(number);
}

QString FindFault(QString const& serial_number)
{
    if (serial_number.isEmpty()) {
        return u"The serial number is empty."_s;
    }
    if (serial_number.size() > kLongestSerialNumber) {
        return u"The serial number '%1' has %2 characters; at most %3 fit into its record."_s
            .arg(serial_number)
            .arg(serial_number.size())
            .arg(kLongestSerialNumber);
    }
    auto const is_foreign = [](QChar c) { return !IsPrintable(c.unicode()); };
    if (auto const foreign = std::ranges::find_if(serial_number, is_foreign);
        foreign != serial_number.end()) {
        return u"The serial number has the character U+%1; use printable ASCII characters only."_s
            .arg(uint{foreign->unicode()}, 4, 16, QLatin1Char('0'));
    }
    return {};
}

QByteArray MakeImage(uint8_t model, QString const& serial_number)
{
    QByteArray image;
    AppendRecord(image, kModelIdTag, QByteArray(1, static_cast<char>(model)));
    if (!serial_number.isEmpty()) {
        AppendRecord(image, kSerialNumberTag, serial_number.toLatin1());
    }
    return image;
}

Description Describe(QByteArray const& area)
{
    constexpr auto kRecordSize = static_cast<qsizetype>(kOtpRecordSize);
    constexpr auto kTableSize = kRecordSize * static_cast<qsizetype>(kOtpRecords);
    Description description;
    std::vector<uint32_t> tags;
    auto const end = std::min(area.size() - area.size() % kRecordSize, kTableSize);
    for (qsizetype at = 0; at < end; at += kRecordSize) {
        auto const record = area.sliced(at, kRecordSize);
        auto const tag = GetTag(record);
        if (tag == kFreeTag) {
            continue;
        }
        auto const content = record.sliced(static_cast<qsizetype>(kModelIdOffset));
        auto const name = u"record %1: "_s.arg(at / kRecordSize);
        description.lines.append(name + DescribeContent(tag, content));
        auto const is_first = std::ranges::find(tags, tag) == tags.end();
        if (auto const fault = FindFaultOfRecord(tag, content, is_first); !fault.isEmpty()) {
            description.faults.append(name + fault);
        }
        tags.push_back(tag);
    }
    if (std::ranges::find(tags, kModelIdTag) == tags.end()) {
        description.faults.prepend(
            u"There is no model record among the first %1 records, so no update is accepted."_s.arg(
                kOtpRecords));
    }
    if (auto const rest = area.size() % kRecordSize; rest != 0 && area.size() < kTableSize) {
        description.faults.append(
            u"The last %1 bytes are not a whole record of %2 bytes and do not count."_s.arg(rest)
                .arg(kRecordSize));
    }
    return description;
}

}  // namespace make_otp
