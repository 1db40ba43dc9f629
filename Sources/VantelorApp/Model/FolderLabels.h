#pragma once

#include <functional>
#include <optional>

#include <QByteArray>
#include <QFuture>
#include <QHash>
#include <QStringList>

#include "Library/SessionLabel.h"
#include "Support/Result.h"
#include "Support/SerialExecutor.h"

namespace vantelor {

// Reads and writes the colour labels of folders in their `user.xdg.tags` attribute, keeping the
// other tags there. A serialised service: its one worker does the attribute calls, so a slow or
// hung volume never stalls the GUI thread. It decides nothing about a file system that refuses
// the attribute: it says so, and the navigator keeps that label in the preferences instead.
class FolderLabels {
public:
    // The attribute calls; tests stand in for a file system without extended attributes.
    struct Attribute {
        // The attribute's value; empty when the folder has none. Fails when it cannot be read.
        std::function<Result<QByteArray>(const QString& folder)> read;
        // Sets the value; an empty value removes the attribute.
        std::function<Status(const QString& folder, const QByteArray& value)> write;
    };

    // The real `user.xdg.tags`, without following a symbolic link.
    static Attribute xdgTags();

    explicit FolderLabels(Attribute attribute = xdgTags());

    // For each folder, its label, or nothing when the attribute could not be read there.
    QFuture<QHash<QString, std::optional<SessionLabel>>> read(const QStringList& folders);
    // Stores the label in the attribute; false when the file system refused it.
    QFuture<bool> write(const QString& folder, SessionLabel label);

private:
    Attribute m_attribute;
    SerialExecutor m_executor;
};

} // namespace vantelor
