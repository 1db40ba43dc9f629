#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

#include "Support/CliRunner.h"
#include "Previews/NikonPreview.h"
#include "Support/ImageFixtures.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"

namespace vantelor::test {

namespace {

CliRun cli(const Sandbox& sandbox, const QStringList& arguments)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    // Keep the service's start-up clean-up inside the sandbox.
    environment.insert(QStringLiteral("XDG_CACHE_HOME"), sandbox.file(QStringLiteral("xdg-cache")));
    return runCli(arguments, environment);
}

} // namespace

TEST(PreviewCommands, NefPreviewWritesTheEmbeddedJpegUnchanged)
{
    Sandbox sandbox;
    NefLayout layout;
    layout.previews = {makeJpeg(160, 120), makeJpeg(patternImage(900, 600), 90)};
    const QString nef = sandbox.write(QStringLiteral("DSC_0001.NEF"), makeNef(layout));
    const QString out = sandbox.file(QStringLiteral("preview.jpg"));

    const CliRun run = cli(sandbox, {QStringLiteral("nef-preview"), nef, QStringLiteral("--out"), out, QStringLiteral("--json")});
    ASSERT_EQ(run.status, 0) << run.err.toStdString();
    EXPECT_EQ(readFile(out), layout.previews[1]);
    const auto located = NikonPreview::locate(nef);
    EXPECT_EQ(run.json().object().value(QStringLiteral("offset")).toInteger(), located->offset);
    EXPECT_EQ(run.json().object().value(QStringLiteral("length")).toInteger(), layout.previews[1].size());

    // The output is never replaced.
    const CliRun again = cli(sandbox, {QStringLiteral("nef-preview"), nef, QStringLiteral("--out"), out});
    EXPECT_EQ(again.status, 1);
    EXPECT_TRUE(again.err.contains("File exists")) << again.err.toStdString();
    EXPECT_EQ(readFile(out), layout.previews[1]);
}

TEST(PreviewCommands, NefPreviewFailsWhenThereIsNone)
{
    Sandbox sandbox;
    for (const auto& [name, bytes] : {std::pair{QStringLiteral("a.jpg"), makeJpeg(64, 48)},
                                      std::pair{QStringLiteral("b.nef"), QByteArray("MM\0*", 4)}}) {
        const CliRun run = cli(sandbox, {QStringLiteral("nef-preview"), sandbox.write(name, bytes), QStringLiteral("--json")});
        EXPECT_EQ(run.status, 1) << name.toStdString();
        EXPECT_TRUE(run.out.isEmpty());
        EXPECT_TRUE(run.err.startsWith("No hay ninguna vista previa JPEG incrustada en ")) << run.err.toStdString();
    }
}

TEST(PreviewCommands, PreviewReportsEachFileAndItsErrors)
{
    Sandbox sandbox;
    ExifInfo exif;
    exif.model = QByteArray("NIKON Z 8");
    exif.iso = 800;
    NefLayout layout;
    layout.previews = {makeJpeg(patternImage(1200, 800), 90)};
    layout.exif = exif;
    const QString nef = sandbox.write(QStringLiteral("DSC_0001.NEF"), makeNef(layout));
    const QString png = sandbox.write(QStringLiteral("scan.png"), makePng(patternImage(500, 250)));
    const QString broken = sandbox.write(QStringLiteral("broken.jpg"), QByteArray("\xFF\xD8\xFF garbage", 12));
    const QString folder = sandbox.file(QStringLiteral("out"));

    const CliRun run = cli(sandbox, {QStringLiteral("preview"), nef, png, broken, QStringLiteral("--size"), QStringLiteral("400"),
                                  QStringLiteral("--out"), folder, QStringLiteral("--json")});
    EXPECT_EQ(run.status, 1);
    const QJsonArray results = run.json().array();
    ASSERT_EQ(results.size(), 3) << run.out.toStdString();

    const QJsonObject first = results[0].toObject();
    EXPECT_EQ(first.value(QStringLiteral("path")).toString(), nef);
    EXPECT_EQ(first.value(QStringLiteral("width")).toInt(), 400);
    EXPECT_EQ(first.value(QStringLiteral("height")).toInt(), 267);
    EXPECT_FALSE(first.value(QStringLiteral("usedFallback")).toBool());
    const QJsonObject metadata = first.value(QStringLiteral("metadata")).toObject();
    EXPECT_EQ(metadata.value(QStringLiteral("camera")).toString(), QStringLiteral("NIKON Z 8"));
    EXPECT_EQ(metadata.value(QStringLiteral("iso")).toString(), QStringLiteral("ISO 800"));
    EXPECT_EQ(metadata.value(QStringLiteral("lens")).toString(), QStringLiteral("—"));

    EXPECT_TRUE(results[1].toObject().value(QStringLiteral("usedFallback")).toBool());
    EXPECT_EQ(results[1].toObject().value(QStringLiteral("metadata")).toObject().value(QStringLiteral("width")).toInt(), 500);
    EXPECT_EQ(results[2].toObject().value(QStringLiteral("error")).toString(),
              QStringLiteral("No se puede leer la vista previa de broken.jpg. El archivo puede ser incompatible, estar "
                             "dañado o desconectado."));

    QImage written;
    ASSERT_TRUE(written.loadFromData(readFile(Paths::join(folder, QStringLiteral("DSC_0001.NEF.png")))));
    EXPECT_EQ(written.size(), QSize(400, 267));
    EXPECT_TRUE(sandbox.exists(QStringLiteral("out/scan.png.png")));
    EXPECT_FALSE(sandbox.exists(QStringLiteral("out/broken.jpg.png")));
}

