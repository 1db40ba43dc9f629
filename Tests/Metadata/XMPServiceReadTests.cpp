#include <cstdio>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <QDir>

#include "Metadata/SidecarReader.h"
#include "Metadata/XMPService.h"
#include "Support/ImageFixtures.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"
#include "Support/XmpFixtures.h"

namespace vantelor {
namespace {

using test::Sandbox;

int openDescriptors()
{
    return int(QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size());
}

const QByteArray& nefBytes()
{
    static const QByteArray bytes = test::makeNef(32, 24);
    return bytes;
}

TEST(XMPServiceRead, sidecarsArePairedByBaseNameIgnoringCase)
{
    const QByteArray xmp = test::XmpFixtures::darktable(2, QStringLiteral("Red"));
    const QString invalidName = Paths::decode("caf\xE9");   // Latin-1 bytes: not UTF-8
    const struct {
        QStringList files;
        QString raw;
        QString sidecar;   // expected name, or empty when an error is expected
        QString error;
    } rows[] = {
        {{"A.NEF"}, "A.NEF", "A.xmp", {}},   // none: unrated, and nothing is created
        {{"b.nef", "B.Xmp", "B.jpg", "B.NEF.xmp"}, "b.nef", "B.Xmp", {}},
        {{"C.NEF", "C.NEF.xmp"}, "C.NEF", "C.xmp", {}},   // an appended name is not the sidecar
        {{"Ñandú.NEF", "ñANDÚ.xmp"}, "Ñandú.NEF", "ñANDÚ.xmp", {}},
        {{invalidName + ".NEF", invalidName + ".xmp"}, invalidName + ".NEF", invalidName + ".xmp", {}},
        {{"A.NEF", "A.xmp", "A.XMP"}, "A.NEF", {}, "Varios XMP coinciden con A"},
        {{"A.NEF", "a.nef", "A.xmp"}, "A.NEF", {}, "Nombre base NEF ambiguo: A"},
    };
    XMPService service;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.files.join(QLatin1Char(' ')).toStdString());
        Sandbox box;
        for (const QString& name : row.files)
            box.write(name, name.endsWith(QLatin1String("xmp"), Qt::CaseInsensitive) ? xmp : nefBytes());
        const Result<XMPSnapshot> read = service.read(box.file(row.raw)).result();
        if (!row.error.isEmpty()) {
            EXPECT_EQ(read.message(), row.error);
            continue;
        }
        ASSERT_TRUE(read.ok()) << read.message().toStdString();
        EXPECT_EQ(read->sidecar, box.file(row.sidecar));
        const bool exists = box.exists(row.sidecar);
        EXPECT_EQ(read->data, exists ? std::optional(box.read(row.sidecar)) : std::nullopt);
        EXPECT_EQ(read->rating, exists ? 2 : 0);
        if (!exists) {   // nothing is created
            EXPECT_EQ(test::allNames(box.path()), row.files);
        }
    }
}

TEST(XMPServiceRead, unsafeSidecarsAreRefusedAndNothingIsCreated)
{
    const QByteArray xmp = test::XmpFixtures::lightroom(4, QStringLiteral("Blue"));
    const QString unsafe = QStringLiteral("Archivo XMP inseguro o demasiado grande");
    const QString link = QStringLiteral("Archivo XMP rechazado: enlace simbólico");
    const struct { const char* name; std::function<void(const Sandbox&)> make; QString error; } rows[] = {
        {"link to a valid sidecar", [&](const Sandbox& b) { b.write(QStringLiteral("real.xmp"), xmp); b.symlink(b.file(QStringLiteral("real.xmp")), QStringLiteral("X.xmp")); }, unsafe},
        {"dangling link", [](const Sandbox& b) { b.symlink(b.file(QStringLiteral("gone.xmp")), QStringLiteral("X.xmp")); }, link},
        {"link to itself", [](const Sandbox& b) { b.symlink(b.file(QStringLiteral("X.xmp")), QStringLiteral("X.xmp")); }, link},
        {"directory", [](const Sandbox& b) { b.mkdir(QStringLiteral("X.xmp")); }, unsafe},
        {"FIFO (never opened, so never blocks)", [](const Sandbox& b) { ASSERT_EQ(::mkfifo(Paths::encode(b.file(QStringLiteral("X.xmp"))).constData(), 0644), 0); }, unsafe},
        {"one byte over 16 MiB", [&](const Sandbox& b) { b.write(QStringLiteral("X.xmp"), xmp + QByteArray(SidecarReader::maximumSize + 1 - xmp.size(), ' ')); }, unsafe},
        {"exactly 16 MiB is read", [&](const Sandbox& b) { b.write(QStringLiteral("X.xmp"), xmp + QByteArray(SidecarReader::maximumSize - xmp.size(), ' ')); }, {}},
    };
    XMPService service;
    // The service's worker holds descriptors of its own once it has started.
    ASSERT_TRUE(service.read(QStringLiteral("/nonexistent/A.NEF")).result().message().endsWith(QStringLiteral("No such file or directory")));
    const int descriptors = openDescriptors();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Sandbox box;
        const QString raw = box.write(QStringLiteral("X.NEF"), nefBytes());
        row.make(box);
        const Result<XMPSnapshot> read = service.read(raw).result();
        if (row.error.isEmpty()) {
            ASSERT_TRUE(read.ok()) << read.message().toStdString();
            EXPECT_EQ(read->rating, 4);
            EXPECT_EQ(read->data->size(), SidecarReader::maximumSize);
        } else {
            EXPECT_EQ(read.message(), row.error);
        }
        EXPECT_FALSE(box.exists(QStringLiteral(".vantelor-backups")));
    }
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST(XMPServiceRead, aSidecarWhoseReadFailsIsAnErrorAndItsFileIsClosed)
{
    // A regular file whose read fails: a process's memory at address 0.
    const QString memory = QStringLiteral("/proc/self/mem");
    const int descriptors = openDescriptors();
    EXPECT_EQ(SidecarReader::readSidecar(memory).message(), SystemError(EIO, memory).message());
    EXPECT_EQ(openDescriptors(), descriptors);
    // A folder that cannot hold the sidecar means there is none; a name the system refuses is an error.
    const Result<std::optional<QByteArray>> underAFile = SidecarReader::readSidecar(QStringLiteral("/proc/self/stat/X.xmp"));
    EXPECT_TRUE(underAFile && !*underAFile);
    const QString tooLong = QStringLiteral("/tmp/") + QString(300, QLatin1Char('x')) + QStringLiteral(".xmp");
    EXPECT_EQ(SidecarReader::readSidecar(tooLong).message(), SystemError(ENAMETOOLONG, tooLong).message());
}

