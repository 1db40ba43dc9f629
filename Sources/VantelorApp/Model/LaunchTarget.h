#pragma once

#include <optional>

#include <QByteArray>
#include <QList>
#include <QString>

namespace vantelor {

// What one command-line argument asks the window to show: a folder, and the photo to select in it
// when the argument named a photo. Arguments arrive as the bytes the shell or the file manager
// passed (a path, relative or absolute, or a "file://" URI from the desktop entry's %U), so that
// names which are not UTF-8 survive.
struct LaunchTarget {
    QString folder;
    std::optional<QString> photo;

    // Reads the file system: call it before the window runs or off the GUI thread. A path that
    // names nothing is kept as a folder, so that opening it says that it is not available.
    static LaunchTarget resolve(const QByteArray& argument, const QString& workingFolder);
    static QList<LaunchTarget> resolve(const QList<QByteArray>& arguments, const QString& workingFolder);

    // The byte form that a second instance sends to the first.
    QByteArray serialize() const;
    static std::optional<LaunchTarget> deserialize(const QByteArray& bytes);

    friend bool operator==(const LaunchTarget&, const LaunchTarget&) = default;
};

} // namespace vantelor
