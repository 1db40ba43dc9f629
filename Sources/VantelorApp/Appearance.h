#pragma once

#include <QColor>
#include <QString>

#include "Library/SessionLabel.h"

class QWidget;

namespace vantelor {

// The few colours and texts that several screens draw the same way, so that a label looks the
// same in a filmstrip cell, the contact sheet and the inspector.
namespace Appearance {

QColor labelColor(SessionLabel label);
// "Rojo", "Amarillo", …; "Sin color" for none.
QString labelTitle(SessionLabel label);
// Five stars, the first `rating` filled: "★★★☆☆".
QString stars(int rating);

QColor accent();
QColor panel();          // side columns and bars
QColor canvas();         // behind photos
QColor secondaryText();
QColor warning();

// The highlight of focus peaking: the default colour and the blue alternative.
QColor focusColor(bool blue);

// Small caps section title ("ETIQUETA DE COLOR").
void styleSectionTitle(QWidget* label);
void styleSecondary(QWidget* label);
// Paints the widget's own background in the colour instead of letting its parent show through.
void fillBackground(QWidget* widget, const QColor& colour);

} // namespace Appearance
} // namespace vantelor
