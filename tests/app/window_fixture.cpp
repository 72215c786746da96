#include "tests/app/window_fixture.h"

#include <utility>

MainWindow& WindowTest::MakeWindow(targetInterfaceType type)
{
    auto backend = std::make_unique<FakeBackend>(record_);
    backend_ = backend.get();
    window_ = std::make_unique<MainWindow>(ini_.Directory(), ini_.Settings(), dfu_util_, type,
                                           std::move(backend), environment_);
    return *window_;
}

void WindowTest::FromBackend(std::function<void(FirmwareUpdaterBase&)> signal)
{
    QMetaObject::invokeMethod(
        backend_, [backend = backend_, signal = std::move(signal)] { signal(*backend); },
        Qt::QueuedConnection);
}

void WindowTest::ReportStatus(ConnectionStatus status)
{
    FromBackendAndWait(
        [status](FirmwareUpdaterBase& backend) { Q_EMIT backend.UpdateConnectionStatus(status); });
}

void WindowTest::FromBackendAndWait(std::function<void(FirmwareUpdaterBase&)> const& signal)
{
    // What the worker posts to the window's thread after the signal arrives there after it, too.
    bool handled = false;
    FromBackend([this, &signal, &handled](FirmwareUpdaterBase& backend) {
        signal(backend);
        QMetaObject::invokeMethod(
            window_.get(), [&handled] { handled = true; }, Qt::QueuedConnection);
    });
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

QLabel& WindowTest::Label(char const* name)
{
    auto* const label = window_->findChild<QLabel*>(QString::fromLatin1(name));
    if (label == nullptr) {
        throw std::runtime_error(std::string("no label named ") + name);
    }
    return *label;
}

QPushButton& WindowTest::Button()
{
    auto* const button = window_->findChild<QPushButton*>(QStringLiteral("updateButton"));
    if (button == nullptr) {
        throw std::runtime_error("no updateButton");
    }
    return *button;
}

QProgressBar& WindowTest::Bar()
{
    auto* const bar = window_->findChild<QProgressBar*>(QStringLiteral("progressBar"));
    if (bar == nullptr) {
        throw std::runtime_error("no progressBar");
    }
    return *bar;
}

WindowTest::Shown WindowTest::GetShown()
{
    return {Button().text(), Button().isEnabled(), Button().styleSheet(), Bar().value(),
            Bar().format()};
}
