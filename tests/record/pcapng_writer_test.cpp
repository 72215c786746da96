// The blocks of a record, byte by byte as the format's description has them.
#include "record/pcapng_writer.h"

#include <gtest/gtest.h>

#include <bit>

using namespace record;

static_assert(std::endian::native == std::endian::little, "the bytes below are in that order");

TEST(PcapngWriter, ASectionHeaderNamesProcessorSystemAndProgram)
{
    QByteArray file("before");

    AppendSection(
        file, {QStringLiteral("arm64"), QStringLiteral("macOS"), QStringLiteral("Updater 1.0.0")});

    EXPECT_EQ(file.toHex(' '), QByteArray("before").toHex(' ') +
                                   " 0a 0d 0d 0a 4c 00 00 00"  // type and length
                                   " 4d 3c 2b 1a 01 00 00 00"  // byte order, version 1.0
                                   " ff ff ff ff ff ff ff ff"  // length of the section: unknown
                                   " 02 00 05 00 61 72 6d 36 34 00 00 00"
                                   " 03 00 05 00 6d 61 63 4f 53 00 00 00"
                                   " 04 00 0d 00 55 70 64 61 74 65 72 20 31 2e 30 2e 30 00 00 00"
                                   " 00 00 00 00 4c 00 00 00");
}

TEST(PcapngWriter, ASectionHeaderLeavesOutEmptyTexts)
{
    QByteArray file;

    AppendSection(file, {});

    EXPECT_EQ(file.toHex(' '),
              "0a 0d 0d 0a 20 00 00 00 4d 3c 2b 1a 01 00 00 00 ff ff ff ff ff ff ff ff"
              " 00 00 00 00 20 00 00 00");
}

TEST(PcapngWriter, AnInterfaceHasNameDescriptionAndNanoseconds)
{
    QByteArray file;

    AppendInterface(file, {QStringLiteral("ttyUSB0"), QStringLiteral("UART")});

    EXPECT_EQ(file.toHex(' '),
              "01 00 00 00 34 00 00 00"
              " 93 00 00 00 00 00 00 00"  // link type USER0, no limit to a packet
              " 02 00 07 00 74 74 79 55 53 42 30 00"
              " 03 00 04 00 55 41 52 54"
              " 09 00 01 00 09 00 00 00"  // 10^-9 s
              " 00 00 00 00 34 00 00 00");
}

TEST(PcapngWriter, APacketHasInterfaceTimeBytesAndDirection)
{
    QByteArray file;

    AppendPacket(file, {3, 0x1122334455667788, Direction::kOut},
                 QByteArray("\x7F\x01\x02\x03\x04"));

    EXPECT_EQ(file.toHex(' '),
              "06 00 00 00 34 00 00 00"
              " 03 00 00 00 44 33 22 11 88 77 66 55"  // the higher half of the time first
              " 05 00 00 00 05 00 00 00 7f 01 02 03 04 00 00 00"
              " 02 00 04 00 02 00 00 00"  // epb_flags
              " 00 00 00 00 34 00 00 00");
    EXPECT_EQ(file.size(), GetPacketSize(5));
}

TEST(PcapngWriter, AnEventIsAPacketWithoutBytesButWithAComment)
{
    QByteArray file;

    AppendPacket(file, {0, 1, Direction::kUnknown}, {}, "event");

    EXPECT_EQ(file.toHex(' '),
              "06 00 00 00 38 00 00 00"
              " 00 00 00 00 00 00 00 00 01 00 00 00"
              " 00 00 00 00 00 00 00 00"
              " 01 00 05 00 65 76 65 6e 74 00 00 00"
              " 02 00 04 00 00 00 00 00"
              " 00 00 00 00 38 00 00 00");
    EXPECT_EQ(file.size(), GetPacketSize(0, 5));
}

TEST(PcapngWriter, ATextThatIsTooLongIsCutBetweenCharacters)
{
    // The limit falls within a character of two bytes.
    auto const comment = QByteArray("x") + QByteArray("\xC3\xB6").repeated(40'000);
    QByteArray file;

    AppendPacket(file, {}, {}, comment.first(65'537));

    // Type and length, five fields, and the option's code come before.
    EXPECT_EQ(file.mid(30, 2).toHex(), "ffff");
    QByteArray shorter;
    AppendPacket(shorter, {}, {}, QByteArray("\xC3\xB6").repeated(40'000));
    EXPECT_EQ(shorter.mid(30, 2).toHex(), "feff");
    EXPECT_EQ(file.size(), GetPacketSize(0, 65'537));
}

TEST(PcapngWriter, APacketOfAnySizeFillsWholeWordsAndAllocatesNothing)
{
    QByteArray file;
    file.reserve(4096);
    auto const* const buffer = file.constData();
    for (qsizetype bytes = 0; bytes < 9; ++bytes) {
        for (qsizetype comment = 0; comment < 9; ++comment) {
            auto const size = file.size();
            if (size + GetPacketSize(bytes, comment) > file.capacity()) {
                file.resize(0);
                continue;
            }

            AppendPacket(file, {}, QByteArray(bytes, 'b'), QByteArray(comment, 'c'));

            EXPECT_EQ(file.size() - size, GetPacketSize(bytes, comment));
            EXPECT_EQ(file.size() % 4, 0);
        }
    }
    EXPECT_EQ(file.constData(), buffer);
}
