#include "tests/cuts/serial_client.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QTimer>
#include <QtGlobal>
#include <cstdio>
#include <string_view>
#include <utility>

#include "runtime/console.h"
#include "tests/cuts/serial_transport.h"
#include "tests/support/shown_window.h"

namespace cuts {
namespace {

thread_local SerialClient* t_client = nullptr;
QtMessageHandler g_previous_handler = nullptr;

void TakeWarning(QtMsgType type, QMessageLogContext const& context, QString const& text)
{
    if (type == QtDebugMsg || type == QtInfoMsg) {
        return;
    }
    if (t_client != nullptr) {
        t_client->AddText(text.toStdString());
    } else {
        g_previous_handler(type, context, text);
    }
}

void TakePrinted(std::string_view text)
{
    if (t_client != nullptr) {
        t_client->AddText(std::string(text));
    }
}

}  // namespace

bool WaitUntil(std::function<bool()> const& condition, std::chrono::milliseconds limit)
{
    QDeadlineTimer const end(limit);
    // So that no wait for more events is without end.
    QTimer tick;
    tick.start(std::chrono::milliseconds(500));
    while (!condition()) {
        if (end.hasExpired()) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

SerialClient::SerialClient(std::unique_ptr<FirmwareUpdaterBase> backend, targetInterfaceType type)
    : backend_(std::move(backend)), type_(type)
{
    using Base = FirmwareUpdaterBase;
    backend_->moveToThread(&worker_);
    worker_.start();
    auto* const object = backend_.get();
    auto const register_worker = [this] { t_client = this; };
    QMetaObject::invokeMethod(object, register_worker, Qt::QueuedConnection);
    QObject::connect(object, &Base::UpdateStarted, this,
                     [this] { Show(WindowEvent::UpdateStarted); });
    QObject::connect(object, &Base::UpdateFinished, this, [this](bool status) {
        Show(status ? WindowEvent::UpdateSucceeded : WindowEvent::UpdateFailed);
    });
    QObject::connect(object, &Base::ProgressUpdate, this,
                     [this](int percent) { shown_.progress_value = percent; });
    QObject::connect(object, &Base::UpdateConnectionStatus, this,
                     [this](ConnectionStatus status) { Show(GetConnectionEvent(status).value()); });
}

SerialClient::~SerialClient()
{
    worker_.quit();
    worker_.wait();
}

void SerialClient::Connect(QString const& port)
{
    auto* const backend = backend_.get();
    QMetaObject::invokeMethod(
        backend, [=] { backend->onConnectToDevice(port, {kUnitModel}, true); },
        Qt::QueuedConnection);
}

void SerialClient::Update()
{
    QMetaObject::invokeMethod(backend_.get(), &FirmwareUpdaterBase::onStartUpdate,
                              Qt::QueuedConnection);
}

void SerialClient::Disconnect()
{
    QMetaObject::invokeMethod(backend_.get(), &FirmwareUpdaterBase::onDisconnectDevice,
                              Qt::QueuedConnection);
}

void SerialClient::Show(WindowEvent event)
{
    ShowChange(shown_, GetWindowChange(event, type_));
    events_.push_back(event);
}

std::optional<WindowEvent> SerialClient::WaitForEvent()
{
    if (!WaitUntil([this] { return !events_.empty(); })) {
        return std::nullopt;
    }
    auto const event = events_.front();
    events_.pop_front();
    return event;
}

std::optional<WindowEvent> SerialClient::Attempt(QString const& port)
{
    Connect(port);
    auto event = WaitForEvent();
    if (event == WindowEvent::UnitConnected) {
        Update();
        do {
            event = WaitForEvent();
        } while (event == WindowEvent::UpdateStarted || event == WindowEvent::EraseStarted ||
                 event == WindowEvent::EraseFinished);
    }
    return event;
}

std::vector<std::string> SerialClient::TakeTexts()
{
    std::lock_guard const lock(mutex_);
    return std::exchange(texts_, {});
}

void SerialClient::AddText(std::string text)
{
    std::lock_guard const lock(mutex_);
    texts_.push_back(std::move(text));
}

// The engine also prints to standard output; what many of them print at once helps nobody.
ClientTexts::ClientTexts()
{
    testing::internal::CaptureStdout();
    g_previous_handler = qInstallMessageHandler(&TakeWarning);
    kelvane::SetConsoleListener(&TakePrinted);
}

ClientTexts::~ClientTexts()
{
    kelvane::SetConsoleListener(nullptr);
    qInstallMessageHandler(g_previous_handler);
    auto const printed = testing::internal::GetCapturedStdout();
    // The failures of the test are among it.
    if (testing::Test::HasFailure()) {
        std::fwrite(printed.data(), 1, printed.size(), stdout);
    }
}

}  // namespace cuts
