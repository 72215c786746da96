#include "mcuboot/smp_frame.h"

#include <gtest/gtest.h>

#include <QCryptographicHash>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <string>

#include "mcuboot/limits.h"
#include "mcuboot/request_maps.h"
#include "tests/mcuboot/scripted_line.h"

namespace mcuboot {
namespace {

using simulator::MakeSmpLines;
using test::AnswerWith;
using test::FromHex;
using test::Line;

QJsonArray ReadVectors(char const* table)
{
    QFile file(QStringLiteral(SMP_VECTORS));
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    auto const root = QJsonDocument::fromJson(file.readAll()).object();
    return root[QLatin1String("smp")].toObject()[QLatin1String(table)].toArray();
}

QByteArray GetHex(QJsonObject const& vector, char const* key)
{
    return QByteArray::fromHex(vector[QLatin1String(key)].toString().toLatin1());
}

std::string GetName(QJsonObject const& vector)
{
    return vector[QLatin1String("name")].toString().toStdString();
}

uint16_t GetCrc(QByteArray const& bytes, uint16_t init)
{
    return crc16Ccitt(reinterpret_cast<uint8_t const*>(bytes.constData()),
                      static_cast<size_t>(bytes.size()), init);
}

// {"rc": 0}, and the block of a unit's answer with it.
QByteArray const kSuccess = FromHex("a162726300");
QByteArray const kBlock = FromHex("000f 0100000500010000 a162726300 c99f");

// The block when its header claims another length; the check value is right.
QByteArray Claiming(unsigned size)
{
    return MakeSmpLines(simulator::MakeSmpAnswer({1, 1, 0, 0, kSuccess}, size));
}

// ---- Check value ----

TEST(Crc16Ccitt, AgreesWithThePublishedValuesAndEveryVector)
{
    EXPECT_EQ(GetCrc("123456789", 0xFFFF), 0x29B1);
    EXPECT_EQ(GetCrc("123456789", 0x0000), 0x31C3);
    EXPECT_EQ(GetCrc("6789", GetCrc("12345", 0xFFFF)), 0x29B1) << "goes on from the result so far";
    EXPECT_EQ(crc16Ccitt(nullptr, 0, 0x1234), 0x1234) << "no bytes";
    EXPECT_EQ(crc16Ccitt(nullptr, 0, 0xFFFF), 0xFFFF);
    auto const vectors = ReadVectors("crc16Ccitt");
    ASSERT_EQ(vectors.size(), 3);
    for (auto const& value : vectors) {
        auto const vector = value.toObject();
        auto const init = vector[QLatin1String("init")].toString().toUShort(nullptr, 16);
        auto const result = vector[QLatin1String("result")].toString().toUShort(nullptr, 16);
        EXPECT_EQ(GetCrc(GetHex(vector, "data"), init), result);
    }
}

// ---- Requests ----

TEST(BuildPacket, WritesHeaderPayloadAndCheckValueAsOneLine)
{
    auto const empty = buildPacket(kSmpRead, 0, 0, {}, 0);
    EXPECT_EQ(empty.size(), 2 + 16 + 1);
    EXPECT_EQ(QByteArray::fromBase64(empty.mid(2)).size(), 12);
    EXPECT_TRUE(QByteArray::fromBase64(empty.mid(2)).startsWith(FromHex("000a 0000000000000000")));
    EXPECT_EQ(buildPacket(kSmpRead, 1, 0, FromHex("bfff"), 0), Line("AAwAAAACAAEAAL//xLc="));
    // Every field has its most significant byte first.
    auto const line = buildPacket(2, 0x1234, 0x56, QByteArray(300, 'x'), 0x78);
    EXPECT_EQ(simulator::ReadSmpLines(line).first(10), FromHex("0136 0200 012c 1234 7856"));
    auto const request = simulator::ReadSmpRequest(line.chopped(1));
    ASSERT_TRUE(request.message) << request.problem;
    EXPECT_EQ(request.message->payload, QByteArray(300, 'x'));
}

TEST(BuildPacket, AgreesWithEveryWholeVector)
{
    int whole = 0;
    for (auto const& value : ReadVectors("send")) {
        auto const vector = value.toObject();
        if (!vector.contains(QLatin1String("line"))) {
            continue;
        }
        ++whole;
        auto const number = [&vector](char const* key) {
            return vector[QLatin1String(key)].toInt();
        };
        EXPECT_EQ(
            buildPacket(static_cast<uint8_t>(number("op")), static_cast<uint16_t>(number("group")),
                        static_cast<uint8_t>(number("id")), GetHex(vector, "payload"),
                        static_cast<uint8_t>(number("seq"))),
            GetHex(vector, "line"))
            << GetName(vector);
    }
    EXPECT_EQ(whole, 5);
}

TEST(BuildPacket, SendsAWholeChunkInOneLine)
{
    QByteArray chunk;
    for (int i = 0; i < kChunkSize; ++i) {
        chunk.append(static_cast<char>((7 * i + 3) % 256));
    }
    std::array<uint8_t, kUploadBuffer> buffer;
    auto const size = cborEncodeUploadChunk(
        buffer, {reinterpret_cast<uint8_t const*>(chunk.constData()), 1483}, 0, 3000, true);
    ASSERT_EQ(size, 1512);
    auto const payload = QByteArray(reinterpret_cast<char const*>(buffer.data()), size);
    auto const line = buildPacket(kSmpWrite, 1, 1, payload, 0);

    EXPECT_EQ(line.size(), 2035);
    EXPECT_EQ(line.indexOf('\n'), 2034);
    EXPECT_FALSE(line.contains("\x04\x14"));
    EXPECT_EQ(QCryptographicHash::hash(line, QCryptographicHash::Sha256).toHex(),
              "181df8f77c3c596249dce31153f2fe7d3c57006440e8dd63828b908405894144");
}

// ---- Answers ----

TEST(ReadFrame, AgreesWithEveryVector)
{
    auto const accepted = ReadVectors("receive_accepted");
    ASSERT_EQ(accepted.size(), 6);
    for (auto const& value : accepted) {
        auto const vector = value.toObject();
        EXPECT_EQ(parseResponse(GetHex(vector, "raw")), GetHex(vector, "result"))
            << GetName(vector);
    }
    auto const rejected = ReadVectors("receive_rejected");
    ASSERT_EQ(rejected.size(), 5);
    for (auto const& value : rejected) {
        auto const raw = GetHex(value.toObject(), "raw");
        EXPECT_NE(ReadFrame(raw).error, FrameError::kNone) << GetName(value.toObject());
    }
}

TEST(ReadFrame, AcceptsPayloadsOfEveryLengthUpToTheFirstHundredsAndTheLongest)
{
    for (int size = 1; size < 300; ++size) {
        auto const payload = QByteArray(size, static_cast<char>(size));
        EXPECT_EQ(parseResponse(AnswerWith(payload)), payload) << size;
    }
    EXPECT_EQ(parseResponse(AnswerWith(QByteArray(65525, 'x'))), QByteArray(65525, 'x'));
}

TEST(ReadFrame, TakesTheLinesThatItKnowsAndPassesOverAllOthers)
{
    auto const lines = MakeSmpLines(kBlock, 12).split('\n');
    ASSERT_EQ(lines.size(), 3);
    for (auto const& raw : std::vector<QByteArray>{
             Line("AA8BAAAFAAEAAKFicmMAyZ8="),
             // Two start lines; a continuation without a start.
             "\x06\x09"
             "AA8BAAAFAAEA\n\x06\x09"
             "AKFicmMAyZ8=\n",
             "\x04\x14"
             "AA8BAAAFAAEAAKFicmMAyZ8=\n",
             // Without the newline, and without the padding.
             MakeSmpLines(kBlock).chopped(1), MakeSmpLines(kBlock).chopped(2),
             // Foreign lines before, between and after; bytes behind the check value.
             "boot: hello\r\n\n\x06\n" + lines[0] +
                 "\nnoise\n\x05\x09"
                 "AAAA\n" +
                 lines[1] + "\nmore noise",
             MakeSmpLines(kBlock + "more")}) {
        EXPECT_EQ(parseResponse(raw), kSuccess) << raw.toStdString();
    }
    for (qsizetype size = 1; size <= 20; ++size) {
        EXPECT_EQ(parseResponse(MakeSmpLines(kBlock, size)), kSuccess) << size;
    }
}

TEST(ReadFrame, NamesWhyAnAnswerCannotBeUsed)
{
    auto const with_length = [](int length) {
        auto block = kBlock;
        block[1] = static_cast<char>(length);
        return MakeSmpLines(block);
    };
    auto const expect = [](FrameError error, std::vector<QByteArray> const& answers) {
        for (auto const& raw : answers) {
            auto const frame = ReadFrame(raw);
            EXPECT_EQ(frame.error, error) << raw.toStdString();
            EXPECT_EQ(frame.payload + parseResponse(raw), QByteArray()) << raw.toStdString();
        }
    };
    expect(FrameError::kNoLine,
           {{}, "\n\n\n", "\x06\x09", "\x06\x09\n\x04\x14\n", "x" + MakeSmpLines(kBlock)});
    expect(FrameError::kBase64, {"\x06\x09"
                                 "AA8B!AAFAAEA\n"});
    // A body of 11 bytes; lengths below 10 and beyond the body; header lengths beyond the body.
    expect(FrameError::kLength,
           {MakeSmpLines(FromHex("000a 0100000000010000 be")), with_length(0), with_length(9),
            with_length(16), with_length(255), Claiming(8), Claiming(65535)});
    // An echoed request, and an answer without payload whose check value is wrong.
    expect(FrameError::kCheckValue, {buildPacket(kSmpRead, 1, 0, FromHex("bfff"), 0),
                                     MakeSmpLines(FromHex("000a 0100000000010000 0000"))});
    expect(FrameError::kNoPayload, {AnswerWith(QByteArray()), Claiming(0)});
}

TEST(ReadFrame, ReturnsWhatTheHeaderClaimsOfWhatIsThere)
{
    EXPECT_EQ(parseResponse(Claiming(3)), kSuccess.first(3));
    EXPECT_EQ(parseResponse(Claiming(7)), kSuccess + FromHex("1715")) << "the check value too";
}

TEST(ReadFrame, RefusesAnAnswerCutAtEveryPlaceOrWithAnySingleByteOfItsBodyChanged)
{
    auto const line = MakeSmpLines(kBlock);
    for (qsizetype size = 0; size < line.size() - 2; ++size) {
        EXPECT_TRUE(parseResponse(line.first(size)).isEmpty()) << size;
    }
    for (qsizetype i = 0; i < kBlock.size(); ++i) {
        for (int change = 1; change < 256; ++change) {
            auto changed = kBlock;
            changed[i] = static_cast<char>(changed[i] ^ change);
            EXPECT_TRUE(parseResponse(MakeSmpLines(changed)).isEmpty()) << i << " ^ " << change;
        }
    }
}

TEST(ReadFrame, RefusesAnAnswerWithAnySingleByteOnTheWireReplacedByNoise)
{
    auto const line = MakeSmpLines(kBlock);
    for (qsizetype i = 0; i < line.size() - 1; ++i) {
        for (auto const noise : {'\0', '\r', '!', '\n', '\xFF', '='}) {
            auto changed = line;
            if (changed[i] == noise) {
                continue;
            }
            changed[i] = noise;
            // A newline for the padding's "=" takes nothing away.
            auto const padding = noise == '\n' && i == line.size() - 2;
            EXPECT_EQ(parseResponse(changed).isEmpty(), !padding) << i << " = " << int{noise};
        }
    }
}

}  // namespace
}  // namespace mcuboot
