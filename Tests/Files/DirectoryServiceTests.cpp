#include <sys/stat.h>

#include <gtest/gtest.h>

#include "Files/DirectoryService.h"
#include "Support/FileStat.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"

using namespace vantelor;
using namespace vantelor::test;

TEST(DirectoryService, ListsRealVisibleSubfoldersAsAFileBrowserOrdersThem)
{
    Sandbox box;
    const QString odd = Paths::decode(QByteArray("caf\xe9"));
    for (const QString& name : {QStringLiteral("Día 10"), QStringLiteral("día 2"), QStringLiteral("Día 1"), QStringLiteral("b"),
                                QStringLiteral("Viaje.app"), QStringLiteral(".oculta"), QStringLiteral("b/dentro"), odd})
        box.mkdir(name);
    box.write(QStringLiteral("archivo.NEF"), "x");
    box.symlink(box.file(QStringLiteral("b")), QStringLiteral("enlace"));
    box.symlink(box.file(QStringLiteral("nada")), QStringLiteral("roto"));
    ASSERT_EQ(::mkfifo(Paths::encode(box.file(QStringLiteral("tubo"))).constData(), 0644), 0);

    const auto entries = DirectoryService().children(box.path()).result();
    QStringList names;
    for (const DirectoryEntry& entry : *entries) {
        names.append(entry.name);
        EXPECT_EQ(entry.url, Paths::join(box.path(), entry.name));
        EXPECT_EQ(entry.created, FileStat::read(entry.url)->created);
    }
    EXPECT_TRUE(names.removeOne(odd));
    // No packages on Linux: "Viaje.app" is an ordinary folder.
    EXPECT_EQ(names, (QStringList{"b", "Día 1", "día 2", "Día 10", "Viaje.app"}));
    for (const QString& folder : {box.file(QStringLiteral("falta")), box.file(QStringLiteral("archivo.NEF"))})
        EXPECT_TRUE(std::holds_alternative<SystemError>(DirectoryService::listChildren(folder).failure()));
}

TEST(DirectoryService, CreatesFoldersAsTypedAndNeverReplacesAnything)
{
    Sandbox box;
    box.write(QStringLiteral("Ocupado"), "datos");
    box.symlink(box.file(QStringLiteral("nada")), QStringLiteral("Enlace"));
    const auto invalid = Failure(WorkflowError::invalid(QStringLiteral("Elige un nombre de carpeta válido")));
    const auto notCreated = [](const char* why) { return Failure(WorkflowError::io(QStringLiteral("No se pudo crear la carpeta: ") + why)); };
    const struct { QString parent; QString name; std::optional<Failure> error; } rows[] = {
        {box.path(), QStringLiteral("Selección"), {}}, {box.path(), QStringLiteral(" espacios "), {}},
        {box.path(), QStringLiteral(".oculta"), {}}, {box.path(), Paths::decode(QByteArray("raro\xff")), {}},
        {box.path(), QString(), invalid}, {box.path(), QStringLiteral("\n\t "), invalid}, {box.path(), QStringLiteral(".."), invalid},
        {box.path(), QStringLiteral("a/b"), invalid}, {box.path(), QStringLiteral("a:b"), invalid},
        {box.path(), QStringLiteral("a") + QChar(0) + QStringLiteral("b"), invalid},
        {box.path(), QStringLiteral("Ocupado"), notCreated("File exists")}, {box.path(), QStringLiteral("Enlace"), notCreated("File exists")},
        {box.file(QStringLiteral("falta")), QStringLiteral("Nueva"), notCreated("No such file or directory")},
        {box.file(QStringLiteral("Ocupado")), QStringLiteral("Nueva"), notCreated("Not a directory")},
    };
    const mode_t mask = ::umask(0);
    ::umask(mask);
    DirectoryService service;
    for (const auto& row : rows) {
        SCOPED_TRACE(Paths::displayText(row.name).toStdString());
        const auto created = service.createFolder(row.parent, row.name).result();
        if (row.error) {
            EXPECT_EQ(created.failure(), *row.error);
            continue;
        }
        ASSERT_TRUE(created.ok()) << created.message().toStdString();
        EXPECT_EQ(*created, Paths::join(row.parent, row.name));
        const auto stat = FileStat::read(*created);
        ASSERT_TRUE(stat.ok() && stat->isDirectory());
        EXPECT_EQ(stat->mode & 0777, 0755u & ~mask);
    }
    EXPECT_EQ(box.read(QStringLiteral("Ocupado")), "datos");
    EXPECT_FALSE(box.exists(QStringLiteral("falta")));
}
