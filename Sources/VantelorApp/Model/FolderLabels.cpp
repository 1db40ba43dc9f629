#include "Model/FolderLabels.h"

#include <cerrno>
#include <sys/xattr.h>

#include "Model/FolderTags.h"
#include "Support/Paths.h"
#include "Support/SystemError.h"

namespace vantelor {

namespace {

constexpr const char* attributeName = "user.xdg.tags";
// The value is a short list of names; anything larger is not ours to parse.
constexpr qsizetype maximumValueSize = 64 * 1024;

} // namespace

FolderLabels::Attribute FolderLabels::xdgTags()
{
    Attribute attribute;
    attribute.read = [](const QString& folder) -> Result<QByteArray> {
        const QByteArray path = Paths::encode(folder);
        QByteArray value(maximumValueSize, Qt::Uninitialized);
        const ssize_t size = ::lgetxattr(path.constData(), attributeName, value.data(), value.size());
        if (size >= 0)
            return value.left(size);
        if (errno == ENODATA)
            return QByteArray();
        return SystemError::fromErrno(folder);
    };
    attribute.write = [](const QString& folder, const QByteArray& value) -> Status {
        const QByteArray path = Paths::encode(folder);
        const int result = value.isEmpty()
            ? ::lremovexattr(path.constData(), attributeName)
            : ::lsetxattr(path.constData(), attributeName, value.constData(), value.size(), 0);
        if (result == 0 || (value.isEmpty() && errno == ENODATA))
            return Done{};
        return SystemError::fromErrno(folder);
    };
    return attribute;
}

FolderLabels::FolderLabels(Attribute attribute)
    : m_attribute(std::move(attribute))
    , m_executor(QStringLiteral("com.vantelor.folder-labels"))
{
}

QFuture<QHash<QString, std::optional<SessionLabel>>> FolderLabels::read(const QStringList& folders)
{
    return m_executor.run([folders, attribute = m_attribute](const CancelCheck&) {
        QHash<QString, std::optional<SessionLabel>> labels;
        for (const QString& folder : folders) {
            const Result<QByteArray> value = attribute.read(folder);
            labels.insert(folder, value ? std::optional(FolderTags::label(*value)) : std::nullopt);
        }
        return labels;
    });
}

QFuture<bool> FolderLabels::write(const QString& folder, SessionLabel label)
{
    return m_executor.run([folder, label, attribute = m_attribute](const CancelCheck&) {
        const Result<QByteArray> value = attribute.read(folder);
        if (!value)
            return false;
        const QByteArray changed = FolderTags::withLabel(*value, label);
        // An unchanged list is not written again: the folder's change time stays as it was.
        if (changed == *value)
            return true;
        return attribute.write(folder, changed).ok();
    });
}

} // namespace vantelor
