#pragma once

#include <QByteArray>
#include <QString>

#include "Input/ShortcutProfile.h"
#include "Support/Result.h"

namespace vantelor {

// Profile files as the settings screen imports and exports them, and as the command line checks
// them. Reads are bounded; writes create a new file and never replace one. Blocking file calls:
// run them on a worker. Any thread.
class ShortcutProfileFile {
public:
    static inline const QString suggestedName = QStringLiteral("Vantelor-shortcuts.json");

    // A profile as importing leaves it: decoded, validated, with the basic shortcuts restored.
    // Fails with the decoder's message or the first broken rule's message.
    static Result<ShortcutProfile> decode(const QByteArray& bytes);
    // The same, read from a file of at most ShortcutProfile::maximumFileBytes.
    static Result<ShortcutProfile> read(const QString& path);
    // The profile's JSON, indented so that people can edit it, in a file that did not exist.
    static Status write(const ShortcutProfile& profile, const QString& path);
};

} // namespace vantelor
