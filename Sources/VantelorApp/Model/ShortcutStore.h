#pragma once

#include <QObject>

#include "Input/ShortcutProfile.h"

namespace vantelor {

// The shortcut profile in force for the application, kept in the preferences under
// "VantelorShortcuts.v1". GUI thread only. With `persist` false (tests) nothing is read from or
// written to the preferences.
class ShortcutStore : public QObject {
    Q_OBJECT

public:
    static inline const QString preferencesKey = QStringLiteral("VantelorShortcuts.v1");

    explicit ShortcutStore(bool persist = true, QObject* parent = nullptr);

    const ShortcutProfile& profile() const { return m_profile; }
    bool persist() const { return m_persist; }

signals:
    void profileChanged();

private:
    bool m_persist;
    ShortcutProfile m_profile = ShortcutProfile::defaults();
};

} // namespace vantelor
