// The record that each session leaves beside the log, over any transport: its name, what is in it,
// and that other programs read it.

#include <gmock/gmock.h>

#include <QCryptographicHash>
#include <QDateTime>
#include <QFileInfo>
#include <QRegularExpression>

#include "record/event.h"
#include "record/pcapng_reader.h"
#include "tests/end_to_end/transport.h"
#include "tests/record/wireshark.h"
#include "tests/support/files.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

namespace events = record::events;
namespace fields = record::fields;
using record::Direction;
using testing::HasSubstr;

struct RecordedTransport {
    char const* name;
    char const* bundle;
    char const* fault;  // that makes an update fail; none where the tool is killed instead
    char const* line;   // the line's description

    friend void PrintTo(RecordedTransport const& row, std::ostream* stream) { *stream << row.name; }
};

constexpr RecordedTransport kRecordedUart{"uart", FW_STAGED_BUNDLE, "fault nack-write-data 3 11",
                                          "UART, 460800 baud, 8E1"};
constexpr RecordedTransport kRecordedMcuboot{"mcuboot", FW_STAGED_MCUBOOT_BUNDLE,
                                             "fault error-in-upload 20 1 7",
                                             "MCUboot serial, 921600 baud, 8N1"};
constexpr RecordedTransport kRecordedUsb{
    "usb", FW_STAGED_USB_BUNDLE, nullptr,
    "USB DFU, 0483:df11: the tool's arguments and standard output"};

class EveryRecord : public Transport, public testing::WithParamInterface<RecordedTransport> {
protected:
    EveryRecord() : Transport(GetParam().bundle) {}

    bool IsDoneScreen(Screen const& screen) const override
    {
        return screen.button == u"DONE"_s && screen.progress == 100;
    }

    // What several starts of the program leave behind is in one place.
    void StartRecordedProgram()
    {
        auto environment = unit_->Environment();
        environment.insert(u"TMPDIR"_s, temporary_.path());
        program_ = std::make_unique<Program>(bundle_, environment, state_.path());
    }

    void StartAndPlugIn(QString const& unit_options = {})
    {
        PlugIn(unit_options);
        StartRecordedProgram();
    }

    void CloseProgram()
    {
        program_->CloseWindow();
        ASSERT_EQ(program_->WaitForExit(60s), 0);
    }

    QString LogFolder() const { return state_.filePath(u"kelvane-firmware-updater"_s); }
    QDir Records() const { return QDir(LogFolder() + u"/sessions"_s); }
    QStringList Names() const { return Records().entryList(QDir::Files, QDir::Name); }

    // The only record there is, which must have this outcome in its name ("" for none).
    record::Recording ReadRecord(QString const& outcome) const
    {
        auto const names = Names();
        EXPECT_EQ(names.size(), 1) << names.join(u' ').toStdString();
        auto const name = names.value(0);
        QRegularExpression const expected(
            uR"(^\d{4}-\d\d-\d\dT\d\d-\d\d-\d\dZ-%1%2\.pcapng$)"_s.arg(
                QString::fromLatin1(GetParam().name),
                outcome.isEmpty() ? outcome : u'-' + outcome));
        EXPECT_TRUE(expected.match(name).hasMatch()) << name.toStdString();
        return record::ReadPcapngFile(Records().filePath(name));
    }

    // As tshark reads them all, and without a warning.
    void ExpectTsharkReadsTheSame() const
    {
        auto const path = Records().filePath(Names().value(0));
        EXPECT_EQ(ReadWithTshark(path), ReadWithoutTshark(path));
    }

    static QList<record::Event> ListEvents(record::Recording const& recording)
    {
        QList<record::Event> list;
        for (auto const& packet : recording.packets) {
            for (auto const& comment : packet.comments) {
                auto const event = record::ParseEvent(comment);
                EXPECT_TRUE(event) << comment.toStdString();
                list.append(event.value_or(record::Event{}));
            }
        }
        return list;
    }

