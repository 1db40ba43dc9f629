#include <sys/stat.h>

#include <QCryptographicHash>
#include <QJsonDocument>
#include <QJsonObject>

#include "Files/FileDigest.h"
#include "Files/TransferPlanner.h"
#include "TransferTestSupport.h"

using namespace vantelor;
using namespace vantelor::test;

namespace {

Result<TransferPlan> planNow(const QStringList& sources, const QString& destination, TransferKind kind = TransferKind::copy)
{
    return FileWorkflow().plan(sources, destination, kind).result();
}

} // namespace

TEST(TransferPlanning, TakesEveryFileWithTheSameBaseNameOnce)
{
    const Shoot shoot(0);
    const QString &src = shoot.src, &dest = shoot.dest;
    for (const char* name : {"A.NEF", "A.xmp", "a.JPG", "A.NEF.xmp", "A.NEF.dop", "A.pp3", "B.NEF", "AB.NEF", ".A.tmp"})
        shoot.box.write(QStringLiteral("src/") + QLatin1String(name), patternBytes(100 + int(strlen(name)), int(name[1])));

    const struct { QStringList selected; QStringList expected; } rows[] = {
        {{"A.NEF"}, {"A.NEF", "A.NEF.dop", "A.NEF.xmp", "A.pp3", "A.xmp", "a.JPG"}},
        {{"A.NEF", "a.JPG", "A.NEF"}, {"A.NEF", "A.NEF.dop", "A.NEF.xmp", "A.pp3", "A.xmp", "a.JPG"}},
        {{"B.NEF", "A.xmp"}, {"A.NEF", "A.pp3", "A.xmp", "B.NEF", "a.JPG"}},
        {{"A.NEF.xmp"}, {"A.NEF.dop", "A.NEF.xmp"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.selected.join(',').toStdString());
        QStringList paths, names;
        for (const QString& name : row.selected)
            paths.append(Paths::join(src, name));
        const auto plan = planNow(paths, dest, TransferKind::move);
        ASSERT_TRUE(plan.ok()) << plan.message().toStdString();
        for (const TransferItem& item : plan->items) {
            names.append(Paths::fileName(item.source));
            EXPECT_EQ(std::tuple(item.digest, item.bytes, item.destination),
                      std::tuple(*FileWorkflow::digest(item.source), readFile(item.source).size(), Paths::join(dest, names.last())));
        }
        EXPECT_EQ(names, row.expected);
    }
    EXPECT_TRUE(visibleNames(dest).isEmpty());
}

TEST(TransferPlanning, RefusesWhatCannotTravelSafely)
{
    const Shoot shoot(0);
    const Sandbox& box = shoot.box;
    const QString &src = shoot.src, &dest = shoot.dest;
    for (const char* name : {"src/A.NEF", "src/C.NEF", "dest/c.nef", "src/D.NEF", "src/F.NEF", "src/H.jpg", "src/h.JPG", "archivo"})
        box.write(QString::fromUtf8(name), name);
    box.mkdir(QStringLiteral("src/D.data"));
    box.symlink(box.file(QStringLiteral("src/A.NEF")), QStringLiteral("src/F.xmp"));
    box.symlink(box.file(QStringLiteral("src/A.NEF")), QStringLiteral("src/G.NEF"));
    box.symlink(src, QStringLiteral("srclink"));

    const auto invalid = [](const char* text) { return Failure(WorkflowError::invalid(QString::fromUtf8(text))); };
    const auto taken = [](const char* name) {
        return Failure(WorkflowError::conflict(QStringLiteral("El destino ya contiene %1; no se sobrescribirá nada").arg(QLatin1String(name))));
    };
    const struct { const char* what; QStringList sources; QString destination; Failure expected; } rows[] = {
        {"destination missing", {src + "/A.NEF"}, box.file("falta"), invalid("El destino no es una carpeta")},
        {"destination is a file", {src + "/A.NEF"}, box.file("archivo"), invalid("El destino no es una carpeta")},
        {"empty selection", {}, dest, invalid("Selecciona primero las fotografías")},
        {"selected link", {src + "/G.NEF"}, dest, invalid("No se pueden transferir enlaces simbólicos")},
        {"destination reaches the source folder through a link", {src + "/A.NEF"}, box.file("srclink"),
         invalid("Elige otra carpeta de destino")},
        {"source reached through a link", {box.file("srclink/A.NEF")}, src, invalid("Elige otra carpeta de destino")},
        {"associated link", {src + "/F.NEF"}, dest, invalid("Archivo asociado rechazado: enlace simbólico")},
        {"associated folder", {src + "/D.NEF"}, dest, invalid("Archivo asociado no compatible: D.data")},
        {"name taken in another case", {src + "/C.NEF"}, dest, taken("C.NEF")},
        {"names differing only in case", {src + "/H.jpg"}, dest, taken("h.JPG")},
    };
    const auto before = treeContents(box.path());
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(planNow(row.sources, row.destination).failure(), row.expected);
    }
    EXPECT_EQ(std::get<SystemError>(planNow({src + "/Z.NEF"}, dest).failure()).code(), ENOENT);
    EXPECT_EQ(treeContents(box.path()), before);
}

