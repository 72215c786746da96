// Reading a record back, and what becomes of files that are foreign, cut or damaged.
#include "record/pcapng_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>

using namespace record;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr uint64_t kRecordedTime = 1'795'000'000'123'456'789;

struct RecordedFile {
    QByteArray bytes;
    QList<qsizetype> block_ends;
};

RecordedFile MakeRecordedFile()
{
    RecordedFile file;
    auto const end_block = [&file] { file.block_ends.append(file.bytes.size()); };
    AppendSection(file.bytes, {QStringLiteral("x86_64"), QStringLiteral("Debian"),
                               QStringLiteral("Updater 1.0.0")});
    end_block();
    AppendInterface(file.bytes, {QStringLiteral("session"), QStringLiteral("events")});
    end_block();
    AppendInterface(file.bytes,
                    {QStringLiteral("ttyUSB0"), QStringLiteral("UART, 460800 baud, 8E1")});
    end_block();
    AppendPacket(file.bytes, {0, kRecordedTime, Direction::kUnknown}, {}, "event: connect");
    end_block();
    AppendPacket(file.bytes, {1, kRecordedTime + 1, Direction::kOut}, QByteArray("\x7F"));
    end_block();
    AppendPacket(file.bytes, {1, kRecordedTime + 2, Direction::kIn}, QByteArray("\x79\0\x1F", 3));
    end_block();
    return file;
}

QByteArray FromHex(char const* hex)
{
    return QByteArray::fromHex(hex);
}

// Each without options, of a section in the order of this machine.
QByteArray MakeBlock(uint32_t type, QByteArray const& body)
{
    auto const number = [](uint32_t value) {
        return QByteArray(reinterpret_cast<char const*>(&value), sizeof value);
    };
    auto const length = number(static_cast<uint32_t>(body.size() + 12));
    return number(type) + length + body + length;
}

QByteArray MakeSection()
{
    QByteArray section;
    AppendSection(section, {});
    return section;
}

QByteArray MakeStart()
{
    auto file = MakeSection();
    AppendInterface(file, {});
    return file;
}

}  // namespace

TEST(PcapngReader, ReadsWhatWasWritten)
{
    auto const recording = ReadPcapng(MakeRecordedFile().bytes);

    EXPECT_EQ(recording.error, QString());
    EXPECT_EQ(recording.section.hardware, QStringLiteral("x86_64"));
    EXPECT_EQ(recording.section.system, QStringLiteral("Debian"));
    EXPECT_EQ(recording.section.application, QStringLiteral("Updater 1.0.0"));
    ASSERT_THAT(recording.interfaces, SizeIs(2));
    EXPECT_EQ(recording.interfaces[1].name, QStringLiteral("ttyUSB0"));
    EXPECT_EQ(recording.interfaces[1].description, QStringLiteral("UART, 460800 baud, 8E1"));
    EXPECT_EQ(recording.interfaces[1].link_type, 147);
    ASSERT_THAT(recording.packets, SizeIs(3));
    EXPECT_EQ(recording.packets[0].interface, 0);
    EXPECT_EQ(recording.packets[0].time, kRecordedTime);
    EXPECT_EQ(recording.packets[0].direction, Direction::kUnknown);
    EXPECT_EQ(recording.packets[0].bytes, QByteArray());
    EXPECT_EQ(recording.packets[0].comments, QStringList(QStringLiteral("event: connect")));
    EXPECT_EQ(recording.packets[1].interface, 1);
    EXPECT_EQ(recording.packets[1].direction, Direction::kOut);
    EXPECT_EQ(recording.packets[1].bytes, "\x7F");
    EXPECT_THAT(recording.packets[1].comments, IsEmpty());
    EXPECT_EQ(recording.packets[2].time, kRecordedTime + 2);
    EXPECT_EQ(recording.packets[2].direction, Direction::kIn);
    EXPECT_EQ(recording.packets[2].bytes, QByteArray("\x79\0\x1F", 3));
}

TEST(PcapngReader, ReadsTheOtherByteOrderToo)
{
    // Section, interface with milliseconds, packet with comment and direction.
    auto const recording = ReadPcapng(FromHex(
        "0a0d0d0a 0000001c 1a2b3c4d 0001 0000 ffffffffffffffff 0000001c"
        "00000001 00000024 0093 0000 00000000 0002 0001 61000000 0009 0001 03000000 00000024"
        "00000006 00000038 00000000 00000001 00000002 00000003 00000003 01020300"
        "0001 0002 68690000 0002 0004 00000001 0000 0000 00000038"));

    EXPECT_EQ(recording.error, QString());
    ASSERT_THAT(recording.interfaces, SizeIs(1));
    EXPECT_EQ(recording.interfaces[0].name, QStringLiteral("a"));
    EXPECT_EQ(recording.interfaces[0].link_type, 147);
    ASSERT_THAT(recording.packets, SizeIs(1));
    EXPECT_EQ(recording.packets[0].time, 0x1'0000'0002 * 1'000'000);
    EXPECT_EQ(recording.packets[0].bytes, "\x01\x02\x03");
    EXPECT_EQ(recording.packets[0].comments, QStringList(QStringLiteral("hi")));
    EXPECT_EQ(recording.packets[0].direction, Direction::kIn);
}