    // The event's values of `field`, in their order.
    static QStringList ListValues(record::Recording const& recording, char const* event,
                                  char const* field)
    {
        QStringList values;
        for (auto const& found : ListEvents(recording)) {
            if (found.name == QLatin1String(event)) {
                values.append(found.GetValue(field));
            }
        }
        return values;
    }

    static QByteArray JoinBytes(record::Recording const& recording, QString const& line,
                                Direction direction)
    {
        QByteArray bytes;
        for (auto const& packet : recording.packets) {
            if (recording.interfaces[packet.interface].name == line &&
                packet.direction == direction) {
                bytes += packet.bytes;
            }
        }
        return bytes;
    }

    bool IsMcuboot() const { return QLatin1String(GetParam().name) == u"mcuboot"; }
    bool IsUsb() const { return QLatin1String(GetParam().name) == u"usb"; }

    QTemporaryDir state_;
};

TEST_P(EveryRecord, OfAWholeUpdateHasItsEventsItsImageAndItsBytes)
{
    StartAndPlugIn();
    UpdateToTheEnd();
    CloseProgram();

    auto const recording = ReadRecord(u"done"_s);
    EXPECT_EQ(recording.error, QString());
    EXPECT_TRUE(recording.section.application.startsWith(u"Kelvane Firmware Updater "));
    auto const all = ListEvents(recording);
    ASSERT_FALSE(all.isEmpty());
    EXPECT_EQ(all.first().name, QLatin1String(events::kConnect));
    EXPECT_EQ(all.first().GetValue(fields::kTransport), QLatin1String(GetParam().name));
    EXPECT_EQ(all.last().GetValue(fields::kOutcome), u"done"_s);
    EXPECT_EQ(ListValues(recording, events::kStatus, fields::kValue), QStringList(u"connected"_s));
    EXPECT_EQ(ListValues(recording, events::kUpdateFinished, fields::kResult),
              QStringList(u"done"_s));
    auto windows = ListValues(recording, events::kWindow, fields::kState);
    windows.removeIf([](QString const& state) { return state.startsWith(u"erase"); });
    EXPECT_EQ(windows, QStringList({u"unit connected"_s, u"update requested"_s, u"update started"_s,
                                    u"update succeeded"_s}));
    auto const image = bundle_.ReadFirmware();
    auto const digest = QCryptographicHash::hash(image, QCryptographicHash::Sha256).toHex();
    EXPECT_EQ(ListValues(recording, events::kImage, fields::kSha256),
              QStringList(QString::fromLatin1(digest)));

    ASSERT_GE(recording.interfaces.size(), 2);
    auto const& line = recording.interfaces[1];
    EXPECT_EQ(line.description, QString::fromUtf8(GetParam().line));
    auto const sent = JoinBytes(recording, line.name, Direction::kOut);
    auto const received = JoinBytes(recording, line.name, Direction::kIn);
    if (IsUsb()) {
        EXPECT_TRUE(sent.endsWith(QFileInfo(bundle_.FirmwarePath()).fileName().toUtf8() + '\0'))
            << sent.toStdString();
        EXPECT_THAT(received.toStdString(), HasSubstr("100%"));
        EXPECT_EQ(JoinBytes(recording, u"dfu-util file"_s, Direction::kIn).size(), 1024);
        EXPECT_EQ(ListValues(recording, events::kExit, fields::kCode),
                  QStringList({u"0"_s, u"0"_s}));
    } else {
        EXPECT_GT(sent.size(), image.size());
        EXPECT_GT(received.size(), 100);
        EXPECT_TRUE(ListValues(recording, events::kProgress, fields::kPercent).contains(u"100"_s));
    }
    ExpectTsharkReadsTheSame();
}

TEST_P(EveryRecord, OfARefusedUnitHasNoUpdate)
{
    StartAndPlugIn(u"--model-id 222"_s);
    ExpectScreen(IsRefused);
    if (IsMcuboot()) {
        // It is refused several times, and each record replaces the one before it.
        ExpectScreenStays(IsRefused, 14s);
    }
    CloseProgram();

    auto const recording = ReadRecord(u"refused"_s);
    EXPECT_EQ(recording.error, QString());
    EXPECT_EQ(ListValues(recording, events::kStatus, fields::kValue), QStringList(u"refused"_s));
    EXPECT_TRUE(ListValues(recording, events::kWindow, fields::kState).contains(u"unit refused"_s));
    EXPECT_EQ(ListValues(recording, events::kUpdateStarted, ""), QStringList());
    EXPECT_EQ(ListValues(recording, events::kLog, fields::kText)
                  .filter(QRegularExpression(u"^unit refused on .*model 222; "_s))
                  .size(),
              1);
}

