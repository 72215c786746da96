// What the program does with a backend, without its widgets: the backend lives on a worker thread,
// takes queued requests and sends queued signals, and the window's table says what is shown.
#pragma once

#include <QObject>
#include <QString>
#include <QThread>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "app/window_state.h"
#include "updater/firmware_updater_base.h"

namespace cuts {

class SerialClient : public QObject {
public:
    // What the window shows.
    struct Shown {
        QString button_text;
        bool button_enabled = false;
        int progress_value = 0;
        QString progress_format;
        bool unit_ready = false;
    };

    SerialClient(std::unique_ptr<FirmwareUpdaterBase> backend, targetInterfaceType type);
    // Waits for the worker thread, as the window does.
    ~SerialClient() override;

    // Requests to the backend, which handles them in their order.
    void Connect(QString const& port, uint8_t model_id);
    void Update();
    void Disconnect();

    FirmwareUpdaterBase& Backend() { return *backend_; }
    Shown const& GetShown() const { return shown_; }

    // What the worker thread has printed or warned of since the last call. Any thread.
    std::vector<std::string> TakeTexts();
    void AddText(std::string text);

    // Called for each signal of the backend, when the window has shown it.
    std::function<void(WindowEvent)> on_event;

private:
    void Show(WindowEvent event);

    std::unique_ptr<FirmwareUpdaterBase> backend_;
    targetInterfaceType type_;
    Shown shown_;
    std::mutex mutex_;
    std::vector<std::string> texts_;  // guarded by mutex_
    QThread worker_;
};

// While it lives, what a worker thread of a SerialClient prints or warns of goes to that client.
// There must be only one at a time.
class ClientTexts {
public:
    ClientTexts();
    ~ClientTexts();
    ClientTexts(ClientTexts const&) = delete;
    ClientTexts& operator=(ClientTexts const&) = delete;
};

}  // namespace cuts
