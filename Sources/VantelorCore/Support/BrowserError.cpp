#include "Support/BrowserError.h"

#include "Support/Paths.h"

namespace vantelor {

QString BrowserError::message() const
{
    switch (m_kind) {
    case Kind::folderUnavailable:
        return QStringLiteral("Carpeta no disponible o ilegible: ") + Paths::displayText(m_payload);
    case Kind::unreadableImage:
        return QStringLiteral("No se puede leer la vista previa de ") + Paths::displayText(m_payload)
            + QStringLiteral(". El archivo puede ser incompatible, estar dañado o desconectado.");
    }
    return {};
}

} // namespace vantelor
