#include "Files/TransferPlanner.h"

#include <algorithm>
#include <cstdlib>
#include <unistd.h>

#include <QHash>
#include <QSet>

#include "Files/FileDigest.h"
#include "Library/DirectoryEnumerator.h"
#include "Support/FileStat.h"
#include "Support/Paths.h"

namespace vantelor {

namespace {

Result<QString> resolveLinks(const QString& path)
{
    char* resolved = ::realpath(Paths::encode(path).constData(), nullptr);
    if (!resolved)
        return SystemError::fromErrno(path);
    const QString text = Paths::decode(QByteArray(resolved));
    std::free(resolved);
    return text;
}

// The visible entries of one folder, as full paths.
Result<QStringList> listFolder(const QString& folder)
{
    int readError = 0;
    auto enumerator = DirectoryEnumerator::open(folder, [&readError](int error) { readError = error; });
    if (!enumerator)
        return SystemError::fromErrno(folder);
    QStringList entries;
    while (const auto path = enumerator->next())
        entries.append(*path);
    if (readError != 0)
        return SystemError(readError, folder);
    return entries;
}

// Names are compared lower-cased throughout: the destination may be a volume that does not tell
// letter case apart, and two names differing only in case would meet there as one.
QString foldedBaseName(const QString& path)
{
    return Paths::baseName(path).toLower();
}

} // namespace

Result<TransferPlan> TransferPlanner::plan(const QStringList& sources, const QString& destination, TransferKind kind,
                                           const CancelCheck& cancelled)
{
    const Result<QString> target = resolveLinks(Paths::clean(destination));
    const Result<FileStat> targetStat = target ? FileStat::read(*target, true) : Result<FileStat>(target.failure());
    if (!targetStat || !targetStat->isDirectory())
        return WorkflowError::invalid(QStringLiteral("El destino no es una carpeta"));

    QHash<QString, QStringList> listings;
    QSet<QString> chosen;
    for (const QString& given : sources) {
        const QString source = Paths::clean(given);
        const Result<FileStat> stat = FileStat::read(source);
        if (!stat)
            return stat.failure();
        if (stat->isSymlink())
            return WorkflowError::invalid(QStringLiteral("No se pueden transferir enlaces simbólicos"));
        const Result<QString> folder = resolveLinks(Paths::parent(source));
        if (!folder)
            return folder.failure();
        if (*folder == *target)
            return WorkflowError::invalid(QStringLiteral("Elige otra carpeta de destino"));

        auto listing = listings.find(*folder);
        if (listing == listings.end()) {
            Result<QStringList> entries = listFolder(*folder);
            if (!entries)
                return entries.failure();
            listing = listings.insert(*folder, std::move(*entries));
        }
        if (kind == TransferKind::move && ::access(Paths::encode(*folder).constData(), W_OK) != 0) {
            // A locked card or a folder of someone else: the originals could be copied but never
            // taken out, so the move is refused before anything is copied.
            return WorkflowError::invalid(QStringLiteral("No se puede mover desde una carpeta de solo lectura: ")
                                          + Paths::displayText(*folder));
        }
        // Besides the files sharing the base name, the edit files other raw tools name after the
        // photo's full name ("DSC_0001.NEF.xmp", ".pp3", ".dop"): a move must not orphan them.
        const QString base = foldedBaseName(source);
        const QString fullName = Paths::fileName(source).toLower();
        for (const QString& entry : std::as_const(*listing)) {
            const QString entryBase = foldedBaseName(entry);
            if (entryBase != base && entryBase != fullName)
                continue;
            const Result<FileStat> entryStat = FileStat::read(entry);
            if (!entryStat)
                return entryStat.failure();
            if (entryStat->isSymlink())
                return WorkflowError::invalid(QStringLiteral("Archivo asociado rechazado: enlace simbólico"));
            chosen.insert(entry);
        }
    }
    if (chosen.isEmpty())
        return WorkflowError::invalid(QStringLiteral("Selecciona primero las fotografías"));

    const Result<QStringList> existing = listFolder(*target);
    if (!existing)
        return existing.failure();
    QSet<QString> taken;
    for (const QString& entry : *existing)
        taken.insert(Paths::fileName(entry).toLower());

    // Plain order of the paths' bytes: the same on every run and in every locale.
    QList<QPair<QByteArray, QString>> files;
    for (const QString& path : std::as_const(chosen))
        files.append({Paths::encode(path), path});
    std::sort(files.begin(), files.end());

    TransferPlan plan;
    plan.id = QUuid::createUuid();
    plan.kind = kind;
    plan.destination = *target;
    for (const auto& [bytes, path] : std::as_const(files)) {
        const QString name = Paths::fileName(path);
        const QString folded = name.toLower();
        if (taken.contains(folded)) {
            return WorkflowError::conflict(QStringLiteral("El destino ya contiene ") + Paths::displayText(name)
                                           + QStringLiteral("; no se sobrescribirá nada"));
        }
        taken.insert(folded);
        const Result<FileStat> stat = FileStat::read(path);
        if (!stat)
            return stat.failure();
        if (!stat->isRegular())
            return WorkflowError::invalid(QStringLiteral("Archivo asociado no compatible: ") + Paths::displayText(name));
        if (cancelled && cancelled())
            return Cancelled{};
        Result<QString> digest = FileDigest::sha256(path);
        if (!digest)
            return digest.failure();
        plan.items.append(TransferItem{path, Paths::join(plan.destination, name), std::move(*digest), stat->size});
    }
    return plan;
}

} // namespace vantelor
