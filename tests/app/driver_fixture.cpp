#include "tests/app/driver_fixture.h"

#include <QApplication>
#include <QTimer>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

DriverTest::DriverTest()
    : user_([this](SeenBox const& box) { driver_.Note(u"box: "_s + box.title); })
{
    environment_.product_type = u"macos"_s;
    environment_.intervals = {.first = 1ms, .after_connect = 40ms, .idle = 20ms};
    environment_.driver.quit_delay = 20ms;
}

bool DriverTest::QuitsByItself(std::chrono::milliseconds patience)
{
    constexpr int kStillRunning = 1;
    QTimer guard;
    QObject::connect(&guard, &QTimer::timeout, [] { QApplication::exit(kStillRunning); });
    guard.start(patience);
    window_->show();
    bool const has_quit = QApplication::exec() != kStillRunning;
    // A window closed on the way asks for a quit once more; a program would be gone by now.
    QCoreApplication::removePostedEvents(qApp, QEvent::Quit);
    return has_quit;
}
