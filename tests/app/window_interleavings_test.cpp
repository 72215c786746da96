// Every order in which looks for a unit, answers of the backend, presses, plugging and unplugging
// can follow each other, played against the window's table and the decisions of the detection. The
// two queues between window and backend are lists here, so that every order costs one step.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "app/unit_detection.h"
#include "app/window_state.h"

using namespace Qt::StringLiterals;

namespace {

enum class Request { Connect, Disconnect, Update };

// What the backend sends to the window: an event of the table, or a percentage.
struct Report {
    std::optional<WindowEvent> event;
    int percentage = 0;

    bool operator<(Report const& other) const
    {
        return std::tie(event, percentage) < std::tie(other.event, other.percentage);
    }
};

struct World {
    int attached = 0;     // units
    bool looking = true;  // the detection has not ended
    std::vector<Request> requests;
    std::vector<Report> reports;
    bool update_runs = false;  // in the backend

    bool unit_ready = false;
    bool button_enabled = false;
    QString button_text = u"UPDATE"_s;
    int bar = 0;
    int updates_asked_for = 0;  // whose end the window has not seen
    bool start_seen = false;    // of the update asked for
    bool late_answer = false;   // a unit was connected between the press and that start

    auto GetKey() const
    {
        return std::tie(attached, looking, requests, reports, update_runs, unit_ready,
                        button_enabled, button_text, bar, updates_asked_for, start_seen,
                        late_answer);
    }

    bool operator<(World const& other) const { return GetKey() < other.GetKey(); }
};

using Table = std::function<WindowChange(WindowEvent, targetInterfaceType)>;

// What can wait: a connect that is under way, one that was queued four seconds later, and the
// update or the disconnect after it. The window keeps up with the backend, but for two reports.
constexpr size_t kMostRequests = 3;
constexpr size_t kMostReports = 2;

class Orders {
public:
    Orders(targetInterfaceType type, Table table) : type_(type), table_(std::move(table)) {}

    // Plays all of them until one breaks a rule; its steps, or nothing.
    std::string FindBrokenRule()
    {
        Visit({}, 0, "start");
        while (next_ < found_.size() && broken_.empty()) {
            TakeEveryStep();
            ++next_;
        }
        return broken_;
    }

    size_t CountStates() const { return found_.size(); }
    std::set<WindowEvent> const& ShownEvents() const { return shown_; }
    // States in which the button is enabled although an update is asked for.
    size_t CountLateButtons() const { return late_buttons_; }

private:
    struct Found {
        World const* world;
        size_t from;
        std::string step;
    };

    void TakeEveryStep()
    {
        auto const world = *found_[next_].world;
        for (int const attached : {world.attached - 1, world.attached + 1}) {
            if (attached >= 0 && attached <= 2) {
                auto plugged = world;
                plugged.attached = attached;
                Visit(plugged, next_, attached < world.attached ? "unplug" : "plug");
            }
        }
        if (world.looking && world.requests.size() < kMostRequests) {
            Visit(Look(world), next_, "look");
        }
        // A second press while an update is asked for is possible only in the exception below.
        if (world.button_enabled && world.updates_asked_for == 0 &&
            world.requests.size() < kMostRequests) {
            Visit(Press(world), next_, "press");
        }
        if (!world.reports.empty()) {
            Visit(HandleReport(world), next_, "report handled");
        }
        if (world.reports.size() < kMostReports) {
            LetBackendWork(world);
        }
    }

    World Look(World world) const
    {
        QStringList const units(world.attached, u"unit"_s);
        auto const detection =
            type_ == TargetUsb ? DecideUsb(units, {}) : DecideSerial(units, world.unit_ready, {});
        world.looking = detection.check_again.has_value();
        if (detection.action == DetectionAction::Connect) {
            world.requests.push_back(Request::Connect);
        } else if (detection.action == DetectionAction::Disconnect) {
            world.requests.push_back(Request::Disconnect);
        }
        return world;
    }

    World Press(World world)
    {
        Show(world, WindowEvent::UpdateRequested);
        world.requests.push_back(Request::Update);
        ++world.updates_asked_for;
        world.start_seen = false;
        world.late_answer = false;
        return world;
    }

    World HandleReport(World world)
    {
        auto const report = world.reports.front();
        world.reports.erase(world.reports.begin());
        if (!report.event) {
            world.bar = report.percentage;
            return world;
        }
        Show(world, *report.event);
        if (report.event == WindowEvent::UpdateStarted) {
            world.start_seen = true;
        } else if (report.event == WindowEvent::UnitConnected) {
            world.late_answer = world.updates_asked_for > 0;
        } else if (report.event == WindowEvent::UpdateSucceeded ||
                   report.event == WindowEvent::UpdateFailed) {
            --world.updates_asked_for;
        }
        return world;
    }

    void Show(World& world, WindowEvent event)
    {
        shown_.insert(event);
        auto const change = table_(event, type_);
        world.unit_ready = change.unit_ready.value_or(world.unit_ready);
        world.button_enabled = change.button_enabled.value_or(world.button_enabled);
        world.button_text = change.button_text.value_or(world.button_text);
        world.bar = change.progress_value.value_or(world.bar);
    }

    void LetBackendWork(World const& world)
    {
        if (world.update_runs) {
            ContinueUpdate(world);
        } else if (!world.requests.empty()) {
            auto rest = world;
            rest.requests.erase(rest.requests.begin());
            TakeRequest(rest, world.requests.front());
        }
    }

