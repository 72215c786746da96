// The user: waits for each message box to be on the screen, reads it, and answers it with mouse and
// keyboard.
#pragma once

#include <QElapsedTimer>
#include <QList>
#include <QMessageBox>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <chrono>
#include <functional>

enum class Answer { Yes, No, Ok, Escape, CloseBox, QuitProgram };

// As it was on the screen.
struct SeenBox {
    QString title;
    QString text;
    QMessageBox::Icon icon;
    QStringList buttons;  // sorted: their order is the system's
    bool has_default_button;
    bool is_modal;

    bool operator==(SeenBox const&) const = default;
};

class DialogUser {
public:
    // `note` is called with each box when it is on the screen.
    explicit DialogUser(std::function<void(SeenBox const&)> note);

    // The answers to the next boxes, in order. A further box fails the test and is closed.
    void Answers(QList<Answer> const& answers) { answers_ = answers; }
    // How long each box is read before it is answered.
    void ReadsFor(std::chrono::milliseconds time) { reading_time_ = time; }

    QList<SeenBox> const& Seen() const { return seen_; }
    bool HasAnsweredAll() const { return answers_.isEmpty(); }

private:
    void Look();
    void Give(Answer answer, QMessageBox& box);

    std::function<void(SeenBox const&)> note_;
    QList<Answer> answers_;
    QList<SeenBox> seen_;
    std::chrono::milliseconds reading_time_{0};
    QElapsedTimer reading_;  // valid while a box is read
    QTimer look_;
};
