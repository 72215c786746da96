#include "app/session_record.h"

#include <QCoreApplication>
#include <QSysInfo>
#include <utility>

namespace {

namespace events = record::events;
namespace fields = record::fields;

QString GetTransportName(targetInterfaceType type)
{
    switch (type) {
        case TargetUsb:
            return QStringLiteral("usb");
        case TargetMcubootSerial:
            return QStringLiteral("mcuboot");
        case TargetUart:
            break;
    }
    return QStringLiteral("uart");
}

record::Event MakeEvent(char const* name)
{
    return {QLatin1String(name), {}};
}

record::Event MakeEvent(char const* name, char const* field, QString const& value)
{
    return {QLatin1String(name), {{QLatin1String(field), value}}};
}

// A connect that failed and a disconnect look alike; neither changes what the session has come to.
void RecordStatus(record::SessionRecorder& recorder, ConnectionStatus status)
{
    auto const add = [&](QString const& value) {
        recorder.AddEvent(MakeEvent(events::kStatus, fields::kValue, value));
        return value;
    };
    switch (status) {
        case ConnectionStatus::Connected:
            return recorder.SetOutcome(add(QStringLiteral("connected")));
        case ConnectionStatus::Disconnected:
            add(QStringLiteral("disconnected"));
            return recorder.EndSession();
        case ConnectionStatus::VerificationFailed:
            recorder.SetOutcome(add(QStringLiteral("refused")));
            return recorder.EndSession();
    }
}

// The window's state is in a line of the log, and nowhere else outside the window.
record::Event MakeLogEvent(QStringView text)
{
    constexpr QLatin1String kWindowState("info: window: ");
    if (text.startsWith(kWindowState)) {
        return MakeEvent(events::kWindow, fields::kState,
                         text.sliced(kWindowState.size()).toString());
    }
    return MakeEvent(events::kLog, fields::kText, text.trimmed().toString());
}

}  // namespace

record::RecorderSetup GetRecorderSetup(QString const& log_directory, targetInterfaceType type,
                                       SupportLog& log)
{
    return {
        log_directory.isEmpty() ? QString() : log_directory + QStringLiteral("/sessions"),
        GetTransportName(type),
        {QSysInfo::currentCpuArchitecture(),
         QStringLiteral("%1, kernel %2")
             .arg(QSysInfo::prettyProductName(), QSysInfo::kernelVersion()),
         QStringLiteral("Kelvane Firmware Updater %1").arg(QCoreApplication::applicationVersion())},
        [&log](QString const& text) { log.Write(text); }};
}

void RecordSessions(FirmwareUpdaterBase& backend, record::SessionRecorder& recorder)
{
    backend.SetRecord(recorder);
    // Without a receiver the functions run on the thread that emits the signal, so the events have
    // their place among the bytes.
    QObject::connect(&backend, &FirmwareUpdaterBase::UpdateConnectionStatus,
                     [&recorder](ConnectionStatus status) { RecordStatus(recorder, status); });
    QObject::connect(&backend, &FirmwareUpdaterBase::UpdateStarted, [&recorder] {
        recorder.AddEvent(MakeEvent(events::kUpdateStarted));
        recorder.SetOutcome(QStringLiteral("interrupted"));
    });
    QObject::connect(&backend, &FirmwareUpdaterBase::EraseStarted,
                     [&recorder] { recorder.AddEvent(MakeEvent(events::kEraseStarted)); });
    QObject::connect(&backend, &FirmwareUpdaterBase::EraseFinished,
                     [&recorder] { recorder.AddEvent(MakeEvent(events::kEraseFinished)); });
    QObject::connect(&backend, &FirmwareUpdaterBase::ProgressUpdate,
                     [&recorder, last = -1](int percent) mutable {
                         if (std::exchange(last, percent) != percent) {
                             recorder.AddEvent(MakeEvent(events::kProgress, fields::kPercent,
                                                         QString::number(percent)));
                         }
                     });
    QObject::connect(&backend, &FirmwareUpdaterBase::UpdateFinished, [&recorder](bool is_done) {
        auto const result = is_done ? QStringLiteral("done") : QStringLiteral("failed");
        recorder.AddEvent(MakeEvent(events::kUpdateFinished, fields::kResult, result));
        recorder.SetOutcome(result);
    });
}

LogRecorder::LogRecorder(SupportLog& log, record::ISink& record) : log_(log)
{
    log_.SetListener([&record](QStringView text) { record.AddEvent(MakeLogEvent(text)); });
}

LogRecorder::~LogRecorder()
{
    log_.SetListener({});
}