    void TakeRequest(World const& world, Request request)
    {
        using enum WindowEvent;
        switch (request) {
            case Request::Connect:
                VisitReport(world, {UnitConnected});
                VisitReport(world, {UnitRefused});
                VisitReport(world, {UnitDisconnected});
                break;
            case Request::Disconnect:
                VisitReport(world, {UnitDisconnected});
                break;
            case Request::Update: {
                auto started = world;
                started.update_runs = true;
                VisitReport(started, {UpdateStarted});
                break;
            }
        }
    }

    void ContinueUpdate(World const& world)
    {
        constexpr int kHalf = 50;
        constexpr int kAll = 100;
        VisitReport(world, {.event = {}, .percentage = kHalf});
        if (type_ == TargetUsb) {
            VisitReport(world, {WindowEvent::EraseStarted});
            VisitReport(world, {WindowEvent::EraseFinished});
        }
        auto ended = world;
        ended.update_runs = false;
        for (auto const end : {WindowEvent::UpdateSucceeded, WindowEvent::UpdateFailed}) {
            VisitReport(ended, {end});
            if (type_ == TargetUsb) {
                // The next look at the tool's output comes after its end.
                auto looked = ended;
                looked.reports.push_back({end});
                VisitReport(looked, {.event = {}, .percentage = kAll});
            }
        }
    }

    void VisitReport(World world, Report const& report)
    {
        world.reports.push_back(report);
        Visit(world, next_,
              report.event ? GetEventName(*report.event).toStdString() + " reported"
                           : std::to_string(report.percentage) + " reported");
    }

    void Visit(World const& world, size_t from, std::string step)
    {
        auto const [place, is_new] = worlds_.insert(world);
        if (!is_new) {
            return;
        }
        found_.push_back({&*place, from, std::move(step)});
        auto const rule = Judge(world);
        if (!rule.empty() && broken_.empty()) {
            broken_ = rule + " after " + GetSteps(found_.size() - 1);
        }
    }

    std::string Judge(World const& world)
    {
        if (world.button_enabled && !world.unit_ready) {
            return "button enabled without a unit";
        }
        if (world.button_text == u"DONE"_s && world.bar > 0 && world.bar < 100) {
            return "bar below its end beside DONE";
        }
        if (world.button_enabled && world.updates_asked_for > 0) {
            // The one exception: on a serial line a second connect was queued, because the first
            // took longer than the detection waits. Its answer enables the button that was just
            // pressed, until the update's start, which the backend sends right after it, arrives.
            if (world.start_seen || !world.late_answer || type_ == TargetUsb) {
                return "button enabled during an update";
            }
            ++late_buttons_;
        }
        return {};
    }

    std::string GetSteps(size_t index) const
    {
        std::string steps = found_[index].step;
        while (index != 0) {
            index = found_[index].from;
            steps.insert(0, found_[index].step + ", ");
        }
        return steps;
    }

    targetInterfaceType type_;
    Table table_;
    std::set<World> worlds_;
    std::vector<Found> found_;
    size_t next_ = 0;
    std::string broken_;
    std::set<WindowEvent> shown_;
    size_t late_buttons_ = 0;
};

constexpr auto kEveryTransport = {TargetUart, TargetUsb, TargetMcubootSerial};

}  // namespace

TEST(WindowInterleavings, BreakNoRule)
{
    using enum WindowEvent;
    std::set const serial{UpdateRequested, UpdateStarted,    UpdateSucceeded, UpdateFailed,
                          UnitConnected,   UnitDisconnected, UnitRefused};
    auto usb = serial;
    usb.insert({EraseStarted, EraseFinished});
    for (auto const type : kEveryTransport) {
        SCOPED_TRACE(type);
        Orders orders(type, GetWindowChange);

        EXPECT_EQ(orders.FindBrokenRule(), "");

        EXPECT_EQ(orders.ShownEvents(), type == TargetUsb ? usb : serial);
        EXPECT_EQ(orders.CountLateButtons() > 0, type != TargetUsb);
        RecordProperty("states_" + std::to_string(type), static_cast<int>(orders.CountStates()));
    }
}

// A table with one wrong row: the rules above notice each.
TEST(WindowInterleavings, NoticeARowThatBreaksARule)
{
    struct Mistake {
        WindowEvent event;
        std::function<void(WindowChange&)> make;
        char const* rule;
    };
    auto const keeps_button = [](WindowChange& row) { row.button_enabled.reset(); };
    Mistake const mistakes[] = {
        {WindowEvent::UpdateRequested, keeps_button, "button enabled during an update"},
        {WindowEvent::UpdateStarted, keeps_button, "button enabled during an update"},
        {WindowEvent::UnitDisconnected, keeps_button, "button enabled without a unit"},
        {WindowEvent::UnitRefused, keeps_button, "button enabled without a unit"},
        {WindowEvent::UpdateSucceeded, [](WindowChange& row) { row.progress_value.reset(); },
         "bar below its end beside DONE"},
    };
    for (auto const& mistake : mistakes) {
        SCOPED_TRACE(GetEventName(mistake.event).toStdString());
        Orders orders(TargetMcubootSerial, [&](WindowEvent event, targetInterfaceType type) {
            auto row = GetWindowChange(event, type);
            if (event == mistake.event) {
                mistake.make(row);
            }
            return row;
        });

        EXPECT_TRUE(orders.FindBrokenRule().starts_with(mistake.rule));
    }
}