TEST(PcapngReader, SkipsForeignBlocksAndOptions)
{
    auto file = MakeSection();
    file += MakeBlock(5, FromHex("01020304"));
    file +=
        MakeBlock(1, FromHex("9300 0000 00000000 0800 0800 0011223344556677 0200 0100 61000000"));
    file += MakeBlock(0x0BAD, {});
    file +=
        MakeBlock(6, FromHex("00000000 00000000 01000000 01000000 01000000 ff000000"
                             "0400 0800 0011223344556677 0100 0100 41000000 0100 0100 42000000"));

    auto const recording = ReadPcapng(file);

    EXPECT_EQ(recording.error, QString());
    ASSERT_THAT(recording.interfaces, SizeIs(1));
    EXPECT_EQ(recording.interfaces[0].name, QStringLiteral("a"));
    ASSERT_THAT(recording.packets, SizeIs(1));
    EXPECT_EQ(recording.packets[0].bytes, "\xFF");
    EXPECT_EQ(recording.packets[0].time, 1000U) << "microseconds, if nothing else is said";
    EXPECT_EQ(recording.packets[0].comments,
              QStringList({QStringLiteral("A"), QStringLiteral("B")}));
    EXPECT_EQ(recording.packets[0].direction, Direction::kUnknown);
}

