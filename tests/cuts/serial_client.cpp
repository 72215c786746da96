#include "tests/cuts/serial_client.h"

#include <gtest/gtest.h>

#include <QtGlobal>
#include <cstdio>
#include <string_view>
#include <utility>

#include "runtime/console.h"

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

SerialClient::SerialClient(std::unique_ptr<FirmwareUpdaterBase> backend, targetInterfaceType type)
    : backend_(std::move(backend)), type_(type)
{
    using Base = FirmwareUpdaterBase;
    backend_->moveToThread(&worker_);
    worker_.start();
    auto const register_worker = [this] { t_client = this; };
    QMetaObject::invokeMethod(backend_.get(), register_worker, Qt::QueuedConnection);
    auto* const backend_object = backend_.get();
    QObject::connect(backend_object, &Base::UpdateStarted, this,
                     [this] { Show(WindowEvent::UpdateStarted); });
    QObject::connect(backend_object, &Base::UpdateFinished, this, [this](bool status) {
        Show(status ? WindowEvent::UpdateSucceeded : WindowEvent::UpdateFailed);
    });
    QObject::connect(backend_object, &Base::ProgressUpdate, this,
                     [this](int percent) { shown_.progress_value = percent; });
    QObject::connect(backend_object, &Base::UpdateConnectionStatus, this,
                     [this](ConnectionStatus status) {
                         if (auto const event = GetConnectionEvent(status)) {
                             Show(*event);
                         }
                     });
}

SerialClient::~SerialClient()
{
    worker_.quit();
    worker_.wait();
}

void SerialClient::Connect(QString const& port, uint8_t model_id)
{
    auto* const backend = backend_.get();
    QMetaObject::invokeMethod(
        backend, [=] { backend->onConnectToDevice(port, {model_id}, true); }, Qt::QueuedConnection);
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
    auto const change = GetWindowChange(event, type_);
    shown_.button_text = change.button_text.value_or(shown_.button_text);
    shown_.button_enabled = change.button_enabled.value_or(shown_.button_enabled);
    shown_.progress_value = change.progress_value.value_or(shown_.progress_value);
    shown_.progress_format = change.progress_format.value_or(shown_.progress_format);
    shown_.unit_ready = change.unit_ready.value_or(shown_.unit_ready);
    if (on_event) {
        on_event(event);
    }
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
