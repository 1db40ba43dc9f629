#pragma once

#include <optional>

#include <QList>
#include <QStringList>

#include "Files/TransferFileSystem.h"
#include "Files/TransferPlan.h"
#include "Support/Result.h"

namespace vantelor {

// What a look at a folder's transfer journals found, and what was done about it.
struct RecoveryReport {
    int unfinished = 0;     // transfers that stopped half-way
    int keptOriginals = 0;  // originals of finished moves still kept in recovery folders
    bool problems = false;  // something could not be put right and is left as it was
    QStringList lines;      // one Spanish sentence per finding or action

    bool needsAttention() const { return unfinished > 0 || problems; }
    QString text() const { return lines.join(QLatin1Char('\n')); }
};

// Puts right what an interrupted transfer left in a folder: the staging folders
// ".vantelor-transfer-<id>" of a destination and the recovery folders
// ".vantelor-move-recovery/<id>" of a source folder. Each journal names every file with its
// digest; the digests alone tell where each file's verified bytes are. A transfer whose every
// file is verified at its destination is completed (for a move, the originals still at home join
// the recovery folder, as a finished move would have left them); any other is rolled back. A
// file is only ever deleted while another copy with the recorded digest exists, and nothing is
// placed over an existing name. With `purgeVerified`, the originals kept by finished moves are
// deleted, each only after its destination was read again and still holds the recorded digest.
class TransferRecovery {
public:
    TransferRecovery(TransferFileSystem& fileSystem, bool dryRun, bool purgeVerified);

    Result<RecoveryReport> run(const QString& folder);

    // Whether run() could find something that needs attention in `folder`, judged from names
    // alone: a staging folder, or a move whose originals are partly home and partly kept. Cheap
    // enough for every opening of a folder, where run() would read every kept original again.
    static bool mayNeedAttention(const QString& folder);

private:
    enum class Place { absent, verified, other };
    struct ItemState {
        Place source = Place::absent;
        Place kept = Place::absent;
        Place destination = Place::absent;
        Place staged = Place::absent;
    };
    struct Journal {
        TransferPlan plan;
        bool staging = false;  // whether its staging folder is still there
    };

    std::optional<Failure> readJournals(const QString& folder, QList<Journal>& journals);
    void putRight(const Journal& journal);
    void complete(const TransferPlan& plan, QList<ItemState>& states);
    void rollBack(const TransferPlan& plan, QList<ItemState>& states);
    void purge(const TransferPlan& plan, QList<ItemState>& states);
    void removeStaging(const TransferPlan& plan, const QList<ItemState>& states);
    void removeRecoveryFolders(const TransferPlan& plan);
    bool keep(const TransferPlan& plan, qsizetype index);
    void problem(const QString& line);

    static QString staging(const TransferPlan& plan);
    static QString keptCopy(const TransferPlan& plan, qsizetype index);
    static QString stagedCopy(const TransferPlan& plan, qsizetype index);
    static Place placeOf(const QString& path, const QString& digest);

    TransferFileSystem& m_fileSystem;
    const bool m_dryRun;
    const bool m_purgeVerified;
    RecoveryReport m_report;
};

} // namespace vantelor
