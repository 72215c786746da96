// Reads the program's window from the screen: compares what the X server shows, pixel by pixel,
// with the window in each of its states, drawn in this process from the same bundle.
#pragma once

#include <QDir>
#include <QImage>
#include <QProgressBar>
#include <QPushButton>
#include <QRect>
#include <QString>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <utility>

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

// Makes this process draw windows as the program does, as if each were the active one: the window
// that is drawn here is never shown. To be called before the first WindowReader is made.
void DrawAsTheProgramDoes();

class WindowReader {
public:
    WindowReader(QDir const& resources, QString const& config_path);
    ~WindowReader();

    // Where the button is in the window, in pixels.
    QRect ButtonRect() const { return PlaceOf(button_); }

    // Empty when the picture shows none of the window's states.
    std::optional<Screen> Read(QImage const& picture);

private:
    QRect PlaceOf(QWidget const* widget) const;
    QImage Draw(Screen const& screen, QWidget const* widget);
    bool ReadButton(QImage const& picture, Screen& screen);
    bool ReadBar(QImage const& picture, Screen& screen);

    std::unique_ptr<MainWindow> window_;
    QPushButton* button_;
    QProgressBar* bar_;
    // What was drawn before: a bar of any percentage takes hundreds of drawings to recognise.
    std::map<std::pair<QString, ButtonStyle>, QImage> buttons_;
    std::map<std::pair<QString, int>, QImage> bars_;
};
