#include "mcuboot/smp_frame.h"

#include <gtest/gtest.h>

#include <QCryptographicHash>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <string>

#include "mcuboot/request_maps.h"
#include "tests/mcuboot/unit_side.h"

namespace mcuboot {
namespace {

using test::FromHex;
using test::MakeAnswer;
using test::MakeAnswerBody;
using test::ToLine;
using test::ToLines;

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

// {"rc": 0}
QByteArray const kSuccess = FromHex("a162726300");

// ---- Check value ----

TEST(Crc16Ccitt, OfNoBytesIsItsStart)
{
    EXPECT_EQ(crc16Ccitt(nullptr, 0, 0x1234), 0x1234);
    EXPECT_EQ(crc16Ccitt(nullptr, 0, 0xFFFF), 0xFFFF);
}

TEST(Crc16Ccitt, OfTheCheckStringIsThePublishedValue)
{
    EXPECT_EQ(GetCrc("123456789", 0xFFFF), 0x29B1);
    EXPECT_EQ(GetCrc("123456789", 0x0000), 0x31C3);
}

TEST(Crc16Ccitt, GoesOnFromTheResultSoFar)
{
    EXPECT_EQ(GetCrc("6789", GetCrc("12345", 0xFFFF)), 0x29B1);
}

TEST(Crc16Ccitt, AgreesWithEveryVector)
{
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

TEST(BuildPacket, FramesAnEmptyPayloadAsTwelveBytesInSixteenCharacters)
{
    EXPECT_EQ(buildPacket(kSmpRead, 0, 0, {}, 0).size(), 2 + 16 + 1);
    EXPECT_EQ(QByteArray::fromBase64(buildPacket(kSmpRead, 0, 0, {}, 0).mid(2)).left(10),
              FromHex("000a 0000000000000000"));
}

TEST(BuildPacket, WritesHeaderPayloadAndCheckValueAsOneLine)
{
    EXPECT_EQ(buildPacket(kSmpRead, 1, 0, FromHex("bfff"), 0),
              "\x06\x09"
              "AAwAAAACAAEAAL//xLc=\n");
    EXPECT_EQ(buildPacket(kSmpWrite, 1, 5, FromHex("bfff"), 255),
              "\x06\x09"
              "AAwCAAACAAH/Bb//um4=\n");
}

TEST(BuildPacket, WritesAllFieldsMostSignificantByteFirst)
{
    auto const request =
        test::ReadRequest(buildPacket(2, 0x1234, 0x56, QByteArray(300, 'x'), 0x78));
    ASSERT_TRUE(request);
    EXPECT_EQ(request->operation, 2);
    EXPECT_EQ(request->group, 0x1234);
    EXPECT_EQ(request->id, 0x56);
    EXPECT_EQ(request->sequence, 0x78);
    EXPECT_EQ(request->payload, QByteArray(300, 'x'));
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
    for (int i = 0; i < 1483; ++i) {
        chunk.append(static_cast<char>((7 * i + 3) % 256));
    }
    std::array<uint8_t, 2048> buffer;
    auto const size = cborEncodeUploadChunk(
        buffer, {reinterpret_cast<uint8_t const*>(chunk.constData()), 1483}, 0, 3000, true);
    ASSERT_EQ(size, 1512);
    auto const payload = QByteArray(reinterpret_cast<char const*>(buffer.data()), size);
    EXPECT_EQ(QCryptographicHash::hash(payload, QCryptographicHash::Sha256).toHex(),
              "6f4a800cae149edd7ceff8944150ac74882002bbcdee337778c1a7d33df679df");

    auto const line = buildPacket(kSmpWrite, 1, 1, payload, 0);

    EXPECT_EQ(line.size(), 2035);
    EXPECT_EQ(line.indexOf('\n'), 2034);
    EXPECT_FALSE(line.contains("\x04\x14"));
    EXPECT_EQ(QCryptographicHash::hash(line, QCryptographicHash::Sha256).toHex(),
              "181df8f77c3c596249dce31153f2fe7d3c57006440e8dd63828b908405894144");
}

// ---- Answers ----

TEST(ParseResponse, AgreesWithEveryAcceptedVector)
{
    auto const vectors = ReadVectors("receive_accepted");
    ASSERT_EQ(vectors.size(), 6);
    for (auto const& value : vectors) {
        auto const vector = value.toObject();
        EXPECT_EQ(parseResponse(GetHex(vector, "raw")), GetHex(vector, "result"))
            << GetName(vector);
    }
}

TEST(ParseResponse, AgreesWithEveryRejectedVector)
{
    auto const vectors = ReadVectors("receive_rejected");
    ASSERT_EQ(vectors.size(), 5);
    for (auto const& value : vectors) {
        auto const vector = value.toObject();
        EXPECT_EQ(parseResponse(GetHex(vector, "raw")), QByteArray()) << GetName(vector);
    }
}

TEST(ParseResponse, AcceptsPayloadsOfEveryLengthUpToTheFirstHundreds)
{
    for (int size = 1; size < 300; ++size) {
        auto const payload = QByteArray(size, static_cast<char>(size));
        EXPECT_EQ(parseResponse(MakeAnswer(payload)), payload) << size;
    }
}

TEST(ParseResponse, AcceptsTheLongestPayload)
{
    auto const payload = QByteArray(65525, 'x');
    EXPECT_EQ(parseResponse(MakeAnswer(payload)), payload);
}

TEST(ParseResponse, OfAnAnswerWithoutPayloadIsEmptyWhateverItsCheckValue)
{
    EXPECT_TRUE(parseResponse(MakeAnswer({})).isEmpty());
    EXPECT_TRUE(parseResponse(ToLine(FromHex("000a 0100000000010000 0000"))).isEmpty());
}

TEST(ParseResponse, RefusesARequestThatAUnitEchoes)
{
    EXPECT_TRUE(parseResponse(buildPacket(kSmpRead, 1, 0, FromHex("bfff"), 0)).isEmpty());
}

TEST(ParseResponse, JoinsAnAnswerSplitAtEveryPossiblePlace)
{
    auto const body = MakeAnswerBody(kSuccess);
    for (qsizetype size = 1; size <= 20; ++size) {
        EXPECT_EQ(parseResponse(ToLines(body, size)), kSuccess) << size;
    }
}

TEST(ParseResponse, RefusesAnAnswerCutAtEveryPlace)
{
    auto const line = MakeAnswer(kSuccess);
    // Without the newline alone the answer is still whole.
    EXPECT_EQ(parseResponse(line.chopped(1)), kSuccess);
    for (qsizetype size = 0; size < line.size() - 2; ++size) {
        // Of the padding, nothing is needed.
        EXPECT_TRUE(parseResponse(line.first(size)).isEmpty()) << size;
    }
}

TEST(ParseResponse, RefusesAnAnswerWithAnySingleByteOfTheBodyChanged)
{
    auto const body = MakeAnswerBody(kSuccess);
    for (qsizetype i = 0; i < body.size(); ++i) {
        for (int change = 1; change < 256; ++change) {
            auto changed = body;
            changed[i] = static_cast<char>(changed[i] ^ change);
            EXPECT_TRUE(parseResponse(ToLine(changed)).isEmpty()) << i << " ^ " << change;
        }
    }
}

TEST(ParseResponse, RefusesAnAnswerWithAnySingleByteOnTheWireReplacedByNoise)
{
    auto const line = MakeAnswer(kSuccess);
    for (qsizetype i = 0; i < line.size() - 1; ++i) {
        for (auto const noise : {'\0', '\r', '!', '\n', '\xFF', '='}) {
            auto changed = line;
            if (changed[i] == noise) {
                continue;
            }
            changed[i] = noise;
            auto const result = parseResponse(changed);
            // A newline for the padding's "=" takes nothing away.
            auto const padding = noise == '\n' && i == line.size() - 2;
            EXPECT_EQ(result.isEmpty(), !padding) << i << " = " << int{noise};
        }
    }
}

TEST(ParseResponse, PassesOverForeignLinesBeforeBetweenAndAfter)
{
    auto const lines = ToLines(MakeAnswerBody(kSuccess), 12).split('\n');
    ASSERT_EQ(lines.size(), 3);
    EXPECT_EQ(parseResponse("boot: hello\r\n\n\x06\n" + lines[0] +
                            "\nnoise\n\x05\x09"
                            "AAAA\n" +
                            lines[1] + "\nmore noise"),
              kSuccess);
}

TEST(ParseResponse, RefusesAStartMarkerThatIsNotAtTheStartOfItsLine)
{
    EXPECT_TRUE(parseResponse("x" + MakeAnswer(kSuccess)).isEmpty());
}

TEST(ParseResponse, ConcatenatesSeveralStartLines)
{
    EXPECT_EQ(parseResponse("\x06\x09"
                            "AA8BAAAFAAEA\n"
                            "\x06\x09"
                            "AKFicmMAyZ8=\n"),
              kSuccess);
}

TEST(ParseResponse, AcceptsContinuationLinesWithoutAStartLine)
{
    EXPECT_EQ(parseResponse("\x04\x14"
                            "AA8BAAAFAAEAAKFicmMAyZ8=\n"),
              kSuccess);
}

TEST(ParseResponse, OfNothingIsNothing)
{
    EXPECT_TRUE(parseResponse({}).isEmpty());
    EXPECT_TRUE(parseResponse("\n\n\n").isEmpty());
    EXPECT_TRUE(parseResponse("\x06\x09").isEmpty());
    EXPECT_TRUE(parseResponse("\x06\x09\n\x04\x14\n").isEmpty());
}

TEST(ParseResponse, RefusesABodyOfElevenBytesAndOneWithALengthBelowTen)
{
    EXPECT_TRUE(parseResponse(ToLine(FromHex("000a 0100000000010000 be"))).isEmpty());
    // Nine: the check value would begin inside the header.
    for (int length = 0; length < 10; ++length) {
        auto body = MakeAnswerBody(kSuccess);
        body[1] = static_cast<char>(length);
        EXPECT_TRUE(parseResponse(ToLine(body)).isEmpty()) << length;
    }
}

TEST(ParseResponse, RefusesALengthBeyondTheBody)
{
    auto body = MakeAnswerBody(kSuccess);
    for (auto const length : {16, 17, 255}) {
        body[1] = static_cast<char>(length);
        EXPECT_TRUE(parseResponse(ToLine(body)).isEmpty()) << length;
    }
    body[0] = '\xFF';
    EXPECT_TRUE(parseResponse(ToLine(body)).isEmpty());
}

TEST(ParseResponse, IgnoresBytesBehindTheCheckValue)
{
    EXPECT_EQ(parseResponse(ToLine(MakeAnswerBody(kSuccess) + "more")), kSuccess);
}

TEST(ParseResponse, RefusesAHeaderLengthBeyondTheBodyEvenWithAMatchingCheckValue)
{
    EXPECT_TRUE(parseResponse(ToLine(MakeAnswerBody(kSuccess, 8))).isEmpty());
    EXPECT_TRUE(parseResponse(ToLine(MakeAnswerBody(kSuccess, 65535))).isEmpty());
}

TEST(ParseResponse, LetsTheHeaderLengthReachOverTheCheckValue)
{
    EXPECT_EQ(parseResponse(ToLine(MakeAnswerBody(kSuccess, 7))), kSuccess + FromHex("1715"));
}

TEST(ParseResponse, ReturnsNoMoreThanTheHeaderLength)
{
    EXPECT_EQ(parseResponse(ToLine(MakeAnswerBody(kSuccess, 3))), kSuccess.first(3));
    EXPECT_TRUE(parseResponse(ToLine(MakeAnswerBody(kSuccess, 0))).isEmpty());
}

}  // namespace
}  // namespace mcuboot
