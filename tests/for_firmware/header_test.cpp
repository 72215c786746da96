// The header for device firmware against the product: every constant, and what its functions make
// of the bytes that the product sends and reads.
#include "for_firmware/unit_side.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QRegularExpression>
#include <array>
#include <cstring>
#include <map>
#include <span>
#include <string>

#include "bundle_check/chips.h"
#include "config/startup_config.h"
#include "mcuboot/limits.h"
#include "mcuboot/request_maps.h"
#include "mcuboot/smp_frame.h"
#include "modules/stm32_updater/limits.h"
#include "tests/for_firmware/as_c11.h"
#include "tests/support/files.h"
#include "tests/support/pattern_image.h"
#include "updater/model_id.h"
#include "updater/otp_handler.h"

namespace {

using mcuboot::buildPacket;

constexpr char kMarkers[] = "\x06\x09\x04\x14";
constexpr qsizetype kLengthSize = 2;
constexpr qsizetype kCheckSize = 2;

uint32_t LittleEndian(char const* text)
{
    uint32_t word = 0;
    for (int i = 3; i >= 0; --i) {
        word = word << 8 | static_cast<uint8_t>(text[i]);
    }
    return word;
}

// The product's longest request.
qsizetype GetLongestLine()
{
    std::array<uint8_t, mcuboot::kUploadBuffer> map;
    std::array<uint8_t, mcuboot::kChunkSize> const chunk{};
    auto const size = mcuboot::cborEncodeUploadChunk(map, chunk, 0, 0x7FFFFFFF, true);
    QByteArray const payload(reinterpret_cast<char const*>(map.data()), size);
    return buildPacket(mcuboot::kSmpWrite, mcuboot::kImageGroup, mcuboot::kUploadCommand, payload,
                       0)
        .size();
}

struct Figure {
    constexpr Figure(uint64_t in_header, uint64_t in_product)
        : header(in_header), product(in_product)
    {}
    uint64_t header;
    uint64_t product;
};

#define FIGURE(name, product) std::pair(#name, Figure(name, static_cast<uint64_t>(product)))

// Each constant of the header, and the product's figure that it repeats.
std::map<std::string, Figure> GetFigures()
{
    return {
        FIGURE(UNIT_OTP_RECORDS, kOtpRecords),
        FIGURE(UNIT_OTP_RECORD_SIZE, kOtpRecordSize),
        FIGURE(UNIT_OTP_CONTENT_OFFSET, kModelIdOffset),
        // The end of a text is a zero byte, for which there must be room in the record.
        FIGURE(UNIT_OTP_LONGEST_TEXT, kOtpRecordSize - kModelIdOffset - 1),
        FIGURE(UNIT_OTP_MODEL_TAG, kModelIdTag),
        FIGURE(UNIT_OTP_SERIAL_NUMBER_TAG, kSerialNumberTag),
        FIGURE(UNIT_UART_BAUD, stm32_updater::kBaudRate),
        FIGURE(UNIT_UART_ERASE_MS, stm32_updater::kExtendedEraseTimeout.count()),
        FIGURE(UNIT_BOOTLOADER_RAM_SIZE, bundle_check::kBootloaderRamSize),
        FIGURE(UNIT_BOOT_MODE_MARKER, LittleEndian("PUWF")),
        FIGURE(UNIT_TRAILER_SIZE, stm32_updater::kTrailerSize),
        FIGURE(UNIT_LAST_WORD, stm32_updater::kMcuId),
        FIGURE(UNIT_SMP_BAUD, kDefaultMcubootBaud),
        FIGURE(UNIT_SMP_START_0, kMarkers[0]),
        FIGURE(UNIT_SMP_START_1, kMarkers[1]),
        FIGURE(UNIT_SMP_CONTINUATION_0, kMarkers[2]),
        FIGURE(UNIT_SMP_CONTINUATION_1, kMarkers[3]),
        FIGURE(UNIT_SMP_HEADER_SIZE, 8),  // RequestCheck below fails with any other
        FIGURE(UNIT_SMP_LONGEST_LINE, GetLongestLine()),
        FIGURE(UNIT_SMP_LARGEST_CHUNK, mcuboot::kChunkSize),
        FIGURE(UNIT_SMP_READ, mcuboot::kSmpRead),
        FIGURE(UNIT_SMP_WRITE, mcuboot::kSmpWrite),
        FIGURE(UNIT_SMP_OS_GROUP, mcuboot::kOsGroup),
        FIGURE(UNIT_SMP_RESET, mcuboot::kResetCommand),
        FIGURE(UNIT_SMP_IMAGE_GROUP, mcuboot::kImageGroup),
        FIGURE(UNIT_SMP_IMAGE_STATE, mcuboot::kImageStateCommand),
        FIGURE(UNIT_SMP_UPLOAD, mcuboot::kUploadCommand),
        FIGURE(UNIT_SMP_OTP_GROUP, mcuboot::kOtpGroup),
        FIGURE(UNIT_SMP_OTP_READ, mcuboot::kOtpReadCommand),
        FIGURE(UNIT_SMP_KEY_NOT_FOUND, mcuboot::kOtpKeyNotFound),
        FIGURE(UNIT_SMP_QUERY_MS, mcuboot::kQueryTimeout.count()),
        FIGURE(UNIT_SMP_FIRST_CHUNK_MS, mcuboot::kFirstChunkTimeout.count()),
        FIGURE(UNIT_SMP_CHUNK_MS, mcuboot::kChunkTimeout.count()),
        FIGURE(UNIT_SMP_NEXT_LINE_MS, mcuboot::kPass.count()),
        FIGURE(UNIT_SMP_STALLS, mcuboot::kMaxStalls),
    };
}

uint8_t const* Data(QByteArray const& bytes)
{
    return reinterpret_cast<uint8_t const*>(bytes.constData());
}

uint16_t CheckValueOf(QByteArray const& body)
{
    auto const* const end = Data(body) + body.size();
    return static_cast<uint16_t>(end[-2] << 8 | end[-1]);
}

// A line as a unit sends it: `packet` is header and map.
QByteArray MakeAnswer(QByteArray const& packet, uint16_t check)
{
    auto const length = static_cast<unsigned>(packet.size() + kCheckSize);
    QByteArray body;
    for (auto const byte : {length >> 8, length & 0xFF}) {
        body.append(static_cast<char>(byte));
    }
    body.append(packet);
    for (auto const byte : {check >> 8, check & 0xFF}) {
        body.append(static_cast<char>(byte));
    }
    return QByteArray(kMarkers, 2) + body.toBase64() + '\n';
}

}  // namespace

