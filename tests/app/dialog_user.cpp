#include "tests/app/dialog_user.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QPushButton>
#include <QTest>
#include <QWindow>
#include <utility>

using namespace std::chrono_literals;

namespace {

SeenBox Read(QMessageBox const& box)
{
    QStringList texts;
    for (auto const* button : box.buttons()) {
        // "&" marks the button's keyboard shortcut.
        texts.append(button->text().remove(QLatin1Char('&')));
    }
    texts.sort();
    return {box.windowTitle(), box.text(), box.icon(), texts, box.defaultButton() != nullptr,
            box.isModal()};
}

void Click(QMessageBox const& box, QMessageBox::StandardButton which)
{
    auto* const button = box.button(which);
    ASSERT_NE(button, nullptr) << "no such button in " << box.windowTitle().toStdString();
    QTest::mouseClick(button, Qt::LeftButton);
}

}  // namespace

DialogUser::DialogUser(std::function<void(SeenBox const&)> note) : note_(std::move(note))
{
    QObject::connect(&look_, &QTimer::timeout, &look_, [this] { Look(); });
    look_.start(5ms);
}

void DialogUser::Look()
{
    auto* const box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
    if (box == nullptr || box->windowHandle() == nullptr || !box->windowHandle()->isExposed()) {
        return;
    }
    if (!reading_.isValid()) {
        reading_.start();
        seen_.append(Read(*box));
        note_(seen_.last());
    }
    if (reading_.elapsed() < reading_time_.count()) {
        return;
    }
    reading_.invalidate();
    if (answers_.isEmpty()) {
        ADD_FAILURE() << "unexpected box: " << box->windowTitle().toStdString();
        box->reject();
        return;
    }
    Give(answers_.takeFirst(), *box);
}

void DialogUser::Give(Answer answer, QMessageBox& box)
{
    switch (answer) {
        case Answer::Yes:
        case Answer::No:
        case Answer::Ok:
            Click(box, answer == Answer::Yes  ? QMessageBox::Yes
                       : answer == Answer::No ? QMessageBox::No
                                              : QMessageBox::Ok);
            break;
        case Answer::Escape:
            QTest::keyClick(&box, Qt::Key_Escape);
            break;
        case Answer::CloseBox:
            box.close();
            break;
        case Answer::QuitProgram: {
            // As the system sends it, which it also does before the program's event loop runs.
            QEvent quit(QEvent::Quit);
            QCoreApplication::sendEvent(qApp, &quit);
            break;
        }
    }
}