TEST(XMPServiceRead, aSidecarLargerThanItsSizeSaidIsRefused)
{
    // A regular file whose size reads as 0 but that yields far more than 16 MiB: what a sidecar
    // that grows between the check and the read looks like. The page map of a process is one;
    // root can bind it over the sidecar's path.
    Sandbox box;
    const QString raw = box.write(QStringLiteral("G.NEF"), nefBytes());
    const QString sidecar = box.write(QStringLiteral("G.xmp"), QByteArray());
    const QByteArray source = "/proc/" + QByteArray::number(::getpid()) + "/pagemap";
    if (::geteuid() != 0 || ::mount(source.constData(), Paths::encode(sidecar).constData(), nullptr, MS_BIND, nullptr) != 0)
        GTEST_SKIP() << "binding a file over another needs root";
    XMPService service;
    const Result<XMPSnapshot> read = service.read(raw).result();
    ::umount2(Paths::encode(sidecar).constData(), MNT_DETACH);
    EXPECT_EQ(read.message(), QStringLiteral("Archivo XMP demasiado grande"));
}

TEST(XMPServiceRead, aBatchKeepsInputOrderAndGoesOnPastFailures)
{
    Sandbox box;
    QList<QString> raws;
    for (int i = 0; i < 6; ++i) {
        const QString name = QStringLiteral("DSC_%1").arg(i, 4, 10, QLatin1Char('0'));
        raws.append(box.write(name + QStringLiteral(".NEF"), nefBytes()));
        if (i == 2)
            box.write(name + QStringLiteral(".xmp"), "<not xml");
        else if (i != 4)
            box.write(name + QStringLiteral(".xmp"), test::XmpFixtures::captureOne(i % 6, QStringLiteral("L%1").arg(i)));
    }
    raws.insert(3, QStringLiteral("/nonexistent-folder/DSC_9999.NEF"));
    std::swap(raws[0], raws[6]);

    XMPService service;
    const QList<MetadataReadResult> results = service.readMany(raws).result();
    ASSERT_EQ(results.size(), raws.size());
    for (qsizetype i = 0; i < raws.size(); ++i) {
        SCOPED_TRACE(raws[i].toStdString());
        EXPECT_EQ(results[i].url, raws[i]);
        EXPECT_NE(results[i].snapshot.has_value(), results[i].error.has_value());
    }
    EXPECT_TRUE(results[0].snapshot && results[0].snapshot->rating == 5);   // DSC_0005
    EXPECT_EQ(results[0].snapshot->label, QStringLiteral("L5"));
    EXPECT_TRUE(results[2].error && results[2].error->startsWith(QStringLiteral("XML no válido")));
    EXPECT_EQ(results[3].error, QStringLiteral("/nonexistent-folder: No such file or directory"));
    EXPECT_TRUE(results[5].snapshot && !results[5].snapshot->data);           // DSC_0004: none
    EXPECT_TRUE(results[6].snapshot && results[6].snapshot->label == QStringLiteral("L0"));
}

TEST(XMPServiceRead, readRefusesWhatIsNotANefPhoto)
{
    Sandbox box;
    const QString nefOnly = QStringLiteral("El guardado XMP solo está habilitado para Nikon NEF. Los otros formatos "
                                           "solo conservan cambios durante esta sesión.");
    box.write(QStringLiteral("IMG_1.JPG"), test::makeJpeg(8, 8));
    box.write(QStringLiteral("IMG_1.xmp"), test::XmpFixtures::darktable(3, std::nullopt));
    box.mkdir(QStringLiteral("folder.NEF"));
    box.symlink(box.file(QStringLiteral("IMG_1.JPG")), QStringLiteral("link.NEF"));
    XMPService service;
    for (const char* name : {"IMG_1.JPG", "folder.NEF", "link.NEF"})
        EXPECT_EQ(service.read(box.file(QString::fromUtf8(name))).result().message(), nefOnly) << name;
}

} // namespace
} // namespace vantelor
