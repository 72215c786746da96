#include "tests/app/window_fixture.h"

#include <sys/wait.h>

#include <cerrno>
#include <utility>

MainWindow& WindowTest::MakeWindow(targetInterfaceType type)
{
    auto backend = std::make_unique<FakeBackend>(record_);
    backend_ = backend.get();
    window_ = std::make_unique<MainWindow>(ini_.Directory(), ini_.Settings(), dfu_util_, type,
                                           std::move(backend), environment_);
    return *window_;
}

void WindowTest::FromBackend(std::function<void(FirmwareUpdaterBase&)> const& emit_signals)
{
    // An event that the worker posts to the window's thread after a signal arrives there after it.
    bool handled = false;
    QMetaObject::invokeMethod(
        backend_,
        [&] {
            emit_signals(*backend_);
            QMetaObject::invokeMethod(
                window_.get(), [&handled] { handled = true; }, Qt::QueuedConnection);
        },
        Qt::QueuedConnection);
    ASSERT_TRUE(QTest::qWaitFor([&] { return handled; }, kPatience));
}

bool WindowTest::WaitForCalls(QString const& beginning, qsizetype count)
{
    return QTest::qWaitFor([&] { return record_->Count(beginning) >= count; }, kPatience);
}

bool WindowTest::WaitForLooks(int count)
{
    return QTest::qWaitFor([&] { return looks_ >= count; }, kPatience);
}

bool WindowTest::WaitUntilReady()
{
    return QTest::qWaitFor([this] { return Button().isEnabled(); }, kPatience);
}

bool WindowTest::HasChildProcess()
{
    return waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD;
}

WindowTest::Shown WindowTest::GetShown()
{
    return {Button().text(), Button().isEnabled(), Button().styleSheet(), Bar().value(),
            Bar().format()};
}
