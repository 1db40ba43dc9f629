#include "ShortcutStore.h"

#include <QSettings>

namespace vantelor {

ShortcutStore::ShortcutStore(bool persist, QObject* parent)
    : QObject(parent)
    , m_persist(persist)
{
    if (!m_persist)
        return;
    const QByteArray stored = QSettings(QStringLiteral("Vantelor"), QStringLiteral("Vantelor")).value(preferencesKey).toByteArray();
    if (stored.isEmpty())
        return;
    // A corrupt or foreign entry is ignored: the defaults stay in force, silently.
    const Result<ShortcutProfile> decoded = ShortcutProfile::fromJson(stored);
    if (!decoded)
        return;
    const Result<ShortcutProfile> valid = decoded->validated();
    if (valid)
        m_profile = valid->preservingDefaults();
}

} // namespace vantelor
