#include "Files/DirectoryService.h"

#include <algorithm>
#include <cerrno>
#include <sys/stat.h>

#include "Library/DirectoryEnumerator.h"
#include "Support/FileStat.h"
#include "Support/NaturalOrder.h"
#include "Support/Paths.h"
#include "Support/WorkflowError.h"

namespace vantelor {

namespace {

bool isValidFolderName(const QString& name)
{
    if (name.trimmed().isEmpty() || name == QLatin1String(".") || name == QLatin1String(".."))
        return false;
    return !name.contains(QLatin1Char('/')) && !name.contains(QLatin1Char(':')) && !name.contains(QChar(0));
}

} // namespace

DirectoryService::DirectoryService() : m_executor(QStringLiteral("com.vantelor.directories")) {}

QFuture<Result<QList<DirectoryEntry>>> DirectoryService::children(const QString& folder)
{
    return m_executor.run([folder](const CancelCheck&) { return listChildren(folder); });
}

QFuture<Result<QString>> DirectoryService::createFolder(const QString& parent, const QString& name)
{
    return m_executor.run([parent, name](const CancelCheck&) { return makeFolder(parent, name); });
}

Result<QList<DirectoryEntry>> DirectoryService::listChildren(const QString& folder)
{
    int readError = 0;
    auto enumerator = DirectoryEnumerator::open(folder, [&readError](int error) { readError = error; });
    if (!enumerator)
        return SystemError::fromErrno(folder);

    QList<DirectoryEntry> entries;
    while (const auto path = enumerator->next()) {
        const Result<FileStat> stat = FileStat::read(*path);
        if (!stat)
            return stat.failure();
        // Linux has no packages: every real directory is a folder to show.
        if (stat->isDirectory())
            entries.append(DirectoryEntry{*path, Paths::fileName(*path), stat->created});
    }
    if (readError != 0)
        return SystemError(readError, folder);

    QCollator& collator = naturalCollator();
    std::stable_sort(entries.begin(), entries.end(), [&collator](const DirectoryEntry& a, const DirectoryEntry& b) {
        return collator.compare(a.name, b.name) < 0;
    });
    return entries;
}

Result<QString> DirectoryService::makeFolder(const QString& parent, const QString& name)
{
    // Blanks the user typed around a name are kept: only a name of nothing but blanks is refused.
    if (!isValidFolderName(name))
        return WorkflowError::invalid(QStringLiteral("Elige un nombre de carpeta válido"));
    const QString path = Paths::join(parent, name);
    if (::mkdir(Paths::encode(path).constData(), 0755) != 0)
        return WorkflowError::io(QStringLiteral("No se pudo crear la carpeta: ") + SystemError::text(errno));
    return path;
}

} // namespace vantelor