TEST(FirmwareHeader, HasTheProductsFigures)
{
    for (auto const& [name, figure] : GetFigures()) {
        EXPECT_EQ(figure.header, figure.product) << name;
    }
}

TEST(FirmwareHeader, HasNoConstantThatIsNotCompared)
{
    static QRegularExpression const pattern(QStringLiteral("^#define (UNIT_\\w+) "),
                                            QRegularExpression::MultilineOption);
    auto const text = QString::fromUtf8(ReadFile(QStringLiteral(FW_FIRMWARE_HEADER)));
    size_t defined = 0;
    for (auto const& match : pattern.globalMatch(text)) {
        ++defined;
        EXPECT_TRUE(GetFigures().contains(match.captured(1).toStdString()))
            << match.captured(1).toStdString();
    }
    EXPECT_EQ(defined, GetFigures().size());
}

TEST(RequestCheck, IsThatOfTheProductsRequests)
{
    for (qsizetype const size : {1, 2, 7, 100, 1514}) {
        auto const map = PatternImage<QByteArray>(static_cast<size_t>(size));
        auto const line = buildPacket(2, 1, 1, map, 200);
        EXPECT_EQ(line.first(2), QByteArray(kMarkers, 2));
        auto const body = QByteArray::fromBase64(line.mid(2).chopped(1));
        auto const packet = body.sliced(kLengthSize).chopped(kCheckSize);
        EXPECT_EQ(packet.size(), UNIT_SMP_HEADER_SIZE + size);
        auto const count = static_cast<size_t>(packet.size());
        EXPECT_EQ(unit_request_check(Data(packet), count), CheckValueOf(body)) << size;
        EXPECT_EQ(c11_request_check(Data(packet), count), CheckValueOf(body)) << size;
    }
}

