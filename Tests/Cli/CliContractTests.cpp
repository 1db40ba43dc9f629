#include <gtest/gtest.h>

#include <functional>

#include <sys/stat.h>

#include <QJsonArray>

#include "Files/TransferPlan.h"
#include "Input/ShortcutProfile.h"
#include "Support/CliRunner.h"
#include "Support/ImageFixtures.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"
#include "Support/XmpFixtures.h"

// What each command promises a script: its exit status, the keys of its JSON answer, and one
// message for each class of error. The rules behind the answers are tested in-process.
namespace vantelor::test {

TEST(CliContract, EveryCommandAnswersWithItsStatusJsonShapeAndMessage)
{
    struct Row {
        const char* name;
        QStringList arguments;   // "@" stands for the sandbox's folder
        int status;
        QString message;         // the start of the first line on standard error
        QStringList keys;        // of the JSON object, or of the first element of a JSON array
        std::function<void(const CliRun&)> check = {};
    };

    Sandbox box;
    ExifInfo exif;
    exif.dateTimeOriginal = QByteArray("2024:03:01 10:15:30");
    box.write(QStringLiteral("photos/IMG_10.jpg"), makeJpeg(patternImage(300, 200), 90, exif));
    box.write(QStringLiteral("photos/IMG_2.NEF"), makeNef(120, 80, QByteArray("2023:12:31 23:59:59")));
    box.write(Paths::decode("photos/caf\xe9.nef"), "n");
    box.write(QStringLiteral("photos/notes.txt"), "t");
    box.mkdir(QStringLiteral("photos/Día 10"));
    box.mkdir(QStringLiteral("photos/.oculta"));
    box.write(QStringLiteral("src/B.NEF"), makeNef(32, 24));
    box.write(QStringLiteral("src/B.xmp"), XmpFixtures::darktable(1, std::nullopt));
    box.write(QStringLiteral("src/C.NEF"), makeNef(32, 24));
    box.write(QStringLiteral("src/c.xmp"), "x");
    box.write(QStringLiteral("src/C.XMP"), "y");
    box.mkdir(QStringLiteral("dest"));
    // A named pipe that nobody writes: a reader that opened it for reading would wait forever.
    ::mkfifo(Paths::encode(box.file(QStringLiteral("pipe.NEF"))).constData(), 0644);
    box.write(QStringLiteral("profile.json"), R"({"version": 1, "bindings": [{"action": "print", "trigger": {}}]})");

    const Row rows[] = {
        {"no command", {}, 2, {}, {}},
        {"unknown command", {"frobnicate"}, 2, "Orden desconocida: frobnicate", {}},
        {"help", {"scan", "--help"}, 0, {}, {}},
        {"missing argument", {"scan"}, 2, "Faltan argumentos. Uso: vantelor-cli scan CARPETA", {}},
        {"unknown option", {"scan", "--no-such-option", "@/photos"}, 2, "Unknown option", {}},
        {"scan", {"scan", "--json", "@/photos"}, 0, {}, {"folder", "photos", "skipped"}, [](const CliRun& run) {
             const QJsonArray photos = run.json()[QStringLiteral("photos")].toArray();
             ASSERT_EQ(photos.size(), 3);
             EXPECT_EQ(photos[0].toObject().keys(), (QStringList{"bytes", "created", "modified", "name", "path"}));
             EXPECT_EQ(photos[0][QStringLiteral("name")].toString(), QStringLiteral("caf%E9.nef"));
             EXPECT_EQ(photos[2][QStringLiteral("created")].toString().size(), 20);   // 2024-03-01T10:15:30Z
         }},
        {"scan a file", {"scan", "@/profile.json"}, 1, "Carpeta no disponible o ilegible: ", {}},
        {"dates", {"dates", "--json", "@/photos", "@/photos/IMG_10.jpg"}, 0, {}, {"dates"},
         [](const CliRun& run) { EXPECT_EQ(run.json()[QStringLiteral("dates")].toObject().size(), 2); }},
        {"dates of nothing", {"dates", "@/none.nef"}, 1, "@/none.nef: No existe el fichero o el directorio", {}},
        {"dates of a pipe", {"dates", "@/pipe.NEF"}, 1, "@/pipe.NEF: no es un archivo normal", {}},
        {"folders", {"folders", "--json", "@/photos"}, 0, {}, {"folder", "folders"}},
        {"mkdir", {"mkdir", "--json", "@/photos", "día 2"}, 0, {}, {"path"}},
        {"plan", {"plan", "--copy", "--json", "@/src/B.NEF", "--to", "@/dest"}, 0, {}, {}, 
         [](const CliRun& run) { EXPECT_EQ(TransferPlan::fromJournal(run.out).value_or(TransferPlan()).items.size(), 2); }},
        {"plan without a kind", {"plan", "@/src/B.NEF", "--to", "@/dest"}, 2, "Indica --copy o --move", {}},
        {"plan without a destination", {"plan", "--copy", "@/src/B.NEF"}, 2, "Falta la carpeta de destino: --to DESTINO", {}},
        {"copy without a terminal", {"copy", "@/src/B.NEF", "--to", "@/dest"}, 1, "Sin terminal no se puede confirmar; añade --yes para transferir sin preguntar", {}},
        {"copy", {"copy", "--yes", "--json", "@/src/B.NEF", "--to", "@/dest"}, 0, {}, {"count", "recoveryFolders"}},
        {"copy over a copy", {"move", "--yes", "@/src/B.NEF", "--to", "@/dest"}, 1, "El destino ya contiene B.NEF; no se sobrescribirá nada", {}},
        {"nef-preview", {"nef-preview", "--json", "@/src/B.NEF", "--out", "@/B.jpg"}, 0, {}, {"length", "offset"}},
        {"nef-preview over a file", {"nef-preview", "@/src/B.NEF", "--out", "@/B.jpg"}, 1, "@/B.jpg: El fichero ya existe", {}},
        {"nef-preview of a JPEG", {"nef-preview", "@/photos/IMG_10.jpg"}, 1, "No hay ninguna vista previa JPEG incrustada en ", {}},
        {"preview", {"preview", "--json", "--size", "100", "@/photos/IMG_2.NEF", "@/profile.json"}, 1, {},
         {"damaged", "height", "metadata", "path", "usedFallback", "width"}, [](const CliRun& run) {
             EXPECT_EQ(run.json()[1].toObject().keys(), (QStringList{"error", "path"}));
             EXPECT_EQ(run.json()[1][QStringLiteral("error")].toString(), BrowserError::unreadableImage("profile.json").message());
         }},
        {"preview to a GIF", {"preview", "@/photos/IMG_10.jpg", "--out", "@/a.gif"}, 2, "La salida debe terminar en .png o .jpg", {}},
        {"preview below the smallest size", {"preview", "--size", "31", "@/photos/IMG_10.jpg"}, 2, "--size necesita un número entero de píxeles entre 32 y 8192", {}},
        {"meta", {"meta", "--json", "@/photos/IMG_10.jpg"}, 0, {}, {"aperture", "camera", "height", "iso", "lens", "shutter", "width"}},
        {"meta of nothing", {"meta", "@/none.nef"}, 1, "No se puede leer la vista previa de none.nef.", {}},
        {"xmp read of a pipe", {"xmp", "read", "@/pipe.NEF"}, 1, "@/pipe.NEF: El guardado XMP solo está habilitado para Nikon NEF.", {}},
        {"peaking", {"peaking", "--json", "@/photos/IMG_10.jpg"}, 0, {}, {"height", "highlightedPixels", "width"}},
        {"peaking with a bad sensitivity", {"peaking", "--sensitivity", "x", "@/photos/IMG_10.jpg"}, 2, "--sensitivity necesita un número entre 0 y 1", {}},
        {"shortcuts defaults", {"shortcuts", "defaults", "--json"}, 0, {}, {"bindings", "version"}, 
         [](const CliRun& run) { const auto profile = ShortcutProfile::fromJson(run.out); EXPECT_TRUE(profile && *profile == ShortcutProfile::defaults()); }},
        {"shortcuts check", {"shortcuts", "check", "@/profile.json"}, 1, "Perfil de atajos ilegible: acción desconocida \"print\" en bindings[0].action", {}},
        {"xmp set", {"xmp", "set", "--json", "@/src/B.NEF", "@/src/C.NEF", "--rating", "4"}, 1, "@/src/C.NEF: Varios XMP coinciden con C",
         {"raw", "saved", "sidecar"}, [](const CliRun& run) { EXPECT_EQ(run.json()[1].toObject().keys(), (QStringList{"error", "kind", "raw"})); }},
        {"xmp set nothing", {"xmp", "set", "@/src/B.NEF"}, 2, "Indica --rating, --label o ambos.", {}},
        {"xmp set a bad rating", {"xmp", "set", "@/src/B.NEF", "--rating", "6"}, 2, "Valoración no válida: 6", {}},
        {"xmp set a label in capitals", {"xmp", "set", "--json", "@/src/B.NEF", "--label", "GREEN"}, 0, {}, {"raw", "saved", "sidecar"}},
        {"xmp read", {"xmp", "read", "--json", "@/dest/B.NEF"}, 0, {}, {"exists", "label", "rating", "raw", "sidecar"}},
        {"unknown xmp order", {"xmp", "write"}, 2, "Subcomando desconocido: write", {}},
    };

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    // Keep the preview service's start-up clean-up inside the sandbox.
    environment.insert(QStringLiteral("XDG_CACHE_HOME"), box.file(QStringLiteral("cache")));
    // A Spanish desktop: the system's own errors come in Spanish too (the C.UTF-8 locale still
    // reads LANGUAGE), which only happens if the program has set its locale for messages.
    environment.insert(QStringLiteral("LC_ALL"), QStringLiteral("C.UTF-8"));
    environment.insert(QStringLiteral("LANGUAGE"), QStringLiteral("es"));
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const CliRun run = runCli(QStringList(row.arguments).replaceInStrings(QStringLiteral("@"), box.path()), environment);
        EXPECT_EQ(run.status, row.status) << run.err.toStdString();
        EXPECT_TRUE(run.message().startsWith(QString(row.message).replace(QLatin1Char('@'), box.path())))
            << run.message().toStdString();
        const QJsonDocument json = run.json();
        if (!row.keys.isEmpty()) {
            EXPECT_EQ(json.isArray() ? json.array().first().toObject().keys() : json.object().keys(), row.keys);
        }
        if (row.check)
            row.check(run);
    }
}

} // namespace vantelor::test
