// The states of the window by the names that its users would give them.
#pragma once

#include "tests/end_to_end/window_reader.h"

inline QString ErrorText()
{
    return QString::fromUtf8(
        "Error connecting to device \xE2\x80\x94 Disconnect device and repeat step 1-3");
}

inline bool IsWaiting(Screen const& screen)
{
    return screen == Screen{QStringLiteral("UPDATE"), ButtonStyle::Disabled, 0, QString()};
}

inline bool IsReady(Screen const& screen)
{
    return screen.button == QLatin1String("UPDATE") && screen.style == ButtonStyle::Ready;
}

inline bool IsUpdating(Screen const& screen)
{
    return screen.button == QLatin1String("UPDATING") && screen.style == ButtonStyle::Ready;
}

// On the transport whose tool erases first.
inline bool IsErasing(Screen const& screen)
{
    return IsUpdating(screen) && screen.format == QLatin1String("Erasing");
}

inline bool ShowsPercentage(Screen const& screen)
{
    return IsUpdating(screen) && screen.format == QLatin1String("%p%") && screen.progress > 0 &&
           screen.progress < 100;
}

inline bool IsDone(Screen const& screen)
{
    return screen == Screen{QStringLiteral("DONE"), ButtonStyle::Ready, 100, QStringLiteral("%p%")};
}

// On the transport whose bar never shows a percentage.
inline bool IsDoneWithoutText(Screen const& screen)
{
    return screen == Screen{QStringLiteral("DONE"), ButtonStyle::Ready, 100, QString()};
}

inline bool IsFailed(Screen const& screen)
{
    return screen.button == QLatin1String("UPDATING") && screen.style == ButtonStyle::Disabled &&
           screen.format == ErrorText();
}

inline bool IsRefused(Screen const& screen)
{
    return screen.button == QLatin1String("UPDATE") && screen.style == ButtonStyle::Disabled &&
           screen.format == ErrorText();
}