TEST(PreviewCommands, PreviewOfOneFileWritesTheNamedImage)
{
    Sandbox sandbox;
    const QString name = Paths::decode(QByteArray("foto-\xF1.jpg"));  // a Latin-1 name, not UTF-8
    const QString jpg = sandbox.write(name, makeJpeg(640, 480));
    const QString out = sandbox.file(QStringLiteral("small.jpg"));
    // QProcess cannot pass bytes that are not UTF-8; the shell's glob can.
    QProcess shell;
    shell.setWorkingDirectory(sandbox.path());
    shell.start(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), QStringLiteral("exec \"$0\" preview foto-*.jpg --size 320 --out small.jpg"),
                                            QStringLiteral(VANTELOR_CLI_PATH)});
    shell.waitForFinished(120'000);
    const CliRun run{shell.exitCode(), shell.readAllStandardOutput(), shell.readAllStandardError()};
    ASSERT_EQ(run.status, 0) << run.err.toStdString();
    QImage written;
    ASSERT_TRUE(written.loadFromData(readFile(out)));
    EXPECT_EQ(written.size(), QSize(320, 240));

    const CliRun badOut = cli(sandbox, {QStringLiteral("preview"), jpg, QStringLiteral("--out"), sandbox.file(QStringLiteral("x.gif"))});
    EXPECT_EQ(badOut.status, 2);
}

TEST(PreviewCommands, MetaAndPeakingWriteTheirDocuments)
{
    Sandbox sandbox;
    ExifInfo exif;
    exif.exposureTime = QPair<quint32, quint32>(5, 2);
    exif.fNumber = QPair<quint32, quint32>(28, 10);
    const QString jpg = sandbox.write(QStringLiteral("a.jpg"), makeJpeg(patternImage(300, 200), 90, exif));

    const CliRun meta = cli(sandbox, {QStringLiteral("meta"), jpg, QStringLiteral("--json")});
    ASSERT_EQ(meta.status, 0) << meta.err.toStdString();
    const QJsonObject m = meta.json().object();
    EXPECT_EQ(m.value(QStringLiteral("shutter")).toString(), QStringLiteral("2.50 s"));
    EXPECT_EQ(m.value(QStringLiteral("aperture")).toString(), QStringLiteral("ƒ/2.8"));
    EXPECT_EQ(m.value(QStringLiteral("width")).toInt(), 300);

    QImage step(60, 40, QImage::Format_RGB32);
    step.fill(Qt::black);
    for (int y = 0; y < 40; ++y)
        for (int x = 30; x < 60; ++x)
            step.setPixel(x, y, qRgb(255, 255, 255));
    const QString png = sandbox.write(QStringLiteral("step.png"), makePng(step));
    const QString mask = sandbox.file(QStringLiteral("mask.png"));
    const CliRun peaking = cli(sandbox, {QStringLiteral("peaking"), png, QStringLiteral("--sensitivity"), QStringLiteral("0"),
                                      QStringLiteral("--out"), mask, QStringLiteral("--json")});
    ASSERT_EQ(peaking.status, 0) << peaking.err.toStdString();
    const QJsonObject p = peaking.json().object();
    EXPECT_EQ(p.value(QStringLiteral("width")).toInt(), 60);
    EXPECT_EQ(p.value(QStringLiteral("height")).toInt(), 40);
    EXPECT_EQ(p.value(QStringLiteral("highlightedPixels")).toInt(), 2 * 38);
    QImage overlay;
    ASSERT_TRUE(overlay.loadFromData(readFile(mask)));
    EXPECT_EQ(qAlpha(overlay.pixel(29, 20)), 220);
    EXPECT_EQ(qAlpha(overlay.pixel(10, 20)), 0);

    const CliRun missing = cli(sandbox, {QStringLiteral("meta"), sandbox.file(QStringLiteral("none.nef"))});
    EXPECT_EQ(missing.status, 1);
    EXPECT_TRUE(missing.err.startsWith("No se puede leer la vista previa de none.nef."));
}

} // namespace vantelor::test
