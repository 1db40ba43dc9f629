#include <gtest/gtest.h>

#include <QProcess>

#include "LibraryTestSupport.h"
#include "Model/LaunchOpener.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"

using namespace vantelor;
using namespace vantelor::test;

TEST(LaunchTarget, ArgumentNamesAFolderAndPerhapsThePhotoToSelect)
{
    Sandbox sandbox;
    const QString session = sandbox.mkdir(QStringLiteral("Sesión"));
    const QString photo = sandbox.write(QStringLiteral("Sesión/DSC_0001.NEF"), "raw");
    sandbox.write(QStringLiteral("Sesión/notas.txt"), "texto");
    const QString latin1 = sandbox.mkdir(Paths::decode(QByteArray("caf\xe9")));
    sandbox.symlink(session, QStringLiteral("enlace"));
    const QByteArray root = Paths::encode(sandbox.path());
    const QString missing = sandbox.file(QStringLiteral("nada"));

    struct Row { const char* what; QByteArray argument; QString folder; std::optional<QString> photo; };
    const Row rows[] = {
        {"relative folder", "Sesión/", session, std::nullopt},
        {"relative photo", "./Sesión/../Sesión/DSC_0001.NEF", session, photo},
        {"a file that is no photo opens its folder", root + "/Sesión/notas.txt", session, std::nullopt},
        {"missing path is kept to be reported", root + "/nada", missing, std::nullopt},
        {"file URI", "file://" + QByteArray(root).toPercentEncoding("/") + "/Sesi%C3%B3n/DSC_0001.NEF", session, photo},
        {"name that is not UTF-8, in a URI", "file://" + root + "/caf%E9", latin1, std::nullopt},
        {"symbolic link resolved as the window keeps folders", root + "/enlace", session, std::nullopt},
        {"remote URI is not a local path", "file://servidor/fotos", QStringLiteral("file://servidor/fotos"), std::nullopt},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        const LaunchTarget target = LaunchTarget::resolve(row.argument, sandbox.path());
        EXPECT_EQ(target.folder, row.folder);
        EXPECT_EQ(target.photo, row.photo);
    }
}

namespace {

// One launch of the probe program, which claims the instance as the application does. QProcess
// kills a launch still running when it goes.
struct Launch {
    explicit Launch(const QString& socket, int expected, const QStringList& paths = {}, const QString& workingFolder = {})
    {
        process.setWorkingDirectory(workingFolder.isEmpty() ? QStringLiteral("/") : workingFolder);
        process.start(QStringLiteral(INSTANCE_PROBE), QStringList{socket, QString::number(expected)} + paths);
    }
    QString line()
    {
        while (!process.canReadLine())
            if (!process.waitForReadyRead(10000))
                return QStringLiteral("<nada>");
        return QString::fromUtf8(process.readLine()).trimmed();
    }
    bool finishedCleanly() { return process.waitForFinished(10000) && process.exitCode() == 0; }

    QProcess process;
};

} // namespace

TEST(SingleInstance, SecondLaunchesHandTheirFoldersToTheRunningOne)
{
    Sandbox sandbox;
    const QString socket = sandbox.file(QStringLiteral("instance"));
    const QString boda = sandbox.mkdir(QStringLiteral("Boda"));
    sandbox.write(QStringLiteral("Boda/DSC_2.NEF"), "raw");
    const QString viaje = sandbox.mkdir(QStringLiteral("Viaje"));
    Launch first(socket, 2);
    ASSERT_EQ(first.line(), QStringLiteral("primary"));

    // Two quick launches, one with two folders given relative to its own working folder.
    Launch second(socket, 0, {QStringLiteral("Boda/DSC_2.NEF"), QStringLiteral("Viaje")}, sandbox.path());
    Launch third(socket, 0, {QStringLiteral("file://") + boda});
    EXPECT_EQ(second.line(), QStringLiteral("secondary"));
    EXPECT_EQ(third.line(), QStringLiteral("secondary"));
    EXPECT_TRUE(second.finishedCleanly());
    EXPECT_TRUE(third.finishedCleanly());

    QStringList received = {first.line(), first.line()};
    received.sort();
    EXPECT_EQ(received, (QStringList{boda, boda + QStringLiteral(" * | ") + viaje}));
    EXPECT_TRUE(first.finishedCleanly());
}

TEST(SingleInstance, LaunchesAtTheSameMomentMakeExactlyOneInstance)
{
    Sandbox sandbox;
    const QString socket = sandbox.file(QStringLiteral("instance"));
    for (int round = 0; round < 4; ++round) {
        SCOPED_TRACE(round);
        Launch a(socket, 1, {QStringLiteral("/a")});
        Launch b(socket, 1, {QStringLiteral("/b")});
        const QStringList roles = {a.line(), b.line()};
        ASSERT_EQ(roles.count(QStringLiteral("primary")), 1) << roles.join(QLatin1Char(',')).toStdString();
        Launch& primary = roles[0] == QStringLiteral("primary") ? a : b;
        EXPECT_EQ(primary.line(), roles[0] == QStringLiteral("primary") ? QStringLiteral("/b") : QStringLiteral("/a"));
        EXPECT_TRUE(a.finishedCleanly());
        EXPECT_TRUE(b.finishedCleanly());
    }
}

TEST(LaunchOpener, FolderOpenedBeforePreparationEndsCancelsThePhotoSelection)
{
    // A shoot of three photos, whose names are all the scanner needs, and an empty one.
    Sandbox sandbox;
    const QString boda = sandbox.mkdir(QStringLiteral("Boda"));
    const QString viaje = sandbox.mkdir(QStringLiteral("Viaje"));
    for (const QString& photo : {QStringLiteral("DSC_0001.JPG"), QStringLiteral("DSC_0002.JPG"), QStringLiteral("DSC_0003.JPG")})
        sandbox.write(QStringLiteral("Boda/") + photo, "no es un JPEG");
    Harness harness;
    LaunchOpener opener(*harness.model);
    opener.open({LaunchTarget{boda, Paths::join(boda, QStringLiteral("DSC_0003.JPG"))}});
    harness.model->open(viaje);
    ASSERT_TRUE(eventually([&] { return !harness.model->isPreparing(); }));
    harness.model->open(boda);
    ASSERT_TRUE(eventually([&] { return !harness.model->isPreparing() && harness.model->selectedID(); }));
    EXPECT_EQ(harness.model->selectedID(), Paths::join(boda, QStringLiteral("DSC_0001.JPG")));
}
