#include "app/window_state.h"

namespace {

auto const kButtonDisabledStyle = QStringLiteral(
    "background-color: rgba(249, 249, 249,1); color: rgba(204, 204, 204, 1); border: none; "
    "border-radius: 3px;");
auto const kButtonReadyStyle = QStringLiteral(
    "background-color: rgba(249, 249, 249,1); color: rgba(0, 0, 0, 1); border: none; "
    "border-radius: 3px;");

QString TextUpdate()
{
    return QStringLiteral("UPDATE");
}
QString FormatNone()
{
    return QStringLiteral("");
}
QString FormatPercent()
{
    return QStringLiteral("%p%");
}
QString FormatError()
{
    return QString::fromUtf8(
        "Error connecting to device \xE2\x80\x94 Disconnect device and repeat step 1-3");
}

}  // namespace

WindowChange GetWindowChange(WindowEvent event, targetInterfaceType type)
{
    WindowChange change;
    switch (event) {
        case WindowEvent::UpdateRequested:
            change.button_enabled = false;
            break;
        case WindowEvent::UpdateStarted:
            // A late answer to a connect may have enabled it again since the press.
            change.button_enabled = false;
            change.button_text = QStringLiteral("UPDATING");
            change.button_style = ButtonStyle::Ready;
            // Over USB the percentage appears when the erase has ended; over MCUboot never.
            if (type == TargetUart) {
                change.progress_format = FormatPercent();
            }
            break;
        case WindowEvent::UpdateSucceeded:
            change.button_enabled = false;
            change.button_style = ButtonStyle::Ready;
            change.progress_value = 100;
            change.button_text = QStringLiteral("DONE");
            break;
        case WindowEvent::UpdateFailed:
            change.button_enabled = false;
            change.button_style = ButtonStyle::Disabled;
            change.progress_format = FormatError();
            break;
        case WindowEvent::UnitConnected:
            change.unit_ready = true;
            change.button_enabled = true;
            change.button_text = TextUpdate();
            change.button_style = ButtonStyle::Ready;
            break;
        case WindowEvent::UnitDisconnected:
            change.unit_ready = false;
            change.button_enabled = false;
            change.button_text = TextUpdate();
            change.button_style = ButtonStyle::Disabled;
            change.progress_value = 0;
            change.progress_format = FormatNone();
            break;
        case WindowEvent::UnitRefused:
            change.unit_ready = false;
            change.button_enabled = false;
            change.button_text = TextUpdate();
            change.button_style = ButtonStyle::Disabled;
            change.progress_format = FormatError();
            break;
        case WindowEvent::EraseStarted:
            change.progress_format = QStringLiteral("Erasing");
            break;
        case WindowEvent::EraseFinished:
            change.progress_format = FormatPercent();
            change.progress_value = 0;
            break;
    }
    return change;
}

std::optional<WindowEvent> GetConnectionEvent(ConnectionStatus status)
{
    switch (status) {
        case ConnectionStatus::Connected:
            return WindowEvent::UnitConnected;
        case ConnectionStatus::Disconnected:
            return WindowEvent::UnitDisconnected;
        case ConnectionStatus::VerificationFailed:
            return WindowEvent::UnitRefused;
    }
    return std::nullopt;
}

QString GetButtonStyleSheet(ButtonStyle style)
{
    return style == ButtonStyle::Ready ? kButtonReadyStyle : kButtonDisabledStyle;
}

QString GetStatusText(WindowEvent event)
{
    switch (event) {
        case WindowEvent::UpdateRequested:
        case WindowEvent::UpdateStarted:
        case WindowEvent::EraseFinished:
            return QStringLiteral("Updating");
        case WindowEvent::UpdateSucceeded:
            return QStringLiteral("Done");
        case WindowEvent::UpdateFailed:
        case WindowEvent::UnitRefused:
            return FormatError();
        case WindowEvent::UnitConnected:
            return QStringLiteral("A unit is ready");
        case WindowEvent::UnitDisconnected:
            return QStringLiteral("Waiting for a unit");
        case WindowEvent::EraseStarted:
            return QStringLiteral("Erasing");
    }
    return {};
}

QString GetEventName(WindowEvent event)
{
    switch (event) {
        case WindowEvent::UpdateRequested:
            return QStringLiteral("update requested");
        case WindowEvent::UpdateStarted:
            return QStringLiteral("update started");
        case WindowEvent::UpdateSucceeded:
            return QStringLiteral("update succeeded");
        case WindowEvent::UpdateFailed:
            return QStringLiteral("update failed");
        case WindowEvent::UnitConnected:
            return QStringLiteral("unit connected");
        case WindowEvent::UnitDisconnected:
            return QStringLiteral("unit disconnected");
        case WindowEvent::UnitRefused:
            return QStringLiteral("unit refused");
        case WindowEvent::EraseStarted:
            return QStringLiteral("erase started");
        case WindowEvent::EraseFinished:
            return QStringLiteral("erase finished");
    }
    return {};
}
