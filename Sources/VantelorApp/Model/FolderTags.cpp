#include "Model/FolderTags.h"

#include <QList>
#include <QString>

namespace vantelor::FolderTags {

namespace {

std::optional<SessionLabel> colourOf(const QByteArray& tag)
{
    const QString name = QString::fromUtf8(tag.trimmed()).toLower();
    // Masculine and feminine forms both occur: "Rojo" as a colour, "roja" after "etiqueta".
    static const QList<std::pair<QString, SessionLabel>> names = {
        {QStringLiteral("rojo"), SessionLabel::red},       {QStringLiteral("roja"), SessionLabel::red},
        {QStringLiteral("red"), SessionLabel::red},        {QStringLiteral("amarillo"), SessionLabel::yellow},
        {QStringLiteral("amarilla"), SessionLabel::yellow}, {QStringLiteral("yellow"), SessionLabel::yellow},
        {QStringLiteral("verde"), SessionLabel::green},    {QStringLiteral("green"), SessionLabel::green},
        {QStringLiteral("azul"), SessionLabel::blue},      {QStringLiteral("blue"), SessionLabel::blue},
        {QStringLiteral("morado"), SessionLabel::purple},  {QStringLiteral("morada"), SessionLabel::purple},
        {QStringLiteral("purple"), SessionLabel::purple},
    };
    for (const auto& [text, label] : names) {
        if (name == text)
            return label;
    }
    return std::nullopt;
}

} // namespace

QByteArray tagName(SessionLabel label)
{
    switch (label) {
    case SessionLabel::none: return {};
    case SessionLabel::red: return QByteArrayLiteral("Rojo");
    case SessionLabel::yellow: return QByteArrayLiteral("Amarillo");
    case SessionLabel::green: return QByteArrayLiteral("Verde");
    case SessionLabel::blue: return QByteArrayLiteral("Azul");
    case SessionLabel::purple: return QByteArrayLiteral("Morado");
    }
    return {};
}

SessionLabel label(const QByteArray& value)
{
    for (const QByteArray& tag : value.split(',')) {
        if (const auto colour = colourOf(tag))
            return *colour;
    }
    return SessionLabel::none;
}

QByteArray withLabel(const QByteArray& value, SessionLabel label)
{
    QList<QByteArray> kept;
    for (const QByteArray& tag : value.split(',')) {
        if (!tag.trimmed().isEmpty() && !colourOf(tag))
            kept.append(tag);
    }
    if (label != SessionLabel::none)
        kept.append(tagName(label));
    return kept.join(',');
}

} // namespace vantelor::FolderTags
