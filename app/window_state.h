// What the window shows after each event of an update, as a table: event and transport in, changes
// of button and progress bar out. Pure; the window only copies the changes to its widgets.
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
    UnitRefused,  // the unit is no model that this firmware is meant for
    EraseStarted,
    EraseFinished,
};

enum class ButtonStyle { Disabled, Ready };

// An empty member leaves its widget as it is.
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

// The event that a connection status stands for; none for a value outside the enumeration.
std::optional<WindowEvent> GetConnectionEvent(ConnectionStatus status);

QString GetButtonStyleSheet(ButtonStyle style);

// The state that the event leads to, in words for those who hear the window instead of seeing it.
QString GetStatusText(WindowEvent event);

// For the log.
QString GetEventName(WindowEvent event);
