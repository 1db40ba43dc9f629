#include "Library/DirectoryEnumerator.h"

#include <cerrno>
#include <dirent.h>

#include "Support/Paths.h"

namespace vantelor {

std::optional<DirectoryEnumerator> DirectoryEnumerator::open(const QString& folder, ErrorHandler onError)
{
    DIR* dir = opendir(Paths::encode(folder).constData());
    if (!dir)
        return std::nullopt;
    return DirectoryEnumerator(dir, folder, std::move(onError));
}

DirectoryEnumerator::DirectoryEnumerator(DIR* dir, QString folder, ErrorHandler onError)
    : m_dir(dir), m_prefix(folder.endsWith(QLatin1Char('/')) ? folder : folder + QLatin1Char('/')),
      m_onError(std::move(onError))
{
}

DirectoryEnumerator::DirectoryEnumerator(DirectoryEnumerator&& other) noexcept
    : m_dir(std::exchange(other.m_dir, nullptr)), m_prefix(std::move(other.m_prefix)),
      m_onError(std::move(other.m_onError))
{
}

DirectoryEnumerator& DirectoryEnumerator::operator=(DirectoryEnumerator&& other) noexcept
{
    if (this != &other) {
        if (m_dir)
            closedir(m_dir);
        m_dir = std::exchange(other.m_dir, nullptr);
        m_prefix = std::move(other.m_prefix);
        m_onError = std::move(other.m_onError);
    }
    return *this;
}

DirectoryEnumerator::~DirectoryEnumerator()
{
    if (m_dir)
        closedir(m_dir);
}

std::optional<QString> DirectoryEnumerator::next()
{
    while (m_dir) {
        errno = 0;
        const dirent* entry = readdir(m_dir);
        if (!entry) {
            // readdir reports an error only by errno; after one the stream cannot go on.
            if (errno != 0 && m_onError)
                m_onError(errno);
            closedir(m_dir);
            m_dir = nullptr;
            return std::nullopt;
        }
        if (entry->d_name[0] == '.')
            continue;
        return m_prefix + Paths::decode(QByteArray(entry->d_name));
    }
    return std::nullopt;
}

} // namespace vantelor
