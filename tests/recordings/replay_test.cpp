// Replays each record in this folder: the backend of its transport runs the session again, against
// a unit that answers as the recorded one did. It must come to the same end, with not one byte that
// differs on the way. A record that a customer sent is a test once it lies here; beside NAME.pcapng
// may lie
//   NAME.ini  the bundle's config.ini, if it is not that of the transport's demonstration
//   NAME.bin  the image, if the record does not hold all of what the session needs of it

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>
#include <algorithm>
#include <cctype>
#include <chrono>
#include <memory>
#include <string>

#include "app/backend.h"
#include "record/event.h"
#include "record/pcapng_reader.h"
#include "session_view/exchanges.h"
#include "simulator/program/replay_file.h"
#include "simulator/simulated_unit.h"
#include "tests/support/backend_signals.h"
#include "tests/support/collected_log.h"
#include "tests/support/files.h"
#include "tests/support/stand_in_tool.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

namespace events = record::events;
namespace fields = record::fields;

QDir Folder()
{
    return QDir(QStringLiteral(FW_RECORDINGS));
}

std::vector<std::string> ListRecordings()
{
    std::vector<std::string> names;
    for (auto const& file : Folder().entryInfoList({u"*.pcapng"_s}, QDir::Files, QDir::Name)) {
        names.push_back(file.completeBaseName().toStdString());
    }
    return names;
}

// umockdev keeps its state for the whole process, so all records share one testbed.
std::shared_ptr<simulator::UsbTestbed> GetTestbed()
{
    static auto const testbed = std::make_shared<simulator::UsbTestbed>();
    return testbed;
}

QList<record::Event> ReadEvents(record::Recording const& recording)
{
    QList<record::Event> found;
    for (auto const& packet : recording.packets) {
        for (auto const& comment : packet.comments) {
            if (auto const event = record::ParseEvent(comment)) {
                found.append(*event);
            }
        }
    }
    return found;
}

QString FindValue(QList<record::Event> const& found, char const* event, char const* field)
{
    auto const first = std::ranges::find(found, QLatin1String(event), &record::Event::name);
    return first == found.end() ? QString() : first->GetValue(field);
}

// What the session came to, in the words of the backend's signals. Whether a connect has failed or
// a session was ended by the user, its last status is "disconnected"; only the first one counts.
QStringList ReadOutcomes(QList<record::Event> const& found)
{
    static QMap<QString, QString> const words{{u"connected"_s, u"Connected"_s},
                                              {u"disconnected"_s, u"Disconnected"_s},
                                              {u"refused"_s, u"VerificationFailed"_s},
                                              {u"done"_s, u"finished true"_s},
                                              {u"failed"_s, u"finished false"_s}};
    QStringList outcomes;
    for (auto const& event : found) {
        bool const is_status = event.name == QLatin1String(events::kStatus) && outcomes.isEmpty();
        if (is_status || event.name == QLatin1String(events::kUpdateFinished)) {
            auto const* const field = is_status ? fields::kValue : fields::kResult;
            outcomes.append(words.value(event.GetValue(field)));
        }
    }
    return outcomes;
}

// The image as far as it was sent, and anything for the rest of it: what replaced its end over
// UART, and what an update that failed did not come to.
QByteArray MakeImage(record::Recording const& recording, qsizetype size)
{
    QByteArray image(size, '\xFF');
    qint64 start = -1;
    for (auto const& exchange : session_view::ReadExchanges(recording)) {
        if (!exchange.place || exchange.data.isEmpty()) {
            continue;
        }
        start = start < 0 ? *exchange.place : start;
        auto const offset = *exchange.place - start;
        // Not the boot-mode marker, which is elsewhere.
        for (qsizetype i = 0; i < exchange.data.size() && offset >= 0 && offset + i < size; ++i) {
            image[offset + i] = exchange.data[i];
        }
    }
    return image;
}

// Where an answer took so long that a time-out may have decided, the recorded times are needed.
unsigned GetSpeed(record::Recording const& recording)
{
    constexpr std::chrono::nanoseconds kShortestTimeout = 1s;
    auto const exchanges = session_view::ReadExchanges(recording);
    bool const is_slow = std::ranges::any_of(exchanges, [&](auto const& exchange) {
        return std::chrono::nanoseconds(exchange.GetAnswerTime()) >= kShortestTimeout;
    });
    return is_slow ? 1 : 0;
}

