#include <sys/stat.h>

#include <gtest/gtest.h>

#include "Files/DirectoryService.h"
#include "Support/FileStat.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"

using namespace vantelor;
using namespace vantelor::test;

namespace {

QStringList namesOf(const QList<DirectoryEntry>& entries)
{
    QStringList names;
    for (const DirectoryEntry& entry : entries)
        names.append(entry.name);
    return names;
}

} // namespace

TEST(DirectoryService, ListsOnlyRealVisibleSubfolders)
{
    Sandbox box;
    box.mkdir(QStringLiteral("Fotos"));
    box.mkdir(QStringLiteral("Viaje.app"));  // no packages on Linux: an ordinary folder
    box.mkdir(QStringLiteral(".oculta"));
    box.mkdir(QStringLiteral("otra/dentro"));
    box.write(QStringLiteral("archivo.NEF"), "x");
    box.symlink(box.file(QStringLiteral("otra")), QStringLiteral("enlace"));
    box.symlink(box.file(QStringLiteral("nada")), QStringLiteral("roto"));
    ASSERT_EQ(::mkfifo(Paths::encode(box.file(QStringLiteral("tubo"))).constData(), 0644), 0);

    DirectoryService service;
    const auto entries = service.children(box.path()).result();
    ASSERT_TRUE(entries.ok()) << entries.message().toStdString();
    EXPECT_EQ(namesOf(*entries), (QStringList{"Fotos", "otra", "Viaje.app"}));
    const DirectoryEntry& first = entries->first();
    EXPECT_EQ(first.url, box.file(QStringLiteral("Fotos")));
    EXPECT_EQ(first.created, FileStat::read(first.url)->created);
}

TEST(DirectoryService, OrdersNamesAsAFileBrowserDoes)
{
    Sandbox box;
    for (const QString& name : {QStringLiteral("Día 10"), QStringLiteral("día 2"), QStringLiteral("Día 1"),
                                QStringLiteral("b"), QStringLiteral("A")})
        box.mkdir(name);
    const auto entries = DirectoryService::listChildren(box.path());
    ASSERT_TRUE(entries.ok());
    EXPECT_EQ(namesOf(*entries), (QStringList{"A", "b", "Día 1", "día 2", "Día 10"}));
}

TEST(DirectoryService, KeepsNamesThatAreNotUtf8ByteForByte)
{
    Sandbox box;
    const QString odd = Paths::decode(QByteArray("caf\xe9"));
    box.mkdir(odd);
    const auto entries = DirectoryService::listChildren(box.path());
    ASSERT_TRUE(entries.ok());
    ASSERT_EQ(entries->size(), 1);
    EXPECT_EQ(entries->first().name, odd);
    EXPECT_EQ(Paths::encode(entries->first().url), Paths::encode(box.path()) + "/caf\xe9");
}

TEST(DirectoryService, ListingErrorsPassThrough)
{
    Sandbox box;
    box.write(QStringLiteral("archivo"), "x");
    for (const QString& folder : {box.file(QStringLiteral("falta")), box.file(QStringLiteral("archivo"))}) {
        const auto entries = DirectoryService::listChildren(folder);
        ASSERT_FALSE(entries.ok());
        EXPECT_TRUE(std::holds_alternative<SystemError>(entries.failure()));
    }
}

TEST(DirectoryService, RefusesNamesThatAreNotFolderNames)
{
    Sandbox box;
    const QStringList refused = {QString(), QStringLiteral("  "), QStringLiteral("\n\t "), QStringLiteral("."),
                                 QStringLiteral(".."), QStringLiteral("a/b"), QStringLiteral("a:b"),
                                 QStringLiteral("/"), QString(QStringLiteral("a")) + QChar(0) + QStringLiteral("b")};
    DirectoryService service;
    for (const QString& name : refused) {
        SCOPED_TRACE(name.toStdString());
        const auto created = service.createFolder(box.path(), name).result();
        ASSERT_FALSE(created.ok());
        EXPECT_EQ(std::get<WorkflowError>(created.failure()),
                  WorkflowError::invalid(QStringLiteral("Elige un nombre de carpeta válido")));
    }
    EXPECT_TRUE(DirectoryService::listChildren(box.path())->isEmpty());
}

TEST(DirectoryService, CreatesFoldersKeepingTheNameAsTyped)
{
    Sandbox box;
    const QString odd = Paths::decode(QByteArray("raro\xff"));
    for (const QString& name : {QStringLiteral("Selección"), QStringLiteral(" espacios "), QStringLiteral(".oculta"), odd}) {
        SCOPED_TRACE(name.toStdString());
        const auto created = DirectoryService::makeFolder(box.path(), name);
        ASSERT_TRUE(created.ok()) << created.message().toStdString();
        EXPECT_EQ(*created, Paths::join(box.path(), name));
        const auto stat = FileStat::read(*created);
        ASSERT_TRUE(stat.ok());
        EXPECT_TRUE(stat->isDirectory());
        const mode_t mask = ::umask(0);
        ::umask(mask);
        EXPECT_EQ(stat->mode & 0777, 0755u & ~mask);
    }
}

TEST(DirectoryService, NeverReplacesAnExistingEntry)
{
    Sandbox box;
    box.write(QStringLiteral("Ocupado"), "datos");
    box.mkdir(QStringLiteral("Carpeta"));
    box.symlink(box.file(QStringLiteral("nada")), QStringLiteral("Enlace"));
    const struct {
        QString parent;
        QString name;
        QString expected;
    } rows[] = {
        {box.path(), QStringLiteral("Ocupado"), QStringLiteral("No se pudo crear la carpeta: File exists")},
        {box.path(), QStringLiteral("Carpeta"), QStringLiteral("No se pudo crear la carpeta: File exists")},
        {box.path(), QStringLiteral("Enlace"), QStringLiteral("No se pudo crear la carpeta: File exists")},
        {box.file(QStringLiteral("falta")), QStringLiteral("Nueva"),
         QStringLiteral("No se pudo crear la carpeta: No such file or directory")},
        {box.file(QStringLiteral("Ocupado")), QStringLiteral("Nueva"),
         QStringLiteral("No se pudo crear la carpeta: Not a directory")},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name.toStdString());
        const auto created = DirectoryService::makeFolder(row.parent, row.name);
        ASSERT_FALSE(created.ok());
        EXPECT_EQ(std::get<WorkflowError>(created.failure()), WorkflowError::io(row.expected));
    }
    EXPECT_EQ(box.read(QStringLiteral("Ocupado")), "datos");
    EXPECT_FALSE(box.exists(QStringLiteral("falta")));
}