TEST_P(EveryRecord, OfAFailedUpdateIsNamedSo)
{
    StartAndPlugIn(IsUsb() ? u"--real-times"_s : QString());
    if (IsUsb()) {
        StartUpdate();
        ExpectScreen(ShowsPercentage);
        ASSERT_TRUE(program_->KillTool("dfu-util"));
    } else {
        PressUpdateWith(QString::fromLatin1(GetParam().fault));
    }
    ExpectScreen(IsFailed);
    CloseProgram();

    auto const recording = ReadRecord(u"failed"_s);
    EXPECT_EQ(recording.error, QString());
    EXPECT_EQ(ListValues(recording, events::kUpdateFinished, fields::kResult),
              QStringList(u"failed"_s));
    if (IsUsb()) {
        EXPECT_EQ(ListValues(recording, events::kExit, fields::kStatus).mid(1),
                  QStringList(u"crashed"_s));
    }
    ExpectTsharkReadsTheSame();
}

TEST_P(EveryRecord, SurvivesThatTheProgramIsKilledAndIsNamedAtTheNextStart)
{
    StartAndPlugIn(u"--real-times"_s);
    StartUpdate();
    ExpectScreen(IsUpdating);
    ExpectScreenStays(IsUpdating, 2s);
    program_.reset();
    auto const killed = QDateTime::currentMSecsSinceEpoch();

    auto const recording = ReadRecord({});

    // A write that was cut is at the end at most.
    EXPECT_TRUE(recording.error.isEmpty() ||
                recording.error.startsWith(u"the file ends within the block"))
        << recording.error.toStdString();
    EXPECT_EQ(ListValues(recording, events::kImage, fields::kSha256).size(), 1);
    ASSERT_FALSE(recording.packets.isEmpty());
    auto const last = static_cast<qint64>(recording.packets.last().time / 1'000'000);
    // The longest silence of a line and of the tool comes to the second that may be lost.
    EXPECT_LT(killed - last, 4000);

    StartRecordedProgram();
    EXPECT_TRUE(WaitUntil([&] { return Names().value(0).endsWith(u"-unfinished.pcapng"); }, 20s))
        << Names().join(u' ').toStdString();
}

TEST_P(EveryRecord, ThatCannotBeWrittenIsInTheLogOnceAndTheUpdateRuns)
{
    ASSERT_TRUE(QDir().mkpath(LogFolder()));
    WriteFile(Records().path(), "in the way");
    StartAndPlugIn();
    UpdateToTheEnd();
    CloseProgram();

    EXPECT_EQ(program_->ReadLog().count(" no record of the session is kept: "), 1)
        << program_->ReadLog().toStdString();
}

std::string NameOfRecorded(testing::TestParamInfo<RecordedTransport> const& row)
{
    return row.param.name;
}

INSTANTIATE_TEST_SUITE_P(, EveryRecord,
                         testing::Values(kRecordedUart, kRecordedMcuboot, kRecordedUsb),
                         NameOfRecorded);

class EverySilentPort : public EveryRecord {};

TEST_P(EverySilentPort, LeavesNoRecord)
{
    PlugIn();
    unit_->Command(u"silent on"_s);
    StartRecordedProgram();
    ExpectScreen(IsWaiting);
    // Longer than the first request and its time-out take.
    ExpectScreenStays(IsWaiting, 6s);
    CloseProgram();

    EXPECT_FALSE(Records().exists());
}

INSTANTIATE_TEST_SUITE_P(, EverySilentPort, testing::Values(kRecordedUart, kRecordedMcuboot),
                         NameOfRecorded);

}  // namespace
