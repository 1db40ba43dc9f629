#include "Support/WorkflowError.h"

namespace vantelor {

QString WorkflowError::kindName() const
{
    switch (m_kind) {
    case Kind::invalid: return QStringLiteral("invalid");
    case Kind::conflict: return QStringLiteral("conflict");
    case Kind::io: return QStringLiteral("io");
    }
    return {};
}

} // namespace vantelor
