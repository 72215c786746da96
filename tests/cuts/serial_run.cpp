#include "tests/cuts/serial_run.h"

#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>

#include "simulator/chips/chips.h"
#include "tests/cuts/serial_client.h"

namespace cuts {
namespace {

std::unique_ptr<SerialClient> MakeClient(SerialTransport const& transport, QString const& folder)
{
    return std::make_unique<SerialClient>(transport.make_backend(folder + QStringLiteral("/image")),
                                          transport.type);
}

AttemptResult GetResult(std::optional<WindowEvent> event)
{
    using enum WindowEvent;
    return event == UnitDisconnected ? AttemptResult::kNoUnit
           : event == UnitRefused    ? AttemptResult::kRefused
           : event == UpdateFailed   ? AttemptResult::kFailed
                                     : AttemptResult::kDone;
}

void Require(bool condition, char const* what)
{
    if (!condition) {
        throw std::runtime_error(what);
    }
}

// The next attempt, of a unit that is plugged in again. Throws std::runtime_error.
void CheckUpdate(SerialTransport const& transport, SerialUnit& unit, SerialClient& client,
                 QString const& port)
{
    unit.Plug(port);
    Require(client.Attempt(port) == WindowEvent::UpdateSucceeded, "the update does not succeed");
    // The last bytes may arrive after the signal that ends the attempt.
    Require(WaitUntil([&] { return RunsFirmware(unit.Bootloader()); }), "no restart");
    Require(HoldsImage(transport, unit.Bootloader()), "the unit runs another image");
    auto const texts = client.TakeTexts();
    Require(texts.empty(), texts.empty() ? "" : texts.front().c_str());
    client.Disconnect();
    Require(client.WaitForEvent() == WindowEvent::UnitDisconnected, "an attempt ends twice");
}

}  // namespace

SerialRun PlayCut(SerialTransport const& transport, QString const& folder, QString const& name,
                  SerialCut const& cut, Return comes_back)
{
    auto port = folder + QLatin1Char('/') + name;
    SerialUnit unit(transport.make_unit());
    auto client = MakeClient(transport, folder);
    SerialRun run;
    unit.Plug(port, cut);
    auto const end = client->Attempt(port);
    if (!end) {
        static_cast<void>(client.release());
        run.problem = "it does not end";
        return run;
    }
    auto const end_time = std::chrono::steady_clock::now();
    run.result = GetResult(end);
    run.shown = client->Shown();
    run.texts = client->TakeTexts();
    run.unit_holds_image = HoldsImage(transport, unit.Bootloader());
    Require(WaitUntil([&] { return unit.CutTime().has_value(); }), "there was no cut");
    run.time_to_end = std::chrono::ceil<std::chrono::milliseconds>(end_time - *unit.CutTime());
    unit.Unplug();
    if (HoldsImage(transport, unit.Bootloader())) {
        // The second attempt has something to do.
        auto const size = static_cast<size_t>(transport.expected_flash.size());
        unit.Bootloader().Memory().Load(simulator::kFlashStart, std::vector(size, std::byte{0}));
    }
    try {
        if (comes_back == Return::kUnderAnotherName) {
            port += QStringLiteral("-other");
        } else {
            client->Disconnect();
            Require(client->WaitForEvent() == WindowEvent::UnitDisconnected,
                    "an attempt ends twice");
        }
        CheckUpdate(transport, unit, *client, port);
    } catch (std::runtime_error const& error) {
        static_cast<void>(client.release());
        run.problem = std::string("next attempt: ") + error.what();
    }
    return run;
}

std::unique_ptr<SerialUnit> PlaySoundUpdate(SerialTransport const& transport, QString const& folder)
{
    auto unit = std::make_unique<SerialUnit>(transport.make_unit());
    auto const client = MakeClient(transport, folder);
    CheckUpdate(transport, *unit, *client, folder + QStringLiteral("/sound"));
    return unit;
}

}  // namespace cuts
