// The least that a Qt Widgets program can be, of the same size on the screen: what start-up time
// and memory are measured against.

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
