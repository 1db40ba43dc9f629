#pragma once

#include <QString>

namespace vantelor {

// Errors of folders and images, shown to the user as they stand.
class BrowserError {
public:
    enum class Kind { folderUnavailable, unreadableImage };

    // Payload: the folder's path.
    static BrowserError folderUnavailable(QString path) { return {Kind::folderUnavailable, std::move(path)}; }
    // Payload: the file's name.
    static BrowserError unreadableImage(QString name) { return {Kind::unreadableImage, std::move(name)}; }

    Kind kind() const { return m_kind; }
    const QString& payload() const { return m_payload; }
    QString message() const;

    friend bool operator==(const BrowserError&, const BrowserError&) = default;

private:
    BrowserError(Kind kind, QString payload) : m_kind(kind), m_payload(std::move(payload)) {}

    Kind m_kind;
    QString m_payload;
};

} // namespace vantelor