TEST(PcapngReader, ConvertsEveryUnitOfTimeToNanoseconds)
{
    struct {
        uint8_t resolution;
        uint64_t units;
        uint64_t nanoseconds;
    } const rows[] = {
        {0, 7, 7'000'000'000},
        {3, 7, 7'000'000},
        {6, 7, 7'000},
        {9, UINT64_MAX, UINT64_MAX},
        {12, 7'999, 7},
        {127, UINT64_MAX, 0},
        {0, UINT64_MAX, UINT64_MAX},
        {0x80, 7, 7'000'000'000},
        {0x80, UINT64_MAX, UINT64_MAX},
        {0x80 + 1, 3, 1'500'000'000},
        {0x80 + 32, 0x1'8000'0000, 1'500'000'000},
        {0x80 + 40, 0x180'0000'0000, 1'500'000'000},
        {0xFF, UINT64_MAX, 0},
    };
    for (auto const& row : rows) {
        auto file = MakeSection();
        file += MakeBlock(1, FromHex("9300 0000 00000000 0900 0100") +
                                 QByteArray(1, static_cast<char>(row.resolution)) +
                                 QByteArray(3, '\0'));
        AppendPacket(file, {0, row.units, Direction::kIn}, {});

        auto const recording = ReadPcapng(file);

        ASSERT_THAT(recording.packets, SizeIs(1)) << int{row.resolution};
        EXPECT_EQ(recording.packets[0].time, row.nanoseconds)
            << int{row.resolution} << " " << row.units;
    }
}

TEST(PcapngReader, EachSectionNumbersItsInterfacesAnew)
{
    auto file = MakeRecordedFile().bytes;
    AppendSection(file, {});
    AppendInterface(file, {QStringLiteral("second"), {}});
    AppendPacket(file, {0, 5, Direction::kIn}, "x");

    auto const recording = ReadPcapng(file);

    EXPECT_EQ(recording.error, QString());
    ASSERT_THAT(recording.packets, SizeIs(4));
    EXPECT_EQ(recording.interfaces[recording.packets[3].interface].name, QStringLiteral("second"));
    EXPECT_EQ(recording.section.application, QStringLiteral("Updater 1.0.0"));
}

TEST(PcapngReader, AFileThatIsCutAnywhereLeavesTheBlocksBeforeTheCutAndSaysWhereItEnds)
{
    auto const file = MakeRecordedFile();
    for (qsizetype size = 0; size < file.bytes.size(); ++size) {
        // A copy of that very size, so that a sanitizer sees a read behind it.
        std::vector<char> const cut(file.bytes.begin(), file.bytes.begin() + size);

        auto const recording =
            ReadPcapng(QByteArrayView(cut.data(), static_cast<qsizetype>(cut.size())));

        auto const whole =
            std::ranges::count_if(file.block_ends, [&](qsizetype end) { return end <= size; });
        auto const blocks = recording.interfaces.size() + recording.packets.size();
        EXPECT_EQ(blocks, std::max<qsizetype>(whole - 1, 0)) << size;
        auto const at_end = size > 0 && file.block_ends.contains(size);
        EXPECT_EQ(recording.error.isEmpty(), at_end) << size;
        if (whole > 0 && !at_end) {
            EXPECT_EQ(recording.error, QStringLiteral("the file ends within the block at byte %1")
                                           .arg(file.block_ends[whole - 1]));
        }
    }
}

TEST(PcapngReader, AFileWithAnyByteChangedIsReadWithoutHarm)
{
    auto const file = MakeRecordedFile().bytes;
    for (qsizetype position = 0; position < file.size(); ++position) {
        for (unsigned const change : {0x01U, 0x80U, 0xFFU}) {
            std::vector<char> damaged(file.begin(), file.end());
            auto& byte = damaged[static_cast<size_t>(position)];
            byte = static_cast<char>(static_cast<unsigned char>(byte) ^ change);

            auto const recording =
                ReadPcapng(QByteArrayView(damaged.data(), static_cast<qsizetype>(damaged.size())));

            for (auto const& packet : recording.packets) {
                EXPECT_LT(packet.interface, recording.interfaces.size()) << position;
            }
            EXPECT_LE(recording.packets.size(), 3) << position;
        }
    }
}

TEST(PcapngReader, NamesTheDamageAndItsPlace)
{
    auto const start = MakeStart();
    struct {
        QByteArray file;
        char const* error;
    } const rows[] = {
        {{}, "the file is empty"},
        {"x", "there is no pcapng section at byte 0"},
        {"this is a text and not a record", "there is no pcapng section at byte 0"},
        {FromHex("0a0d0d0a 1c000000 00000000 00000000"),
         "there is no valid byte-order mark in the section at byte 0"},
        {FromHex("0a0d0d0a 1c000000 4d3c2b1a 0200 0000 ffffffffffffffff 1c000000"),
         "there is a version of pcapng that is not known at byte 0"},
        {FromHex("0a0d0d0a 10000000 4d3c2b1a 10000000"),
         "the block does not hold what it announces at byte 0"},
        {start + FromHex("06000000 0b000000 00000000"),
         "there is no valid length in the block at byte 64"},
        {start + FromHex("06000000 0d000000 00000000 00000000"),
         "there is no valid length in the block at byte 64"},
        {start + FromHex("06000000 00000000 00000000"),
         "there is no valid length in the block at byte 64"},
        {start + FromHex("06000000 fcffffff 00000000"),
         "the file ends within the block at byte 64"},
        {start + FromHex("06000000 10000000 00000000 14000000"),
         "the two lengths differ in the block at byte 64"},
        {start + MakeBlock(6, FromHex("00000000 00000000 00000000 05000000 05000000 01020304")),
         "the block does not hold what it announces at byte 64"},
        {start + MakeBlock(6, FromHex("00000000 00000000 00000000 ffffffff ffffffff 01020304")),
         "the block does not hold what it announces at byte 64"},
        {start + MakeBlock(6, FromHex("00000000 00000000 00000000 00000000 00000000"
                                      "0100 0500 61000000")),
         "the block does not hold what it announces at byte 64"},
        {start + MakeBlock(6, FromHex("01000000 00000000 00000000 00000000 00000000")),
         "there is a packet of an unknown interface at byte 64"},
    };
    ASSERT_EQ(start.size(), 64);
    for (auto const& row : rows) {
        EXPECT_EQ(ReadPcapng(row.file).error.toStdString(), row.error)
            << row.file.toHex(' ').data();
    }
}

TEST(PcapngReader, ReadsAFileAndSaysWhyItCannot)
{
    QTemporaryDir const folder;
    QFile file(folder.filePath(QStringLiteral("a.pcapng")));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(MakeRecordedFile().bytes);
    file.close();

    EXPECT_THAT(ReadPcapngFile(file.fileName()).packets, SizeIs(3));
    EXPECT_EQ(ReadPcapngFile(folder.filePath(QStringLiteral("b"))).error,
              QStringLiteral("the file is not there"));
    EXPECT_EQ(ReadPcapngFile(folder.path()).error, QStringLiteral("it is not a file"));
    ASSERT_TRUE(file.open(QIODevice::ReadWrite) && file.resize(kLargestRecording + 1));
    EXPECT_EQ(ReadPcapngFile(file.fileName()).error,
              QStringLiteral("the file is larger than 268435456 bytes"));
}
