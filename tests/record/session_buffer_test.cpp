// What a session keeps in memory, and what it says about packets for which there was no room.
#include "record/session_buffer.h"

#include <gtest/gtest.h>

#include "record/event.h"
#include "record/pcapng_reader.h"

using namespace record;

namespace {

constexpr qsizetype kSmallBuffer = 4096;

}  // namespace

TEST(SessionBuffer, BeginsAsAWholeFileWithTheInterfaceOfEvents)
{
    SessionBuffer buffer({{}, {}, QStringLiteral("Updater")}, kSmallBuffer);
    QByteArray blocks;
    buffer.Take(blocks);

    auto const recording = ReadPcapng(blocks);

    EXPECT_EQ(recording.error, QString());
    EXPECT_EQ(recording.section.application, QStringLiteral("Updater"));
    ASSERT_EQ(recording.interfaces.size(), 1);
    EXPECT_EQ(recording.interfaces[0].name, QLatin1String(kSessionInterface));
    EXPECT_TRUE(buffer.IsEmpty());
}

TEST(SessionBuffer, CountsWhatDoesNotFitAndSaysSoWhenThereIsRoomAgain)
{
    SessionBuffer buffer({}, kSmallBuffer);
    QByteArray const bytes(100, 'x');
    for (uint64_t time = 0; time < 100; ++time) {
        buffer.AddPacket({0, time, Direction::kIn}, bytes);
    }
    EXPECT_TRUE(buffer.IsHalfFull());
    QByteArray file;
    file.reserve(kSmallBuffer);
    buffer.Take(file);
    EXPECT_LE(file.size(), kSmallBuffer);
    buffer.AddPacket({0, 100, Direction::kIn}, bytes);
    buffer.AddPacket({0, 101, Direction::kIn}, bytes);
    QByteArray rest;
    buffer.Take(rest);

    auto const recording = ReadPcapng(file + rest);

    EXPECT_EQ(recording.error, QString());
    auto const gap = recording.packets.size() - 3;
    EXPECT_EQ(recording.packets[gap].comments,
              QStringList(QStringLiteral("event: gap cause=disk packets=%1 bytes=%2")
                              .arg(100 - gap)
                              .arg((100 - gap) * 100)));
    EXPECT_EQ(recording.packets[gap + 1].time, 100U);
    EXPECT_EQ(recording.packets[gap + 2].time, 101U);
}

TEST(SessionBuffer, HasNoInterfaceForWhichThereIsNoRoom)
{
    SessionBuffer buffer({}, kSmallBuffer);
    buffer.AddPacket({}, QByteArray(3900, 'x'));

    EXPECT_FALSE(buffer.AddInterface({QString(100, QLatin1Char('x')), {}}));
    QByteArray blocks;
    buffer.Take(blocks);
    EXPECT_EQ(ReadPcapng(blocks).interfaces.size(), 1);
    EXPECT_TRUE(buffer.AddInterface({QString(100, QLatin1Char('x')), {}}));
}

TEST(SessionBuffer, AllocatesNothingForPackets)
{
    SessionBuffer buffer({}, kSmallBuffer);
    QByteArray first;
    first.reserve(kSmallBuffer);
    auto const* const second_memory = first.constData();
    buffer.Take(first);
    auto const* const first_memory = first.constData();

    for (auto const* const memory : {second_memory, first_memory, second_memory}) {
        for (int i = 0; i < 100; ++i) {
            buffer.AddPacket({}, "x");
        }
        buffer.Take(first);
        EXPECT_EQ(first.constData(), memory);
    }
}
