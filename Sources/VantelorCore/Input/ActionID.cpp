#include "Input/ActionID.h"

namespace vantelor::ActionIDs {

QString rawValue(ActionID action)
{
    switch (action) {
    case ActionID::next: return QStringLiteral("next");
    case ActionID::previous: return QStringLiteral("previous");
    case ActionID::openFolder: return QStringLiteral("openFolder");
    case ActionID::reload: return QStringLiteral("reload");
    case ActionID::save: return QStringLiteral("save");
    case ActionID::sheet: return QStringLiteral("sheet");
    case ActionID::preview: return QStringLiteral("preview");
    case ActionID::selectAll: return QStringLiteral("selectAll");
    case ActionID::copy: return QStringLiteral("copy");
    case ActionID::move: return QStringLiteral("move");
    case ActionID::clearMarks: return QStringLiteral("clearMarks");
    case ActionID::rating0: return QStringLiteral("rating0");
    case ActionID::rating1: return QStringLiteral("rating1");
    case ActionID::rating2: return QStringLiteral("rating2");
    case ActionID::rating3: return QStringLiteral("rating3");
    case ActionID::rating4: return QStringLiteral("rating4");
    case ActionID::rating5: return QStringLiteral("rating5");
    case ActionID::labelNone: return QStringLiteral("labelNone");
    case ActionID::labelRed: return QStringLiteral("labelRed");
    case ActionID::labelYellow: return QStringLiteral("labelYellow");
    case ActionID::labelGreen: return QStringLiteral("labelGreen");
    case ActionID::labelBlue: return QStringLiteral("labelBlue");
    case ActionID::labelPurple: return QStringLiteral("labelPurple");
    case ActionID::focus: return QStringLiteral("focus");
    case ActionID::fit: return QStringLiteral("fit");
    case ActionID::actual: return QStringLiteral("actual");
    case ActionID::zoomIn: return QStringLiteral("zoomIn");
    case ActionID::zoomOut: return QStringLiteral("zoomOut");
    }
    return {};
}

std::optional<ActionID> fromRawValue(const QString& raw)
{
    for (ActionID action : allCases)
        if (rawValue(action) == raw)
            return action;
    return std::nullopt;
}

QString title(ActionID action)
{
    switch (action) {
    case ActionID::next: return QStringLiteral("Foto siguiente");
    case ActionID::previous: return QStringLiteral("Foto anterior");
    case ActionID::openFolder: return QStringLiteral("Abrir carpeta");
    case ActionID::reload: return QStringLiteral("Actualizar carpeta");
    case ActionID::save: return QStringLiteral("Guardar XMP");
    case ActionID::sheet: return QStringLiteral("Alternar hoja de contactos");
    case ActionID::preview: return QStringLiteral("Abrir vista previa");
    case ActionID::selectAll: return QStringLiteral("Seleccionar todas las fotos filtradas");
    case ActionID::copy: return QStringLiteral("Copiar selección…");
    case ActionID::move: return QStringLiteral("Mover selección…");
    case ActionID::clearMarks: return QStringLiteral("Quitar estrellas y color");
    case ActionID::rating0: return QStringLiteral("Quitar estrellas");
    case ActionID::rating1: return QStringLiteral("1 estrella");
    case ActionID::rating2: return QStringLiteral("2 estrellas");
    case ActionID::rating3: return QStringLiteral("3 estrellas");
    case ActionID::rating4: return QStringLiteral("4 estrellas");
    case ActionID::rating5: return QStringLiteral("5 estrellas");
    case ActionID::labelNone: return QStringLiteral("Quitar color");
    case ActionID::labelRed: return QStringLiteral("Etiqueta roja");
    case ActionID::labelYellow: return QStringLiteral("Etiqueta amarilla");
    case ActionID::labelGreen: return QStringLiteral("Etiqueta verde");
    case ActionID::labelBlue: return QStringLiteral("Etiqueta azul");
    case ActionID::labelPurple: return QStringLiteral("Etiqueta morada");
    case ActionID::focus: return QStringLiteral("Activar / desactivar el resaltado");
    case ActionID::fit: return QStringLiteral("Ajustar a la ventana");
    case ActionID::actual: return QStringLiteral("Zoom al 100%");
    case ActionID::zoomIn: return QStringLiteral("Acercar");
    case ActionID::zoomOut: return QStringLiteral("Alejar");
    }
    return {};
}

} // namespace vantelor::ActionIDs
