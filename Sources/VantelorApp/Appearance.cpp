#include "Appearance.h"

#include <QFont>
#include <QPalette>
#include <QWidget>

namespace vantelor::Appearance {

QColor labelColor(SessionLabel label)
{
    switch (label) {
    case SessionLabel::none: return QColor(0x6b, 0x6f, 0x76);
    case SessionLabel::red: return QColor(0xe5, 0x48, 0x4d);
    case SessionLabel::yellow: return QColor(0xf2, 0xc1, 0x2e);
    case SessionLabel::green: return QColor(0x3f, 0xb9, 0x50);
    case SessionLabel::blue: return QColor(0x3d, 0x8b, 0xfd);
    case SessionLabel::purple: return QColor(0xa8, 0x6b, 0xe8);
    }
    return {};
}

QString labelTitle(SessionLabel label)
{
    switch (label) {
    case SessionLabel::none: return QStringLiteral("Sin color");
    case SessionLabel::red: return QStringLiteral("Rojo");
    case SessionLabel::yellow: return QStringLiteral("Amarillo");
    case SessionLabel::green: return QStringLiteral("Verde");
    case SessionLabel::blue: return QStringLiteral("Azul");
    case SessionLabel::purple: return QStringLiteral("Morado");
    }
    return {};
}

QString stars(int rating)
{
    const int filled = qBound(0, rating, 5);
    return QString(filled, QChar(0x2605)) + QString(5 - filled, QChar(0x2606));
}

QColor accent() { return QColor(0x3d, 0x8b, 0xfd); }
QColor panel() { return QColor(0x25, 0x27, 0x2b); }
QColor canvas() { return QColor(0x12, 0x13, 0x15); }
QColor secondaryText() { return QColor(0x9a, 0x9f, 0xa8); }
QColor warning() { return QColor(0xff, 0x9f, 0x43); }

QColor focusColor(bool blue)
{
    return blue ? QColor(0x2f, 0x9b, 0xff) : QColor(0xff, 0x3b, 0x30);
}

void styleSectionTitle(QWidget* label)
{
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * 0.85);
    font.setBold(true);
    font.setLetterSpacing(QFont::PercentageSpacing, 106);
    label->setFont(font);
    QPalette palette = label->palette();
    palette.setColor(QPalette::WindowText, secondaryText());
    label->setPalette(palette);
}

void styleSecondary(QWidget* label)
{
    QPalette palette = label->palette();
    palette.setColor(QPalette::WindowText, secondaryText());
    palette.setColor(QPalette::Text, secondaryText());
    label->setPalette(palette);
}

void fillBackground(QWidget* widget, const QColor& colour)
{
    widget->setAutoFillBackground(true);
    QPalette palette = widget->palette();
    palette.setColor(QPalette::Window, colour);
    widget->setPalette(palette);
}

} // namespace vantelor::Appearance
