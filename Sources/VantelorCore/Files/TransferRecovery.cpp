#include "Files/TransferRecovery.h"

#include <cerrno>
#include <dirent.h>

#include <QSet>

#include "Files/FileDigest.h"
#include "Files/TransferExecution.h"
#include "Support/FileReader.h"
#include "Support/FileStat.h"
#include "Support/Paths.h"

namespace vantelor {

namespace {

constexpr qint64 largestJournal = 64 << 20;

// Every name in a folder, hidden ones included; the journals live under hidden names.
Result<QStringList> namesIn(const QString& folder)
{
    DIR* dir = ::opendir(Paths::encode(folder).constData());
    if (!dir)
        return SystemError::fromErrno(folder);
    QStringList names;
    errno = 0;
    while (const dirent* entry = ::readdir(dir)) {
        const QByteArray name(entry->d_name);
        if (name != "." && name != "..")
            names.append(Paths::decode(name));
    }
    const int error = errno;
    ::closedir(dir);
    if (error != 0)
        return SystemError(error, folder);
    names.sort();
    return names;
}

bool holdsExactly(const QString& folder, const QStringList& expected)
{
    const Result<QStringList> names = namesIn(folder);
    return names && *names == expected;
}

bool isFolder(const QString& path)
{
    const Result<FileStat> stat = FileStat::read(path);
    return stat && stat->isDirectory();
}

bool exists(const QString& path)
{
    // Anything but "no such file" counts as there: a name we cannot look at is not free.
    const Result<FileStat> stat = FileStat::read(path);
    if (stat)
        return true;
    const auto* error = std::get_if<SystemError>(&stat.failure());
    return !error || error->code() != ENOENT;
}

std::optional<TransferPlan> readJournal(const QString& path)
{
    std::optional<FileReader> reader = FileReader::open(path);
    if (!reader || reader->size() > largestJournal)
        return std::nullopt;
    return TransferPlan::fromJournal(reader->read(0, reader->size()));
}

QString shown(const QString& path)
{
    return Paths::displayText(path);
}

} // namespace

TransferRecovery::TransferRecovery(TransferFileSystem& fileSystem, bool dryRun, bool purgeVerified)
    : m_fileSystem(fileSystem), m_dryRun(dryRun), m_purgeVerified(purgeVerified)
{
}

Result<RecoveryReport> TransferRecovery::run(const QString& folder)
{
    m_report = {};
    QList<Journal> journals;
    if (const std::optional<Failure> failure = readJournals(Paths::clean(folder), journals))
        return *failure;
    for (const Journal& journal : std::as_const(journals))
        putRight(journal);
    if (m_report.lines.isEmpty())
        m_report.lines.append(QStringLiteral("No hay transferencias pendientes en ") + shown(folder) + QLatin1Char('.'));
    return m_report;
}

std::optional<Failure> TransferRecovery::readJournals(const QString& folder, QList<Journal>& journals)
{
    const Result<QStringList> names = namesIn(folder);
    if (!names)
        return names.failure();

    QStringList journalPaths;
    for (const QString& name : *names) {
        const QString path = Paths::join(folder, name);
        if (!name.startsWith(TransferExecution::stagingPrefix()) || !isFolder(path))
            continue;
        const QString journal = Paths::join(path, TransferExecution::journalName());
        if (exists(journal)) {
            journalPaths.append(journal);
            continue;
        }
        // Killed between creating the folder and writing the journal: nothing was copied yet.
        const Result<QStringList> inside = namesIn(path);
        if (inside && inside->isEmpty()) {
            m_report.lines.append(QStringLiteral("Carpeta de preparación vacía: ") + shown(path)
                                  + (m_dryRun ? QStringLiteral(" (se eliminaría)") : QStringLiteral(" (eliminada)")));
            if (!m_dryRun)
                (void)m_fileSystem.removeFolder(path);
        } else {
            problem(QStringLiteral("Carpeta de preparación sin diario; se deja como está: ") + shown(path));
        }
    }
    const QString area = Paths::join(folder, TransferExecution::recoveryAreaName());
    if (isFolder(area)) {
        const Result<QStringList> ids = namesIn(area);
        if (!ids)
            return ids.failure();
        for (const QString& id : *ids)
            if (isFolder(Paths::join(area, id)))
                journalPaths.append(Paths::join(Paths::join(area, id), TransferExecution::journalName()));
    }

    QSet<QUuid> seen;
    for (const QString& path : std::as_const(journalPaths)) {
        std::optional<TransferPlan> plan = readJournal(path);
        if (!plan && Paths::fileName(Paths::parent(path)).startsWith(TransferExecution::stagingPrefix())
            && holdsExactly(Paths::parent(path), {TransferExecution::journalName()})) {
            // Killed while writing the journal: not one file was copied yet.
            m_report.lines.append(QStringLiteral("Carpeta de preparación sin copias: ") + shown(Paths::parent(path))
                                  + (m_dryRun ? QStringLiteral(" (se eliminaría)") : QStringLiteral(" (eliminada)")));
            if (!m_dryRun && m_fileSystem.removeFile(path))
                (void)m_fileSystem.removeFolder(Paths::parent(path));
            continue;
        }
        if (!plan) {
            problem(QStringLiteral("No se puede leer el diario ") + shown(path));
            continue;
        }
        if (seen.contains(plan->id))
            continue;
        seen.insert(plan->id);
        const bool staging = isFolder(TransferRecovery::staging(*plan));
        journals.append(Journal{std::move(*plan), staging});
    }
    return std::nullopt;
}

void TransferRecovery::putRight(const Journal& journal)
{
    const TransferPlan& plan = journal.plan;
    QList<ItemState> states;
    int placed = 0;
    int kept = 0;
    int home = 0;
    for (qsizetype n = 0; n < plan.items.size(); ++n) {
        const TransferItem& item = plan.items[n];
        ItemState state;
        state.source = placeOf(item.source, item.digest);
        state.destination = placeOf(item.destination, item.digest);
        if (plan.kind == TransferKind::move)
            state.kept = placeOf(keptCopy(plan, n), item.digest);
        if (journal.staging)
            state.staged = placeOf(stagedCopy(plan, n), item.digest);
        placed += state.destination == Place::verified ? 1 : 0;
        kept += state.kept != Place::absent ? 1 : 0;
        home += state.source != Place::absent ? 1 : 0;
        states.append(state);
    }
    const qsizetype total = plan.items.size();
    const bool allPlaced = placed == total;
    const bool move = plan.kind == TransferKind::move;

    // The staging folder goes only once every original has left home: without it, a move whose
    // originals are all away has finished, even if a placed copy was edited since.
    if (!journal.staging && move && (home == 0 || kept == 0)) {
        if (home == 0 && kept > 0) {
            m_report.keptOriginals += kept;
            m_report.lines.append(QStringLiteral("Traslado %1 terminado: %2 archivos verificados en %3; %4 originales "
                                                 "conservados en .vantelor-move-recovery.")
                                      .arg(plan.idText()).arg(placed).arg(shown(plan.destination)).arg(kept));
            if (m_purgeVerified)
                purge(plan, states);
        } else {
            removeRecoveryFolders(plan);
        }
        return;
    }

    ++m_report.unfinished;
    m_report.lines.append(
        (move ? QStringLiteral("Traslado %1 interrumpido") : QStringLiteral("Copia %1 interrumpida"))
                .arg(plan.idText())
            + QStringLiteral(": %1 de %2 archivos verificados en %3, %4 en su carpeta de origen, %5 en "
                             ".vantelor-move-recovery.")
                  .arg(placed).arg(total).arg(shown(plan.destination)).arg(home).arg(kept));
    if (allPlaced) {
        if (m_dryRun) {
            m_report.lines.append(QStringLiteral("Se completaría: todos los archivos están verificados en el destino."));
            return;
        }
        complete(plan, states);
        if (m_purgeVerified && move)
            purge(plan, states);
    } else {
        if (m_dryRun) {
            m_report.lines.append(QStringLiteral("Se desharía: los originales volverían a su carpeta y se quitarían "
                                                 "las copias del destino."));
            return;
        }
        rollBack(plan, states);
    }
}

void TransferRecovery::complete(const TransferPlan& plan, QList<ItemState>& states)
{
    bool done = true;
    if (plan.kind == TransferKind::move) {
        for (qsizetype n = 0; n < plan.items.size(); ++n) {
            ItemState& state = states[n];
            if (state.source == Place::absent)
                continue;
            const QString name = shown(Paths::fileName(plan.items[n].source));
            if (state.source == Place::other || state.kept != Place::absent) {
                problem(name + QStringLiteral(" cambió desde que se planeó; se deja en su carpeta."));
                done = false;
            } else if (keep(plan, n)) {
                state.kept = std::exchange(state.source, Place::absent);
            } else {
                done = false;
            }
        }
    }
    removeStaging(plan, states);
    if (done)
        m_report.lines.append(QStringLiteral("Completado: %1 archivos verificados en %2.")
                                  .arg(plan.items.size()).arg(shown(plan.destination)));
}

void TransferRecovery::rollBack(const TransferPlan& plan, QList<ItemState>& states)
{
    bool done = true;
    for (qsizetype n = plan.items.size() - 1; n >= 0; --n) {
        ItemState& state = states[n];
        const TransferItem& item = plan.items[n];
        if (state.kept == Place::absent)
            continue;
        if (state.source == Place::absent && m_fileSystem.renameExclusive(keptCopy(plan, n), item.source)) {
            state.source = std::exchange(state.kept, Place::absent);
        } else {
            problem(QStringLiteral("No se puede devolver ") + shown(Paths::fileName(item.source))
                    + QStringLiteral(" a su carpeta sin sobrescribir; sigue en .vantelor-move-recovery."));
            done = false;
        }
    }
    for (qsizetype n = plan.items.size() - 1; n >= 0; --n) {
        ItemState& state = states[n];
        const TransferItem& item = plan.items[n];
        if (state.destination != Place::verified)
            continue;
        // The placed copy goes only while the original is home with the same bytes; otherwise
        // it is the one verified copy left, and the file stays at its destination.
        if (state.source == Place::verified && placeOf(item.source, item.digest) == Place::verified) {
            if (m_fileSystem.removeFile(item.destination))
                state.destination = Place::absent;
            else
                done = false;
        }
    }
    removeStaging(plan, states);
    removeRecoveryFolders(plan);
    if (done)
        m_report.lines.append(QStringLiteral("Deshecho: cada archivo sigue en su carpeta de origen."));
}

void TransferRecovery::purge(const TransferPlan& plan, QList<ItemState>& states)
{
    int removed = 0;
    for (qsizetype n = 0; n < plan.items.size(); ++n) {
        ItemState& state = states[n];
        const TransferItem& item = plan.items[n];
        if (state.kept == Place::absent)
            continue;
        // Read again now: the copy at the destination may have changed since the move.
        if (placeOf(item.destination, item.digest) != Place::verified) {
            problem(QStringLiteral("Se conserva el original de ") + shown(Paths::fileName(item.source))
                    + QStringLiteral(": su copia en el destino ya no coincide."));
            continue;
        }
        if (m_fileSystem.removeFile(keptCopy(plan, n))) {
            state.kept = Place::absent;
            ++removed;
        }
    }
    m_report.keptOriginals -= removed;
    removeRecoveryFolders(plan);
    m_report.lines.append(QStringLiteral("Borrados %1 originales ya verificados en el destino.").arg(removed));
}

void TransferRecovery::removeStaging(const TransferPlan& plan, const QList<ItemState>& states)
{
    const QString folder = staging(plan);
    if (!isFolder(folder))
        return;
    for (qsizetype n = 0; n < plan.items.size(); ++n) {
        const ItemState& state = states[n];
        if (state.staged == Place::absent)
            continue;
        const TransferItem& item = plan.items[n];
        const QString staged = stagedCopy(plan, n);
        // A staged copy that verifies while neither the original nor the placed copy does is the
        // last good copy: it goes to its destination name rather than away.
        if (state.staged == Place::verified && state.source != Place::verified && state.destination != Place::verified) {
            if (!m_fileSystem.renameExclusive(staged, item.destination))
                problem(QStringLiteral("La única copia verificada de ") + shown(Paths::fileName(item.source))
                        + QStringLiteral(" sigue en ") + shown(staged));
            continue;
        }
        (void)m_fileSystem.removeFile(staged);
    }
    (void)m_fileSystem.removeFile(Paths::join(folder, TransferExecution::journalName()));
    if (!m_fileSystem.removeFolder(folder))
        problem(QStringLiteral("La carpeta de preparación guarda otros archivos y se deja: ") + shown(folder));
}

void TransferRecovery::removeRecoveryFolders(const TransferPlan& plan)
{
    QSet<QString> folders;
    for (qsizetype n = 0; n < plan.items.size(); ++n)
        folders.insert(Paths::parent(keptCopy(plan, n)));
    for (const QString& folder : std::as_const(folders)) {
        // A recovery folder killed before its journal was written is empty.
        const Result<QStringList> names = namesIn(folder);
        if (names && (names->isEmpty() || *names == QStringList{TransferExecution::journalName()})) {
            if (!names->isEmpty())
                (void)m_fileSystem.removeFile(Paths::join(folder, TransferExecution::journalName()));
            (void)m_fileSystem.removeFolder(folder);
        }
        if (holdsExactly(Paths::parent(folder), {}))
            (void)m_fileSystem.removeFolder(Paths::parent(folder));
    }
}

bool TransferRecovery::keep(const TransferPlan& plan, qsizetype index)
{
    const QString kept = keptCopy(plan, index);
    const QString folder = Paths::parent(kept);
    const QString area = Paths::parent(folder);
    for (const QString& path : {area, folder}) {
        const Result<FileStat> stat = FileStat::read(path);
        if (stat && !stat->isDirectory()) {
            problem(QStringLiteral("La carpeta de recuperación no es segura: ") + shown(path));
            return false;
        }
        if (!stat && !m_fileSystem.createFolder(path)) {
            problem(QStringLiteral("No se puede crear ") + shown(path));
            return false;
        }
    }
    const QString journal = Paths::join(folder, TransferExecution::journalName());
    if (!exists(journal))
        (void)m_fileSystem.writeNewFile(journal, plan.journal());
    if (!m_fileSystem.renameExclusive(plan.items[index].source, kept)) {
        problem(QStringLiteral("No se pudo conservar la copia de recuperación de ")
                + shown(Paths::fileName(plan.items[index].source)));
        return false;
    }
    return true;
}

void TransferRecovery::problem(const QString& line)
{
    m_report.problems = true;
    m_report.lines.append(line);
}

bool TransferRecovery::mayNeedAttention(const QString& folder)
{
    const Result<QStringList> names = namesIn(folder);
    if (!names)
        return false;
    for (const QString& name : *names)
        if (name.startsWith(TransferExecution::stagingPrefix()))
            return true;
    const QString area = Paths::join(folder, TransferExecution::recoveryAreaName());
    const Result<QStringList> ids = namesIn(area);
    if (!ids)
        return false;
    for (const QString& id : *ids) {
        const std::optional<TransferPlan> plan = readJournal(Paths::join(Paths::join(area, id), TransferExecution::journalName()));
        // The same judgement as putRight's for a journal without staging, by existence alone.
        if (!plan || plan->kind != TransferKind::move || isFolder(staging(*plan)))
            return true;
        bool home = false;
        bool kept = false;
        for (qsizetype n = 0; n < plan->items.size(); ++n) {
            home = home || exists(plan->items[n].source);
            kept = kept || exists(keptCopy(*plan, n));
        }
        if (home && kept)
            return true;
    }
    return false;
}

QString TransferRecovery::staging(const TransferPlan& plan)
{
    return Paths::join(plan.destination, TransferExecution::stagingPrefix() + plan.idText());
}

QString TransferRecovery::keptCopy(const TransferPlan& plan, qsizetype index)
{
    const QString& source = plan.items[index].source;
    const QString area = Paths::join(Paths::parent(source), TransferExecution::recoveryAreaName());
    return Paths::join(Paths::join(area, plan.idText()), Paths::fileName(source));
}

QString TransferRecovery::stagedCopy(const TransferPlan& plan, qsizetype index)
{
    return Paths::join(staging(plan), QStringLiteral("item-") + QString::number(index));
}

TransferRecovery::Place TransferRecovery::placeOf(const QString& path, const QString& digest)
{
    if (!exists(path))
        return Place::absent;
    const Result<QString> actual = FileDigest::sha256(path);
    return actual && *actual == digest ? Place::verified : Place::other;
}

} // namespace vantelor
