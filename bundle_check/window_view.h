// The window of a bundle as a customer sees it: the program's own MainWindow with the bundle's
// texts, fonts and picture, drawn without a display and without a unit. Needs a QApplication, on
// any platform; for the GUI thread only.
#pragma once

#include <QDir>
#include <QFont>
#include <QImage>
#include <QList>
#include <QSettings>
#include <QString>
#include <QStringList>
#include <memory>
#include <utility>

#include "config/config_keys.h"

class MainWindow;
class QLabel;
class QProgressBar;
class QPushButton;
class QWidget;

namespace bundle_check {

// How many pixels an inch has by the system's settings, and so how many a font of a given point
// size has: macOS uses 72, the others 96.
inline constexpr int kMacosDpi = 72;
inline constexpr int kOtherDpi = 96;

class WindowView {
public:
    // Reads all fonts and pictures of the folder, whatever their size.
    WindowView(QDir const& resources, QSettings const& settings, targetInterfaceType type);
    ~WindowView();
    WindowView(WindowView const&) = delete;
    WindowView& operator=(WindowView const&) = delete;

    // What the window shows in the course of updates, in their order: "waiting", "ready" and so on.
    QStringList States() const;
    void Enter(QString const& state);

    // Lays out all texts as a system with this resolution does; kOtherDpi at first.
    void SetDpi(int dpi);

    // With so many pixels in each direction for one of the window.
    QImage Draw(int scale);
    // With nothing on it.
    QImage DrawBackground();

    QSize Size() const;
    // Those whose place is inside the window, with or without a text.
    QList<QLabel*> Labels() const;
    QPushButton* Button() const;
    QProgressBar* Bar() const;

private:
    // Steps after the window's first state.
    enum class Step;
    struct State;
    static QList<State> ListStates(targetInterfaceType type);
    void Take(Step step);

    std::unique_ptr<MainWindow> window_;
    targetInterfaceType type_;
    QList<std::pair<QWidget*, QFont>> fonts_;  // as the window set them
};

// Draws every state, at kMacosDpi and kOtherDpi, with one and two pixels for each of the window, to
// STATE-DPIdpi.png and STATE-DPIdpi@2x.png in `directory`, which need not exist. False if a file
// cannot be written.
bool SavePictures(WindowView& view, QDir const& directory);

}  // namespace bundle_check
