// What the program does with a backend, without its widgets: the backend lives on a worker thread,
// takes queued requests and sends queued signals, and the window's table says what is shown.
#pragma once

#include <QObject>
#include <QString>
#include <QThread>
#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "app/window_state.h"
#include "updater/firmware_updater_base.h"

namespace cuts {

// Longer than anything may take; each time limit is compared afterwards.
inline constexpr std::chrono::seconds kPatience{90};

// Handles this thread's events until the condition holds; false if it does not within the limit.
bool WaitUntil(std::function<bool()> const& condition, std::chrono::milliseconds limit = kPatience);

// Belongs to the thread that constructs it.
class SerialClient : public QObject {
public:
    SerialClient(std::unique_ptr<FirmwareUpdaterBase> backend, targetInterfaceType type);
    // Waits for the worker thread, as the window does.
    ~SerialClient() override;

    // Requests to the backend, which handles them in their order.
    void Connect(QString const& port);
    void Update();
    void Disconnect();

    // Waits for the next event that the window shows; nothing if none comes. Handles this thread's
    // other events meanwhile.
    std::optional<WindowEvent> WaitForEvent();

    // Connects, and updates the unit when it is ready. Returns the event that ends the attempt.
    std::optional<WindowEvent> Attempt(QString const& port);

    WindowChange const& Shown() const { return shown_; }

    // What the worker thread has printed or warned of since the last call. Any thread.
    std::vector<std::string> TakeTexts();
    void AddText(std::string text);

private:
    void Show(WindowEvent event);

    std::unique_ptr<FirmwareUpdaterBase> backend_;
    targetInterfaceType type_;
    WindowChange shown_;
    std::deque<WindowEvent> events_;  // not yet waited for
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
