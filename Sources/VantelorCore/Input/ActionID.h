#pragma once

#include <array>
#include <optional>

#include <QString>

namespace vantelor {

// The commands that keys and mouse buttons can be bound to, each once: its identifier, which is
// also its raw value in profile files, and the Spanish name shown in menus, the settings screen
// and rule messages. The order is the order in which menus and the shortcut settings list them.
#define VANTELOR_ACTIONS(X) \
    X(next, "Foto siguiente") \
    X(previous, "Foto anterior") \
    X(openFolder, "Abrir carpeta") \
    X(reload, "Actualizar carpeta") \
    X(save, "Guardar XMP") \
    X(sheet, "Alternar hoja de contactos") \
    X(preview, "Abrir vista previa") \
    X(selectAll, "Seleccionar todas las fotos filtradas") \
    X(copy, "Copiar selección…") \
    X(move, "Mover selección…") \
    X(clearMarks, "Quitar estrellas y color") \
    X(rating0, "Quitar estrellas") \
    X(rating1, "1 estrella") \
    X(rating2, "2 estrellas") \
    X(rating3, "3 estrellas") \
    X(rating4, "4 estrellas") \
    X(rating5, "5 estrellas") \
    X(labelNone, "Quitar color") \
    X(labelRed, "Etiqueta roja") \
    X(labelYellow, "Etiqueta amarilla") \
    X(labelGreen, "Etiqueta verde") \
    X(labelBlue, "Etiqueta azul") \
    X(labelPurple, "Etiqueta morada") \
    X(focus, "Activar / desactivar el resaltado") \
    X(fit, "Ajustar a la ventana") \
    X(actual, "Zoom al 100%") \
    X(zoomIn, "Acercar") \
    X(zoomOut, "Alejar")

enum class ActionID {
#define VANTELOR_ACTION_ENUMERATOR(name, title) name,
    VANTELOR_ACTIONS(VANTELOR_ACTION_ENUMERATOR)
#undef VANTELOR_ACTION_ENUMERATOR
};

namespace ActionIDs {

inline constexpr std::array allCases = {
#define VANTELOR_ACTION_CASE(name, title) ActionID::name,
    VANTELOR_ACTIONS(VANTELOR_ACTION_CASE)
#undef VANTELOR_ACTION_CASE
};

// The identifier written in profile files ("next", "rating5", …).
QString rawValue(ActionID action);
// Exactly the raw values above, case-sensitive; nothing for any other text, so a profile naming
// an action this version does not know is refused rather than silently thinned out.
std::optional<ActionID> fromRawValue(const QString& raw);
// The Spanish name shown in menus, the settings screen and rule messages.
QString title(ActionID action);

} // namespace ActionIDs
} // namespace vantelor
