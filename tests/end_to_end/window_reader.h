// Reads the program's window off the screen: compares what the X server shows, pixel by pixel, with
// what the window shows in each of its states, drawn in this process from the same bundle.
#pragma once

#include <QDir>
#include <QImage>
#include <QRect>
#include <QString>
#include <memory>
#include <optional>
#include <ostream>

#include "app/main_window.h"
#include "app/window_state.h"

// What a person sees of the update.
struct Screen {
    QString button;  // its text
    ButtonStyle style = ButtonStyle::Disabled;
    int progress = 0;
    QString format;  // of the progress bar's text: "", "%p%", "Erasing" or the error text

    bool operator==(Screen const&) const = default;
};

std::ostream& operator<<(std::ostream& stream, Screen const& screen);

class WindowReader {
public:
    WindowReader(QDir const& resources, QString const& config_path);
    ~WindowReader();

    // Empty when the picture shows none of the window's states.
    std::optional<Screen> Read(QImage const& picture);

private:
    QImage Draw(Screen const& screen, QRect const& part);
    bool ReadButton(QImage const& picture, Screen& screen);
    bool ReadBar(QImage const& picture, Screen& screen);

    std::unique_ptr<MainWindow> window_;
};
