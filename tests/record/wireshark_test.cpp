// Wireshark's tools read a record as the program's own reader does, without a warning.
#include "tests/record/wireshark.h"

#include <gmock/gmock.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include "record/event.h"
#include "record/pcapng_writer.h"
#include "record/session_file.h"

using namespace Qt::StringLiterals;
using namespace record;
using testing::Contains;
using testing::Each;
using testing::Not;

namespace {

class Wireshark : public testing::Test {
protected:
    Wireshark()
    {
        AppendSection(blocks_, {u"arm64"_s, u"macOS Größe"_s, u"Kelvane Firmware Updater 1.0.0"_s});
        AppendInterface(blocks_, {u"session"_s, u"events"_s});
        AppendInterface(blocks_, {u"ttyUSB0"_s, u"UART, 460800 baud, 8E1"_s});
        AppendPacket(blocks_, {0, kTime, Direction::kUnknown}, {},
                     FormatEvent({u"connect"_s, {{u"port"_s, u"ttyUSB0"_s}}}));
        AppendPacket(blocks_, {1, kTime + 1, Direction::kOut}, "\x7F");
        AppendPacket(blocks_, {1, kTime + 999, Direction::kIn}, QByteArray("\x79\0\xFF", 3));
        AppendPacket(blocks_, {0, kTime + 1000, Direction::kUnknown}, {},
                     FormatEvent({u"log"_s, {{u"text"_s, u"a b, Größe"_s}}}));
    }

    static constexpr uint64_t kTime = 1'795'000'000'123'456'789;

    QByteArray blocks_;
    QTemporaryDir folder_;
    QString path_ = folder_.filePath(u"a.pcapng"_s);
};

std::vector<std::string> ToStrings(QStringList const& lines)
{
    std::vector<std::string> texts;
    for (auto const& line : lines) {
        texts.push_back(line.toStdString());
    }
    return texts;
}

}  // namespace

TEST_F(Wireshark, ReadsNamesTimesDirectionsCommentsAndBytes)
{
    SessionFile file(path_, 1'000'000);
    ASSERT_TRUE(file.Create() && file.Append(blocks_));

    auto const lines = ReadWithTshark(path_);

    EXPECT_EQ(lines, ReadWithoutTshark(path_));
    EXPECT_EQ(lines.value(0),
              u"session\t1795000000.123456789\t0x00000000\tevent: connect port=ttyUSB0\t"_s);
    EXPECT_EQ(lines.value(2), u"ttyUSB0\t1795000000.123457788\t0x00000001\t\t7900ff"_s);
    auto const facts = ToStrings(ReadWithCapinfos(path_));
    for (auto const* const fact :
         {"Capture hardware: arm64", "Capture oper-sys: macOS Größe",
          "Capture application: Kelvane Firmware Updater 1.0.0", "Strict time order: True",
          "Number of interfaces in file: 2", "Name = ttyUSB0",
          "Description = UART, 460800 baud, 8E1", "Encapsulation = USER 0 (45 - user0)",
          "Time precision = nanoseconds (9)"}) {
        EXPECT_THAT(facts, Contains(fact));
    }
    EXPECT_THAT(facts, Each(Not(testing::StartsWith("warning"))));
}

TEST_F(Wireshark, ReadsARecordWhoseMiddleWasLeftOut)
{
    SessionFile file(path_, 16 * 1024);
    ASSERT_TRUE(file.Create() && file.Append(blocks_));
    for (uint64_t time = kTime + 2000; time < kTime + 3000; ++time) {
        QByteArray packet;
        AppendPacket(packet, {1, time, Direction::kIn}, QByteArray(100, 'x'));
        ASSERT_TRUE(file.Append(packet));
    }

    auto const lines = ReadWithTshark(path_);

    EXPECT_EQ(lines, ReadWithoutTshark(path_));
    EXPECT_THAT(ToStrings(lines), Contains(testing::HasSubstr("event: gap cause=size packets=")));
    EXPECT_THAT(ToStrings(ReadWithCapinfos(path_)), Contains("Strict time order: True"));
}

// The comparison itself: what it must notice.
TEST_F(Wireshark, WarnsOfAFileThatIsCut)
{
    QFile file(path_);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(blocks_.chopped(1));
    file.close();

    EXPECT_THAT(ToStrings(ReadWithTshark(path_)), Contains(testing::StartsWith("warning: ")));
    EXPECT_THAT(ToStrings(ReadWithCapinfos(path_)), Contains(testing::StartsWith("warning: ")));
}
