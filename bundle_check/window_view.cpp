#include "bundle_check/window_view.h"

#include <QApplication>
#include <QFontDatabase>
#include <QLabel>
#include <QPixmapCache>
#include <QProgressBar>
#include <QPushButton>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>

#include "app/main_window.h"
#include "updater/firmware_updater_base.h"

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

// Where the bar is in pictures of an update that is not over.
constexpr int kPercent = 45;

// The window's log is about this computer; the report has all that is wrong with the bundle.
class MutedLog {
public:
    MutedLog() : previous_(qInstallMessageHandler(&MutedLog::Drop)) {}
    ~MutedLog() { qInstallMessageHandler(previous_); }
    MutedLog(MutedLog const&) = delete;
    MutedLog& operator=(MutedLog const&) = delete;

private:
    static void Drop(QtMsgType type, QMessageLogContext const& /*context*/, QString const& text)
    {
        if (type == QtFatalMsg) {
            std::fprintf(stderr, "%s\n", text.toLocal8Bit().constData());
        }
    }

    QtMessageHandler previous_;
};

// The window owns a backend, which never gets a request here.
class NoBackend : public FirmwareUpdaterBase {
public:
    NoBackend() : FirmwareUpdaterBase(nullptr) {}
    bool connect(QString const& /*port_name*/) override { return false; }
    void disconnect() override {}
    bool upload(QString const& /*path*/, std::function<void(int)> /*progress*/) override
    {
        return false;
    }
    void reset() override {}
    bool verifyDeviceId(QList<uint8_t> const& /*device_ids*/) override { return false; }
    void onStartUpdate() override {}
    void onConnectToDevice(QString const& /*port_name*/, QList<uint8_t> /*device_ids*/,
                           bool const& /*verify*/) override
    {}
    void onDisconnectDevice() override {}
};

// A computer without ports, drivers and dialogs.
WindowEnvironment MakeEnvironment()
{
    WindowEnvironment environment;
    environment.list_serial_ports = [] { return QList<SerialPortEntry>(); };
    environment.intervals.first = std::chrono::hours(24);
    return environment;
}

QImage Render(QWidget& widget, int scale)
{
    QImage image(widget.size() * scale, QImage::Format_RGB32);
    image.setDevicePixelRatio(scale);
    image.fill(Qt::black);
    widget.render(&image);
    return image;
}

}  // namespace

enum class WindowView::Step { Connect, Start, Erase, EndErase, Progress, Succeed, Fail, Refuse };

struct WindowView::State {
    QString name;
    QList<Step> steps;
};

QList<WindowView::State> WindowView::ListStates(targetInterfaceType type)
{
    QList<State> states{
        {u"waiting"_s, {}},
        {u"ready"_s, {Step::Connect}},
        {u"updating"_s, {Step::Connect, Step::Start, Step::Progress}},
        {u"done"_s, {Step::Connect, Step::Start, Step::Progress, Step::Succeed}},
        {u"failed"_s, {Step::Connect, Step::Start, Step::Progress, Step::Fail}},
        {u"refused"_s, {Step::Refuse}},
    };
    if (type == TargetUsb) {
        states.insert(2, {u"erasing"_s, {Step::Connect, Step::Start, Step::Erase}});
        for (auto& state : states) {
            if (state.steps.contains(Step::Progress)) {
                state.steps.insert(2, Step::EndErase);
            }
        }
    }
    return states;
}

WindowView::WindowView(QDir const& resources, QSettings const& settings, targetInterfaceType type)
    : type_(type)
{
    MutedLog const muted;
    // As the program does.
    QApplication::setStyle(u"fusion"_s);
    window_ = std::make_unique<MainWindow>(resources, settings, QString(), type,
                                           std::make_unique<NoBackend>(), MakeEnvironment());
    window_->ensurePolished();
    for (auto* widget : window_->findChildren<QWidget*>()) {
        widget->ensurePolished();
        fonts_.append({widget, widget->font()});
    }
    SetDpi(kOtherDpi);
}

WindowView::~WindowView()
{
    MutedLog const muted;
    window_.reset();
    // Those of the next bundle must not mix with these.
    QFontDatabase::removeAllApplicationFonts();
    QPixmapCache::clear();
}

QStringList WindowView::States() const
{
    QStringList names;
    for (auto const& state : ListStates(type_)) {
        names.append(state.name);
    }
    return names;
}

void WindowView::Enter(QString const& state)
{
    MutedLog const muted;
    window_->onConnectionStatus(ConnectionStatus::Disconnected);
    auto const states = ListStates(type_);
    auto const found = std::ranges::find(states, state, &State::name);
    for (auto const step : found == states.end() ? QList<Step>() : found->steps) {
        Take(step);
    }
}

void WindowView::Take(Step step)
{
    switch (step) {
        case Step::Connect:
            window_->onConnectionStatus(ConnectionStatus::Connected);
            break;
        case Step::Start:
            window_->onWorkerThreadStarted();
            break;
        case Step::Erase:
            window_->onEraseStarted();
            break;
        case Step::EndErase:
            window_->onEraseFinished();
            break;
        case Step::Progress:
            Bar()->setValue(kPercent);
            break;
        case Step::Succeed:
        case Step::Fail:
            window_->onWorkerThreadFinished(step == Step::Succeed);
            break;
        case Step::Refuse:
            window_->onConnectionStatus(ConnectionStatus::VerificationFailed);
            break;
    }
}

void WindowView::SetDpi(int dpi)
{
    // The screen's own resolution is the process's and cannot change; a font of another size has
    // the same pixels.
    auto const factor = static_cast<qreal>(dpi) / window_->logicalDpiY();
    for (auto const& [widget, font] : fonts_) {
        auto scaled = font;
        scaled.setPointSizeF(font.pointSizeF() * factor);
        widget->setFont(scaled);
    }
}

QImage WindowView::Draw(int scale)
{
    return Render(*window_, scale);
}

QImage WindowView::DrawBackground()
{
    QList<QWidget*> hidden;
    for (auto* child : window_->centralWidget()->findChildren<QWidget*>()) {
        if (!child->isHidden()) {
            child->hide();
            hidden.append(child);
        }
    }
    auto image = Render(*window_, 1);
    for (auto* child : hidden) {
        child->show();
    }
    return image;
}

QSize WindowView::Size() const
{
    return window_->size();
}

QList<QLabel*> WindowView::Labels() const
{
    return window_->findChildren<QLabel*>();
}

QPushButton* WindowView::Button() const
{
    return window_->findChild<QPushButton*>();
}

QProgressBar* WindowView::Bar() const
{
    return window_->findChild<QProgressBar*>();
}

bool SavePictures(WindowView& view, QDir const& directory)
{
    if (!directory.mkpath(u"."_s)) {
        return false;
    }
    bool saved = true;
    for (int const dpi : {kMacosDpi, kOtherDpi}) {
        view.SetDpi(dpi);
        for (auto const& state : view.States()) {
            view.Enter(state);
            auto const name = u"%1-%2dpi"_s.arg(state).arg(dpi);
            saved = view.Draw(1).save(directory.filePath(name + u".png"_s)) && saved;
            saved = view.Draw(2).save(directory.filePath(name + u"@2x.png"_s)) && saved;
        }
    }
    return saved;
}

}  // namespace bundle_check