TEST(TransferPlanning, DestinationInsideASourceFolderIsAnotherFolder)
{
    Shoot shoot(1);
    shoot.box.symlink(shoot.box.mkdir(QStringLiteral("src/Selección")), QStringLiteral("atajo"));
    const auto plan = planNow(shoot.photos, shoot.box.file(QStringLiteral("atajo")));
    EXPECT_EQ(plan->items.first().destination, shoot.box.file(QStringLiteral("src/Selección/DSC_0001.NEF")));
}

TEST(TransferPlanning, JournalKeepsEveryNameAndNumberAndCanBeCancelled)
{
    const Shoot shoot(0);
    const QString &src = shoot.src, &dest = shoot.dest;
    const QString odd = Paths::decode(QByteArray("caf\xe9 #1"));
    shoot.box.write(QStringLiteral("src/") + odd + QStringLiteral(".NEF"), QByteArray());
    shoot.box.write(QStringLiteral("src/") + odd + QStringLiteral(".xmp"), "x");
    const QStringList photo{Paths::join(src, odd + ".NEF")};
    EXPECT_TRUE(isCancelled(TransferPlanner::plan(photo, dest, TransferKind::copy, [] { return true; }).failure()));
    const auto plan = planNow(photo, dest, TransferKind::move);
    ASSERT_TRUE(plan.ok()) << plan.message().toStdString();
    ASSERT_EQ(plan->items.size(), 2);
    EXPECT_EQ(plan->items[0].bytes, 0);
    EXPECT_EQ(plan->items[0].digest, QStringLiteral("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"));

    // The format outlives the version that wrote it: one line of JSON, names as file URLs
    // whatever their bytes, and recovery never acts on half a record.
    const QByteArray journal = plan->journal();
    const QJsonObject object = QJsonDocument::fromJson(journal).object();
    EXPECT_EQ(object["kind"].toString(), QStringLiteral("move"));
    EXPECT_TRUE(object["items"][0]["source"].toString().endsWith(QStringLiteral("/src/caf%E9%20%231.NEF")));
    EXPECT_FALSE(journal.contains('\n'));
    for (const QString& key : object.keys()) {
        QJsonObject damaged = object;
        damaged.remove(key);
        EXPECT_FALSE(TransferPlan::fromJournal(QJsonDocument(damaged).toJson())) << key.toStdString();
    }
    EXPECT_TRUE(TransferPlan::fromJournal(journal) == std::optional(*plan));
    EXPECT_EQ(Paths::encode(plan->items[0].source), Paths::encode(src) + "/caf\xe9 #1.NEF");
}

TEST(FileDigest, MatchesSha256AcrossChunkBoundariesAndRefusesAllButRegularFiles)
{
    Sandbox box;
    const qsizetype chunk = FileDigest::chunkSize;
    for (const qsizetype size : {qsizetype(0), qsizetype(1), chunk - 1, chunk, chunk + 1, 3 * chunk + 5}) {
        SCOPED_TRACE(size);
        const QByteArray bytes = patternBytes(size, int(size % 97));
        const auto digest = FileWorkflow::digest(box.write(QStringLiteral("f"), bytes));
        EXPECT_EQ(digest->toLatin1(), QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex());
    }
    box.symlink(box.file(QStringLiteral("f")), QStringLiteral("link"));
    box.mkdir(QStringLiteral("folder"));
    ASSERT_EQ(::mkfifo(Paths::encode(box.file(QStringLiteral("fifo"))).constData(), 0644), 0);
    for (const char* name : {"link", "folder", "fifo"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(FileWorkflow::digest(box.file(QLatin1String(name))).failure(),
                  Failure(WorkflowError::invalid(QStringLiteral("Solo se pueden transferir archivos normales"))));
    }
    EXPECT_EQ(FileWorkflow::digest(box.file(QStringLiteral("missing"))).message(),
              box.file(QStringLiteral("missing")) + QStringLiteral(": No such file or directory"));
}
