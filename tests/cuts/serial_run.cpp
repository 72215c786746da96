#include "tests/cuts/serial_run.h"

#include <utility>

#include "simulator/chips/chips.h"

namespace cuts {
namespace {

using namespace std::chrono_literals;

// Longer than any run may take; each time limit is compared when the run has ended.
constexpr auto kStuck = 90s;

// The attempt that ends with this event; none for other events.
std::optional<AttemptResult> GetResult(WindowEvent event)
{
    switch (event) {
        case WindowEvent::UnitDisconnected:
            return AttemptResult::kNoUnit;
        case WindowEvent::UnitRefused:
            return AttemptResult::kRefused;
        case WindowEvent::UpdateFailed:
            return AttemptResult::kFailed;
        case WindowEvent::UpdateSucceeded:
            return AttemptResult::kDone;
        case WindowEvent::UpdateRequested:
        case WindowEvent::UpdateStarted:
        case WindowEvent::UnitConnected:
        case WindowEvent::EraseStarted:
        case WindowEvent::EraseFinished:
            break;
    }
    return std::nullopt;
}

}  // namespace

SerialRun::SerialRun(SerialTransport const& transport, QString const& folder, QString const& name,
                     std::optional<SerialCut> cut, Return comes_back)
    : transport_(transport),
      port_(folder + QLatin1Char('/') + name),
      cut_(cut),
      comes_back_(comes_back),
      unit_(std::make_unique<SerialUnit>(transport.make_unit())),
      client_(std::make_unique<SerialClient>(
          transport.make_backend(folder + QStringLiteral("/image")), transport.type))
{
    client_->on_event = [this](WindowEvent event) { TakeEvent(event); };
    unit_->on_progress = [this] { TakeProgress(); };
    deadline_.setSingleShot(true);
    QObject::connect(&deadline_, &QTimer::timeout, this, [this] {
        is_stuck_ = true;
        End("it does not end");
    });
}

void SerialRun::Start(std::function<void()> const& on_end)
{
    on_end_ = on_end;
    deadline_.start(kStuck);
    unit_->Plug(port_, cut_);
    Connect();
}

void SerialRun::Connect()
{
    client_->Connect(port_, kUnitModel);
}

void SerialRun::TakeProgress()
{
    if (unit_->IsCut() && !since_cut_.isValid()) {
        since_cut_.start();
    }
    // The last bytes may arrive after the signal that ends the attempt.
    if (stage_ == Stage::kCutToCome && unit_->IsCut()) {
        StartSecond();
    } else if (stage_ == Stage::kRestartToCome) {
        CheckRestart();
    }
}

void SerialRun::TakeEvent(WindowEvent event)
{
    auto const result = GetResult(event);
    if (event == WindowEvent::UnitConnected) {
        client_->Update();
    } else if (result && stage_ == Stage::kFirst) {
        EndFirst(*result);
    } else if (result && stage_ == Stage::kDisconnecting) {
        stage_ = Stage::kSecond;
        unit_->Plug(port_);
        Connect();
    } else if (result && stage_ == Stage::kSecond) {
        EndSecond(event);
    } else if (result && stage_ == Stage::kClosing) {
        End();
    } else if (result) {
        End("an attempt ends twice: " + GetEventName(event).toStdString());
    }
}

void SerialRun::EndFirst(AttemptResult result)
{
    first_.result = result;
    first_.time_to_end = std::chrono::milliseconds(since_cut_.isValid() ? since_cut_.elapsed() : 0);
    first_.shown = client_->GetShown();
    first_.texts = client_->TakeTexts();
    first_.unit_holds_image = HoldsImage(transport_, unit_->Bootloader());
    if (!cut_) {
        stage_ = Stage::kRestartToCome;
        CheckRestart();
    } else if (unit_->IsCut()) {
        StartSecond();
    } else {
        stage_ = Stage::kCutToCome;
    }
}

void SerialRun::StartSecond()
{
    unit_->Unplug();
    if (HoldsImage(transport_, unit_->Bootloader())) {
        // The second attempt has something to do.
        auto const size = static_cast<size_t>(transport_.expected_flash.size());
        unit_->Bootloader().Memory().Load(simulator::kFlashStart,
                                          std::vector<std::byte>(size, std::byte{0}));
    }
    if (comes_back_ == Return::kAfterDisconnect) {
        stage_ = Stage::kDisconnecting;
        client_->Disconnect();
        return;
    }
    stage_ = Stage::kSecond;
    port_ += QStringLiteral("-other");
    unit_->Plug(port_);
    Connect();
}

void SerialRun::EndSecond(WindowEvent event)
{
    if (event != WindowEvent::UpdateSucceeded) {
        End("second attempt: " + GetEventName(event).toStdString());
        return;
    }
    stage_ = Stage::kRestartToCome;
    CheckRestart();
}

void SerialRun::CheckRestart()
{
    if (!RunsFirmware(unit_->Bootloader())) {
        return;
    }
    if (!HoldsImage(transport_, unit_->Bootloader())) {
        End("the unit runs another image");
        return;
    }
    if (auto const texts = client_->TakeTexts(); !texts.empty()) {
        End("second attempt: " + texts.front());
        return;
    }
    stage_ = Stage::kClosing;
    client_->Disconnect();
}

void SerialRun::End(std::string const& problem)
{
    if (stage_ == Stage::kEnd) {
        problem_ += problem;
        return;
    }
    stage_ = Stage::kEnd;
    problem_ = problem;
    deadline_.stop();
    on_end_();
}

}  // namespace cuts