class Replay : public testing::TestWithParam<std::string> {
protected:
    QString GetPath(QString const& suffix) const
    {
        return Folder().filePath(QString::fromStdString(GetParam()) + suffix);
    }

    QString const path_ = GetPath(u".pcapng"_s);
    record::Recording const recording_ = record::ReadPcapngFile(path_);
    QList<record::Event> const events_ = ReadEvents(recording_);
    QString const transport_ = FindValue(events_, events::kConnect, fields::kTransport);
    QStringList const expected_ = ReadOutcomes(events_);
    CollectedLog const log_;  // the backend warns of what was recorded

    QString GetConfig() const
    {
        auto const own = GetPath(u".ini"_s);
        return QFile::exists(own) ? own
                                  : QStringLiteral(FW_RESOURCES "/%1/config.ini").arg(transport_);
    }

    QString MakeImageFile() const
    {
        if (QFile::exists(GetPath(u".bin"_s))) {
            return GetPath(u".bin"_s);
        }
        auto const size = FindValue(events_, events::kImage, fields::kBytes).toLongLong();
        auto path = folder_.filePath(u"image.bin"_s);
        WriteFile(path, MakeImage(recording_, size));
        return path;
    }

    // Runs the session and returns its outcomes.
    QStringList Run(QString const& port, QString const& dfu_util)
    {
        QSettings const settings(GetConfig(), QSettings::IniFormat);
        auto const backend = MakeBackend(settings, MakeImageFile(), dfu_util).updater;
        QStringList outcomes;
        NoteSignals(*backend, [&](QString const& signal) {
            if (signal.startsWith(u"finished"_s) || signal.at(0).isUpper()) {
                outcomes.append(signal);
            }
        });
        backend->onConnectToDevice(port, ReadDeviceIds(settings), true);
        if (expected_.size() > 1 && outcomes == expected_.first(1)) {
            backend->onStartUpdate();
            QElapsedTimer timer;
            timer.start();
            while (outcomes.size() < expected_.size() && !timer.hasExpired(kLimitMs)) {
                QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
            }
        }
        return outcomes;
    }

    void ReplaySerial()
    {
        auto replay = simulator::ReadReplay(path_);
        replay.speed = GetSpeed(recording_);
        simulator::SimulatedUnitOptions options;
        options.bootloader = std::move(replay);
        options.port.name = simulator::MakeUniquePortName();
        simulator::SimulatedUnit unit(GetTestbed(), options);
        unit.Plug();

        EXPECT_EQ(Run(QString::fromStdString(options.port.name), {}), expected_);

        // The unit may still be reading a last request that nobody awaits an answer to.
        std::string journal;
        EXPECT_TRUE(QTest::qWaitFor([&] {
            journal.clear();
            for (auto const& entry : unit.Journal()) {
                journal += ToText(entry) + '\n';
            }
            return IsComplete(journal);
        })) << journal;
    }

    void ReplayUsb()
    {
        StandInTool tool;
        tool.Does(u"exec '%1' '%2' 0 \"$here/journal\" \"$@\""_s
                      .arg(QStringLiteral(FW_REPLAYED_DFU_UTIL), path_)
                      .toUtf8());
        EXPECT_EQ(Run({}, tool.Path()), expected_);
        auto const journal = tool.Read(u"journal"_s).toStdString();
        EXPECT_TRUE(IsComplete(journal)) << journal;
    }

    // All was received as recorded, once.
    static bool IsComplete(std::string const& journal)
    {
        return journal.find("\ncomplete") != std::string::npos &&
               journal.find("difference") == std::string::npos &&
               journal.find("begin-again") == std::string::npos;
    }

    static constexpr int kLimitMs = 60000;
    QTemporaryDir folder_;
};

TEST_P(Replay, EndsAsRecorded)
{
    ASSERT_EQ(recording_.error.toStdString(), "");
    ASSERT_FALSE(expected_.isEmpty()) << "the record has no outcome";
    if (transport_ == u"usb"_s) {
        ReplayUsb();
    } else {
        ReplaySerial();
    }
}

INSTANTIATE_TEST_SUITE_P(, Replay, testing::ValuesIn(ListRecordings()), [](auto const& row) {
    auto name = row.param;
    for (auto& character : name) {
        character = std::isalnum(static_cast<unsigned char>(character)) != 0 ? character : '_';
    }
    return name;
});

}  // namespace
