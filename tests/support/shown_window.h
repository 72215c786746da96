// What the window shows after several events, for tests without its widgets.
#pragma once

#include "app/window_state.h"

inline void ShowChange(WindowChange& shown, WindowChange const& change)
{
    auto const replace = [](auto& old, auto const& value) { old = value ? value : old; };
    replace(shown.button_text, change.button_text);
    replace(shown.button_style, change.button_style);
    replace(shown.button_enabled, change.button_enabled);
    replace(shown.progress_value, change.progress_value);
    replace(shown.progress_format, change.progress_format);
    replace(shown.unit_ready, change.unit_ready);
}
