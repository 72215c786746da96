// A minimal Qt Widgets program with a window of the same size. Start-up time and memory of the
// updater are compared with it.

#include <QApplication>
#include <QLabel>

int main(int argc, char** argv)
{
    QApplication const application(argc, argv);
    QLabel window(QStringLiteral("minimal"));
    window.setFixedSize(665, 517);
    window.show();
    return QApplication::exec();
}
