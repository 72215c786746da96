// What the window shows after each event of an update, as a table: it maps event and transport to
// changes of button and progress bar. Pure; the window only copies the changes to its widgets.
#pragma once

#include <QString>
#include <optional>

#include "config/startup_config.h"
#include "updater/firmware_updater_base.h"

enum class WindowEvent {
    UpdateRequested,  // the button was clicked
    UpdateStarted,
    UpdateSucceeded,
    UpdateFailed,
    UnitConnected,
    UnitDisconnected,
    UnitRefused,  // this firmware is for a different model
    EraseStarted,
    EraseFinished,
};

enum class ButtonStyle { Disabled, Ready };

// An empty member leaves the widget unchanged.
struct WindowChange {
    std::optional<QString> button_text;
    std::optional<ButtonStyle> button_style;
    std::optional<bool> button_enabled;
    std::optional<int> progress_value;
    std::optional<QString> progress_format;
    std::optional<bool> unit_ready;

    bool operator==(WindowChange const&) const = default;
};

WindowChange GetWindowChange(WindowEvent event, targetInterfaceType type);

// The event that belongs to a connection status; none for a value outside the enumeration.
std::optional<WindowEvent> GetConnectionEvent(ConnectionStatus status);

QString GetButtonStyleSheet(ButtonStyle style);

// The state after the event, in words for screen readers.
QString GetStatusText(WindowEvent event);

// For the log.
QString GetEventName(WindowEvent event);
