// Sets fonts, texts, colours and background of the window, from its resources and config.ini.

#include <QDebug>
#include <QFontDatabase>
#include <QPalette>
#include <QPixmap>
#include <algorithm>

#include "app/main_window.h"
#include "config/bundle_paths.h"
#include "ui_main_window.h"

namespace {

constexpr QColor kDarkBackground(13, 19, 28);  // as that of the progress bar in main_window.ui

QFont GetFont(QString const& style, int point_size)
{
    auto font = QFontDatabase::font(QString::fromLatin1(kFontFamily), style, point_size);
    font.setHintingPreference(QFont::PreferDefaultHinting);
    return font;
}

void SetTextColour(QWidget* widget, QColor const& colour)
{
    auto palette = widget->palette();
    palette.setColor(QPalette::WindowText, colour);
    widget->setPalette(palette);
}

// Characters that a style sheet's url() takes without quotes, in every place and order.
bool NeedsNoQuotes(QChar character)
{
    constexpr char16_t kLastAscii = 0x7F;
    auto const is_ascii = character.unicode() <= kLastAscii;
    return is_ascii &&
           (character.isLetterOrNumber() || QStringLiteral("/ +,-.:=_~").contains(character));
}

// The path as a quoted string of a style sheet. The parser reads it twice: it replaces a backslash
// and hexadecimal digits by the character with that number, and then drops each backslash and
// keeps the character after it. A backslash is therefore written as two numbers, of which the first
// reading makes two backslashes and the second one.
QString QuoteForStyleSheet(QString const& path)
{
    QString quoted;
    for (auto const character : path) {
        if (character == QLatin1Char('\\')) {
            quoted += QStringLiteral("\\00005c\\00005c");
            continue;
        }
        if (QStringLiteral("\"\n\r\f").contains(character)) {
            quoted += QLatin1Char('\\');
        }
        quoted += character;
    }
    return QLatin1Char('"') + quoted + QLatin1Char('"');
}

QString GetBackgroundStyleSheet(QString const& picture)
{
    auto const url =
        std::ranges::all_of(picture, NeedsNoQuotes) ? picture : QuoteForStyleSheet(picture);
    return QStringLiteral("#centralwidget {\n") + QStringLiteral("border-image: url(") + url +
           QStringLiteral(") ") + QStringLiteral("0 0 0 0 stretch stretch;\n") +
           QStringLiteral("}\n");
}

// The texts are white and yellow, so they need a dark background where no picture is shown.
void Darken(QWidget& window)
{
    auto palette = window.palette();
    palette.setColor(QPalette::Window, kDarkBackground);
    window.setPalette(palette);
}

}  // namespace

void MainWindow::ImportFonts()
{
    auto const files =
        resource_dir_.entryInfoList({QStringLiteral("*.otf")}, QDir::Files, QDir::Unsorted);
    for (auto const& file : files) {
        QFontDatabase::addApplicationFont(file.absoluteFilePath());
    }
    auto const regular = QString::fromLatin1(kRegularStyle);
    auto const bold = QString::fromLatin1(kBoldStyle);
    fonts_ = {GetFont(regular, 10), GetFont(regular, 12), GetFont(regular, 16),
              GetFont(regular, 20), GetFont(bold, 10),    GetFont(bold, 12),
              GetFont(bold, 16),    GetFont(bold, 20)};
}

void MainWindow::SetupWindowStyle(QSettings const& settings)
{
    auto const pictures =
        resource_dir_.entryInfoList({QStringLiteral("*.png")}, QDir::Files, QDir::Unsorted);
    setWindowTitle(ReadWindowTexts(settings).window_title);
    if (pictures.isEmpty()) {
        Darken(*this);
        return;
    }
    auto const picture = pictures.first().absoluteFilePath();
    if (QPixmap(picture).isNull()) {
        qWarning().noquote() << "the background picture cannot be shown:" << picture;
        Darken(*this);
    }
    setStyleSheet(GetBackgroundStyleSheet(picture));
}

void MainWindow::SetupInstructionsLabel(QSettings const& settings)
{
    auto const texts = ReadWindowTexts(settings);
    ui_->titleLabel->setFont(fonts_.bold_20);
    SetTextColour(ui_->titleLabel, Qt::white);
    ui_->versionLabel->setFont(fonts_.bold_20);
    SetTextColour(ui_->versionLabel, Qt::white);
    ui_->instructionsLabel->setFont(fonts_.regular_12);
    ui_->instructionsLabel->setText(texts.instructions);
    ui_->productLabel->setFont(fonts_.bold_20);
    ui_->productLabel->setText(texts.product);
    ui_->versionNumberLabel->setFont(fonts_.bold_20);
    ui_->versionNumberLabel->setText(texts.fw_version);
    SetTextColour(ui_->versionNumberLabel, Qt::white);
    ui_->infoLabel->setFont(fonts_.regular_10);
    SetupTypeLabel(texts.fw_target_type);
}

void MainWindow::SetupTypeLabel(QString const& fw_target_type)
{
    // Customers have no use for the word; everyone else must see what they are about to write.
    if (fw_target_type.compare(QLatin1StringView(kCustomerTarget), Qt::CaseInsensitive) == 0) {
        return;
    }
    ui_->typeLabel->setFont(fonts_.bold_20);
    ui_->typeLabel->setText(fw_target_type.left(1).toUpper() + fw_target_type.mid(1));
    SetTextColour(ui_->typeLabel, Qt::yellow);
}
