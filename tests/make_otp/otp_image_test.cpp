// What is written into an OTP area and what the program then finds there; how an area is described.
#include "make_otp/otp_image.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QList>
#include <cstring>
#include <vector>

#include "updater/model_id.h"
#include "updater/session_notes.h"

using namespace Qt::StringLiterals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace make_otp {
namespace {

constexpr char kNoModel[] =
    "There is no model record among the first 32 records, so no update is accepted.";

QByteArray FromHexText(char const* hex)
{
    return QByteArray::fromHex(hex);
}

// The content padded with zeros to a record.
QByteArray MakeRecord(char const* tag, QByteArray const& content)
{
    auto record = FromHexText(tag) + content;
    return record.append(16 - record.size(), '\0');
}

QByteArray MakeModelRecord(char model)
{
    return MakeRecord("11472301", QByteArray(1, model));
}

QByteArray MakeSerialNumberRecord(QByteArray const& text)
{
    return MakeRecord("afa4a63c", text);
}

std::vector<std::byte> InArea(QByteArray const& image)
{
    std::vector<std::byte> area(512, std::byte{0xFF});
    std::memcpy(area.data(), image.constData(), static_cast<size_t>(image.size()));
    return area;
}

std::vector<std::string> ToText(QStringList const& lines)
{
    std::vector<std::string> text;
    for (auto const& line : lines) {
        text.push_back(line.toStdString());
    }
    return text;
}

TEST(Image, IsTheRecordsByteForByte)
{
    EXPECT_EQ(MakeImage(42, {}).toHex(), "11472301 2a00000000000000 00000000"_ba.replace(' ', ""));
    EXPECT_EQ(MakeImage(7, u"LU-00042"_s).toHex(),
              "11472301 0700000000000000 00000000"
              "afa4a63c 4c552d3030303432 00000000"_ba.replace(' ', ""));
}

TEST(Image, HoldsWhatTheProgramReads)
{
    for (int model = 0; model <= 0xFF; ++model) {
        auto const id = static_cast<uint8_t>(model);
        auto const area = InArea(MakeImage(id, u"01234567890"_s));
        EXPECT_TRUE(checkModelIdInOtp(area, {id}));
        EXPECT_EQ(ReadIdentity(area).model, id);
        EXPECT_EQ(ReadIdentity(area).serial_number, u"01234567890"_s);
        EXPECT_THAT(Describe(MakeImage(id, u"01234567890"_s)).faults, IsEmpty());
    }
}

TEST(Model, IsADecimalNumberOfOneByte)
{
    for (auto const& [text, model] :
         {std::pair{u"0"_s, 0}, {u"7"_s, 7}, {u"255"_s, 255}, {u"007"_s, 7}}) {
        EXPECT_EQ(ReadModel(text), model);
    }
    for (auto const& text : {u""_s, u"256"_s, u"-1"_s, u"+1"_s, u"0x10"_s, u" 7"_s, u"7 "_s,
                             u"7a"_s, u"4294967303"_s, u"99999999999999999999"_s}) {
        EXPECT_EQ(ReadModel(text), std::nullopt) << text.toStdString();
    }
}

TEST(SerialNumber, HasOneToElevenPrintableCharacters)
{
    for (auto const& text : {u"1"_s, u"LU 00~42"_s, u"01234567890"_s}) {
        EXPECT_EQ(FindFault(text), QString());
    }
    struct {
        QString text;
        char const* fault;
    } const rows[] = {
        {u""_s, "The serial number is empty."},
        {u"012345678901"_s,
         "The serial number '012345678901' has 12 characters; at most 11 fit into its record."},
        {u"a\tb"_s,
         "The serial number has the character U+0009; use printable ASCII characters only."},
        {u"Ü1"_s,
         "The serial number has the character U+00dc; use printable ASCII characters only."},
        {u"a\u007F"_s,
         "The serial number has the character U+007f; use printable ASCII characters only."},
    };
    for (auto const& [text, fault] : rows) {
        EXPECT_EQ(FindFault(text).toStdString(), fault);
    }
}

TEST(Description, HasALineForEachRecordAndAFaultForWhatTheProgramReadsDifferently)
{
    struct {
        char const* what;
        QByteArray area;
        std::vector<std::string> lines;
        std::vector<std::string> faults;
    } const rows[] = {
        {"both records",
         MakeModelRecord(7) + MakeSerialNumberRecord("A1"),
         {"record 0: model 7", "record 1: serial number 'A1'"},
         {}},
        {"nothing", {}, {}, {kNoModel}},
        {"an area that was never programmed", QByteArray(512, '\xFF'), {}, {kNoModel}},
        {"the last record of the table",
         QByteArray(31 * 16, '\xFF') + MakeModelRecord('\xFF'),
         {"record 31: model 255"},
         {}},
        {"a record behind the table", QByteArray(512, '\xFF') + MakeModelRecord(7), {}, {kNoModel}},
        {"another vendor's record",
         MakeRecord("78563412", "\x01\x02") + MakeModelRecord(7),
         {"record 0: tag 0x12345678, bytes 01 02 00 00 00 00 00 00 00 00 00 00",
          "record 1: model 7"},
         {}},
        {"two models",
         MakeModelRecord(7) + MakeModelRecord(8),
         {"record 0: model 7", "record 1: model 8"},
         {"record 1: An earlier record has the same tag, and only that one counts."}},
        {"a serial number without an end",
         MakeModelRecord(7) + MakeSerialNumberRecord("012345678901"),
         {"record 0: model 7",
          "record 1: serial number, bytes 30 31 32 33 34 35 36 37 38 39 30 31"},
         {"record 1: No zero byte ends the serial number, so it runs on into the next record; use "
          "at most 11 characters."}},
        {"a serial number that could disturb a terminal",
         MakeModelRecord(7) + MakeSerialNumberRecord("\x1B[2J"),
         {"record 0: model 7",
          "record 1: serial number, bytes 1b 5b 32 4a 00 00 00 00 00 00 00 00"},
         {"record 1: The serial number has the character U+001b; use printable ASCII characters "
          "only."}},
        {"a record that is cut off",
         MakeModelRecord(7) + MakeSerialNumberRecord("A1").chopped(1),
         {"record 0: model 7"},
         {"The last 15 bytes are not a whole record of 16 bytes and do not count."}},
    };
    for (auto const& [what, area, lines, faults] : rows) {
        SCOPED_TRACE(what);
        auto const description = Describe(area);
        EXPECT_EQ(ToText(description.lines), lines);
        EXPECT_EQ(ToText(description.faults), faults);
    }
}

}  // namespace
}  // namespace make_otp
