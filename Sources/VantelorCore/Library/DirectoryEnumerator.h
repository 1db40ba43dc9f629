#pragma once

#include <functional>
#include <optional>

#include <QString>

struct __dirstream;

namespace vantelor {

// One level of a folder, names beginning with "." left out, never descending. Errors met while
// reading are handed to the error callback and the walk goes on where it can.
class DirectoryEnumerator {
public:
    using ErrorHandler = std::function<void(int errorNumber)>;

    // Nothing when the folder cannot be opened (errno tells why).
    static std::optional<DirectoryEnumerator> open(const QString& folder, ErrorHandler onError);

    DirectoryEnumerator(DirectoryEnumerator&& other) noexcept;
    DirectoryEnumerator& operator=(DirectoryEnumerator&& other) noexcept;
    DirectoryEnumerator(const DirectoryEnumerator&) = delete;
    DirectoryEnumerator& operator=(const DirectoryEnumerator&) = delete;
    ~DirectoryEnumerator();

    // The full path of the next entry; nothing at the end.
    std::optional<QString> next();

private:
    DirectoryEnumerator(__dirstream* dir, QString folder, ErrorHandler onError);

    __dirstream* m_dir = nullptr;
    QString m_prefix;
    ErrorHandler m_onError;
};

} // namespace vantelor
