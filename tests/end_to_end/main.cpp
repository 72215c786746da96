// The tests draw the program's window themselves to know what it must look like, so they are an
// application too.

#include <gtest/gtest.h>

#include <QApplication>
#include <QPalette>

namespace {

// The model window is never shown and so never active; the program's window is.
void DrawEveryWindowAsIfActive()
{
    auto palette = QApplication::palette();
    for (int role = 0; role < QPalette::NColorRoles; ++role) {
        auto const colour_role = static_cast<QPalette::ColorRole>(role);
        palette.setBrush(QPalette::Inactive, colour_role,
                         palette.brush(QPalette::Active, colour_role));
    }
    QApplication::setPalette(palette);
}

}  // namespace

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    QApplication const application(argc, argv);
    QApplication::setStyle(QStringLiteral("fusion"));
    DrawEveryWindowAsIfActive();
    return RUN_ALL_TESTS();
}