TEST(AnswerCheck, IsThatWhichTheProductAcceptsAndNoOther)
{
    for (size_t const size : {1U, 2U, 7U, 100U, 255U}) {
        auto const map = PatternImage<QByteArray>(size);
        QByteArray packet("\x01\x00\x00\x00\x00\x40\x00\x00", 8);
        packet[3] = static_cast<char>(size);
        packet.append(map);
        auto const count = static_cast<size_t>(packet.size());
        auto const check = unit_answer_check(Data(packet), count);

        EXPECT_EQ(mcuboot::parseResponse(MakeAnswer(packet, check)), map) << size;
        EXPECT_EQ(c11_answer_check(Data(packet), count), check) << size;
        auto const wrong = unit_request_check(Data(packet), count);
        EXPECT_EQ(mcuboot::ReadFrame(MakeAnswer(packet, wrong)).error,
                  mcuboot::FrameError::kCheckValue)
            << size;
    }
}

TEST(OtpRecord, IsTheOneThatTheProductFinds)
{
    using Handler = otp::OtpHandler<kOtpRecordSize, kOtpRecords>;
    // The first record with the tag, the last of the table, and one behind it.
    for (size_t const index : {0U, 5U, 31U, 32U}) {
        std::vector<std::byte> area(1024, std::byte{0xFF});
        auto const record = std::span(area).subspan(index * 16, 16);
        std::ranges::copy(std::as_bytes(std::span("\x11\x47\x23\x01\x2A")), record.begin());
        auto const* const bytes = reinterpret_cast<uint8_t const*>(area.data());
        // Whole, and cut in the middle of the record.
        for (size_t const size : {area.size(), index * 16 + 15}) {
            auto const expected = Handler(std::span(area).first(size), {}).FindRecord(kModelIdTag);
            auto const* const found = unit_find_otp_record(bytes, size, UNIT_OTP_MODEL_TAG);
            ASSERT_EQ(found != nullptr, expected.has_value()) << index << ' ' << size;
            EXPECT_EQ(c11_find_otp_record(bytes, size, UNIT_OTP_MODEL_TAG), found);
            if (found != nullptr) {
                EXPECT_EQ(found, bytes + index * 16 + 4);
                EXPECT_EQ(*found, 0x2A);
            }
        }
        EXPECT_EQ(unit_find_otp_record(bytes, area.size(), UNIT_OTP_SERIAL_NUMBER_TAG), nullptr);
    }
}

TEST(CompleteImage, EndsWithTheNumberOfTheMicrocontrollerAndThreeZeros)
{
    struct {
        std::array<uint8_t, 4> end;
        bool complete;
    } const rows[] = {
        {{0x01, 0x00, 0x00, 0x00}, true},  {{0xFF, 0xFF, 0xFF, 0xFF}, false},
        {{0x00, 0x00, 0x00, 0x00}, false}, {{0x02, 0x00, 0x00, 0x00}, false},
        {{0x01, 0x01, 0x00, 0x00}, false}, {{0x01, 0x00, 0x01, 0x00}, false},
        {{0x01, 0x00, 0x00, 0x01}, false},
    };
    for (auto const& [end, complete] : rows) {
        EXPECT_EQ(unit_image_is_complete(end.data()), complete) << end[0];
        EXPECT_EQ(c11_image_is_complete(end.data()), complete) << end[0];
    }
}
