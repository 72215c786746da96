#include "tests/random_walk/window_log.h"

#include <QRegularExpression>
#include <optional>

#include "tests/support/shown_window.h"

using namespace Qt::StringLiterals;

namespace {

std::optional<WindowEvent> FindEvent(QString const& name)
{
    using enum WindowEvent;
    for (auto const event :
         {UpdateRequested, UpdateStarted, UpdateSucceeded, UpdateFailed, UnitConnected,
          UnitDisconnected, UnitRefused, EraseStarted, EraseFinished}) {
        if (GetEventName(event) == name) {
            return event;
        }
    }
    return std::nullopt;
}

// What must not be true before `event`; empty if all is well.
QString FindContradiction(WindowLog const& log, WindowEvent event)
{
    switch (event) {
        case WindowEvent::UpdateRequested:
            return log.shown.button_enabled == true ? QString()
                                                    : u"a press of a disabled button counted"_s;
        case WindowEvent::UpdateStarted:
            if (log.IsUpdating()) {
                return u"an update started during another one"_s;
            }
            return log.Started() < log.Requested() ? QString()
                                                   : u"an update started that nobody asked for"_s;
        case WindowEvent::UpdateSucceeded:
        case WindowEvent::UpdateFailed:
            return log.IsUpdating() ? QString() : u"an update ended that had not started"_s;
        default:
            return {};
    }
}

}  // namespace

WindowLog ReadWindowLog(QByteArray const& log, targetInterfaceType type)
{
    static QRegularExpression const line(
        u" window: ([^\n]*)\n| attached: ([^\n]*)\n|Failed to open port \"([^\"\n]*)\""_s);
    WindowLog result;
    result.shown = GetWindowChange(WindowEvent::UnitDisconnected, type);
    qsizetype units = 0;
    for (auto const& match : line.globalMatch(QString::fromUtf8(log))) {
        if (!match.captured(3).isEmpty()) {
            result.unopenable_port = match.captured(3);
        }
        if (match.hasCaptured(2)) {
            // Ports with USB ids have these in brackets; here they all belong to units.
            units = match.captured(2).count(u'(');
        }
        if (auto const event = FindEvent(match.captured(1))) {
            auto const contradiction = FindContradiction(result, *event);
            if (result.contradiction.isEmpty()) {
                result.contradiction = contradiction;
            }
            ++result.counts[*event];
            ++result.events;
            result.last_event = match.captured(1);
            ShowChange(result.shown, GetWindowChange(*event, type));
            result.unit_ready = result.shown.unit_ready.value_or(false);
        }
        if (units > 1 && !result.unit_ready) {
            result.may_have_stopped_looking = true;
        }
    }
    return result;
}
