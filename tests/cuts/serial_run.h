// One update over a line that fails, and a second attempt: the unit is unplugged, comes back in its
// bootloader on a new port, and is updated.
#pragma once

#include <QElapsedTimer>
#include <QTimer>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/cuts/serial_client.h"
#include "tests/cuts/serial_transport.h"
#include "tests/cuts/serial_unit.h"

namespace cuts {

// How the program meets the unit again.
enum class Return {
    kAfterDisconnect,  // under the same name; the window has seen in between that it was gone
    kUnderAnotherName,
};

struct AttemptReport {
    AttemptResult result = AttemptResult::kNoUnit;
    std::chrono::milliseconds time_to_end{0};  // from the cut to the signal that ends the attempt
    SerialClient::Shown shown;
    std::vector<std::string> texts;  // of the worker thread
    bool unit_holds_image = false;
};

class SerialRun : public QObject {
public:
    // `folder`: for the ports' names, which begin with `name`. No cut: one update that succeeds.
    SerialRun(SerialTransport const& transport, QString const& folder, QString const& name,
              std::optional<SerialCut> cut, Return comes_back);

    // Begins; `on_end` is called once, when the run has ended or has taken too long.
    void Start(std::function<void()> const& on_end);

    // Empty if all went well so far.
    std::string const& Problem() const { return problem_; }
    // A run that is stuck cannot be destroyed: its worker thread would be waited for.
    bool IsStuck() const { return is_stuck_; }
    AttemptReport const& FirstAttempt() const { return first_; }
    SerialUnit& Unit() { return *unit_; }

private:
    enum class Stage {
        kFirst,
        kCutToCome,
        kDisconnecting,
        kSecond,
        kRestartToCome,
        kClosing,
        kEnd
    };

    void TakeEvent(WindowEvent event);
    void TakeProgress();
    void EndFirst(AttemptResult result);
    void StartSecond();
    void EndSecond(WindowEvent event);
    void CheckRestart();
    void Connect();
    void End(std::string const& problem = {});

    SerialTransport const& transport_;
    QString port_;
    std::optional<SerialCut> cut_;
    Return comes_back_;
    std::unique_ptr<SerialUnit> unit_;
    std::unique_ptr<SerialClient> client_;
    std::function<void()> on_end_;
    Stage stage_ = Stage::kFirst;
    QElapsedTimer since_cut_;
    QTimer deadline_;
    AttemptReport first_;
    std::string problem_;
    bool is_stuck_ = false;
};

}  // namespace cuts
