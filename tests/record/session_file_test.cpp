// One record on the disk: what is in it when it is cut, too large, or not writable.
#include "record/session_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QFileInfo>
#include <QTemporaryDir>

#include "record/event.h"
#include "record/pcapng_reader.h"
#include "record/pcapng_writer.h"

using namespace record;
using testing::IsEmpty;

namespace {

constexpr qint64 kSmallRecord = 16 * 1024;

class SessionFileTest : public testing::Test {
protected:
    SessionFileTest()
    {
        EXPECT_TRUE(file_.Create());
        QByteArray start;
        AppendSection(start, {});
        AppendInterface(start, {QStringLiteral("session"), {}});
        EXPECT_TRUE(file_.Append(start));
    }

    // A packet whose bytes are its number.
    bool AppendNumbered(uint32_t number)
    {
        QByteArray block;
        auto const bytes = QByteArray::number(number).rightJustified(100, '0');
        AppendPacket(block, {0, number, Direction::kIn}, bytes);
        return file_.Append(block);
    }

    QTemporaryDir folder_;
    QString path_ = folder_.filePath(QStringLiteral("a.pcapng"));
    SessionFile file_{path_, kSmallRecord};
};

}  // namespace

TEST_F(SessionFileTest, IsReadableAndLockedWhileItIsWrittenAndForItsOwnerOnly)
{
    ASSERT_TRUE(AppendNumbered(7));

    auto const recording = ReadPcapngFile(path_);
    EXPECT_EQ(recording.error, QString());
    EXPECT_EQ(recording.packets.size(), 1);
    EXPECT_TRUE(IsBeingWritten(path_));
    EXPECT_EQ(QFileInfo(path_).permissions() & (QFile::ReadOther | QFile::ReadGroup),
              QFile::Permissions());
}

TEST_F(SessionFileTest, KeepsItsNameWhenTheLastOneIsTakenAndSaysSo)
{
    auto const last = folder_.filePath(QStringLiteral("b.pcapng"));
    ASSERT_TRUE(QFile::copy(path_, last));

    EXPECT_FALSE(file_.Finish(last));

    EXPECT_EQ(file_.GetError(),
              QStringLiteral("it cannot be renamed to %1: Destination file exists").arg(last));
    EXPECT_EQ(file_.GetPath(), path_);
    EXPECT_TRUE(QFile::exists(path_));
}

TEST_F(SessionFileTest, GetsItsLastNameAndIsNoLongerLocked)
{
    auto const last = folder_.filePath(QStringLiteral("b.pcapng"));

    ASSERT_TRUE(file_.Finish(last));

    EXPECT_EQ(file_.GetPath(), last);
    EXPECT_FALSE(QFile::exists(path_));
    EXPECT_FALSE(IsBeingWritten(last));
}

TEST_F(SessionFileTest, IsNotCreatedOverAnother)
{
    SessionFile second(path_, kSmallRecord);

    EXPECT_FALSE(second.Create());
    EXPECT_FALSE(second.GetError().isEmpty());
    EXPECT_TRUE(AppendNumbered(1));
}

// Ten times its limit passes through.
TEST_F(SessionFileTest, LosesItsMiddleWhenItIsTooLargeAndSaysHowMuchIsMissing)
{
    constexpr uint32_t kPackets = 1000;
    for (uint32_t number = 0; number < kPackets; ++number) {
        ASSERT_TRUE(AppendNumbered(number));
        ASSERT_LE(QFileInfo(path_).size(), kSmallRecord);
        if (number > kPackets / 2) {
            ASSERT_GT(QFileInfo(path_).size(), kSmallRecord * 9 / 16);
        }
    }

    auto const recording = ReadPcapngFile(path_);
    EXPECT_EQ(recording.error, QString());
    EXPECT_EQ(recording.packets.front().time, 0U);
    EXPECT_EQ(recording.packets.back().time, kPackets - 1);
    uint64_t missing = 0;
    uint64_t expected = 0;
    for (auto const& packet : recording.packets) {
        if (packet.bytes.isEmpty()) {
            auto const event = ParseEvent(packet.comments.value(0));
            ASSERT_TRUE(event);
            EXPECT_EQ(event->name, QLatin1String(events::kGap));
            EXPECT_EQ(event->GetValue(fields::kCause), QLatin1String(kGapOfSize));
            missing += event->GetValue(fields::kPackets).toULongLong();
            EXPECT_EQ(event->GetValue(fields::kBytes), QString::number(missing * 100));
            EXPECT_EQ(packet.time, expected + missing - 1) << "the time of the last one missing";
        } else {
            EXPECT_EQ(packet.time, expected + missing);
            ++expected;
        }
    }
    EXPECT_EQ(expected + missing, kPackets);
    EXPECT_GT(missing, kPackets / 2);
    EXPECT_TRUE(IsBeingWritten(path_)) << "the file that replaced it is locked as well";
    EXPECT_FALSE(QFile::exists(GetReplacementPath(path_)));
}

TEST_F(SessionFileTest, KeepsTheInterfacesOfItsMiddle)
{
    QByteArray late;
    AppendInterface(late, {QStringLiteral("late"), {}});
    for (uint32_t number = 0; number < 80; ++number) {
        ASSERT_TRUE(AppendNumbered(number));
    }
    ASSERT_TRUE(file_.Append(late));
    for (uint32_t number = 80; number < 400; ++number) {
        ASSERT_TRUE(AppendNumbered(number));
    }
    QByteArray last;
    AppendPacket(last, {1, 400, Direction::kIn}, "x");
    ASSERT_TRUE(file_.Append(last));

    auto const recording = ReadPcapngFile(path_);

    EXPECT_EQ(recording.error, QString());
    ASSERT_EQ(recording.interfaces.size(), 2);
    EXPECT_EQ(recording.interfaces[1].name, QStringLiteral("late"));
    EXPECT_EQ(recording.packets.back().interface, 1);
}

TEST(SessionFile, SaysWhyItCannotBeCreated)
{
    SessionFile file(QStringLiteral("/proc/no/such/folder.pcapng"), kSmallRecord);

    EXPECT_FALSE(file.Create());
    EXPECT_FALSE(file.GetError().isEmpty());
}

TEST(SessionFile, SaysWhyItCannotBeWrittenAndKeepsWhatWasThere)
{
    QTemporaryDir const folder;
    auto const path = folder.filePath(QStringLiteral("a.pcapng"));
    SessionFile file(path, kSmallRecord);
    ASSERT_TRUE(file.Create());
    QByteArray blocks;
    AppendSection(blocks, {});
    AppendInterface(blocks, {});
    ASSERT_TRUE(file.Append(blocks));
    QByteArray packet;
    AppendPacket(packet, {}, QByteArray(12 * 1024, 'x'));
    ASSERT_TRUE(file.Append(packet));
    // The replacement's name is taken by a folder that cannot be removed like a file.
    ASSERT_TRUE(QDir(folder.path()).mkpath(GetReplacementPath(path) + QStringLiteral("/x")));

    EXPECT_FALSE(file.Append(packet));

    EXPECT_FALSE(file.GetError().isEmpty());
    auto const recording = ReadPcapngFile(path);
    EXPECT_EQ(recording.error, QString());
    EXPECT_EQ(recording.packets.size(), 1);
}
