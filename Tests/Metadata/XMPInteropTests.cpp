#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>

#include <gtest/gtest.h>

#include "Metadata/XMPService.h"
#include "Support/ImageFixtures.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"
#include "Support/XmpFixtures.h"

namespace vantelor {
namespace {

using test::Sandbox;

struct ProcessRun {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

ProcessRun run(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.start(program, arguments);
    ProcessRun result;
    if (!process.waitForFinished(60000))
        return result;
    result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    result.out = process.readAllStandardOutput();
    result.err = process.readAllStandardError();
    return result;
}

QString tool(const char* name)
{
    const QString path = QStandardPaths::findExecutable(QString::fromUtf8(name));
    EXPECT_FALSE(path.isEmpty()) << name << " is missing: scripts/install-deps.sh test installs it";
    return path;
}

TEST(XMPInterop, exiftoolAndExiv2ReadWhatWasSaved)
{
    const QString exiftool = tool("exiftool");
    const QString exiv2 = tool("exiv2");
    if (exiftool.isEmpty() || exiv2.isEmpty())
        return;
    const struct {
        const char* name;
        std::optional<QByteArray> sidecar;
        int rating;
        const char* label;
    } rows[] = {
        {"new sidecar", std::nullopt, 4, "green"},
        {"Lightroom", test::XmpFixtures::lightroom(2, QStringLiteral("Red")), 5, "purple"},
        {"Lightroom without either", test::XmpFixtures::lightroom(std::nullopt, std::nullopt), 1, "yellow"},
        {"Capture One", test::XmpFixtures::captureOne(3, QStringLiteral("Blue")), -1, "red"},
        {"darktable", test::XmpFixtures::darktable(1, std::nullopt), 2, "blue"},
        {"digiKam with CRLF", test::XmpFixtures::digikam(4, QStringLiteral("Green"), true), 0, "Rojo & <azul>"},
    };
    XMPService service;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Sandbox box;
        const QString raw = box.write(QStringLiteral("DSC_0001.NEF"), test::makeNef(32, 24));
        if (row.sidecar)
            box.write(QStringLiteral("DSC_0001.xmp"), *row.sidecar);
        const Result<XMPSnapshot> snapshot = service.read(raw).result();
        ASSERT_TRUE(snapshot.ok()) << snapshot.message().toStdString();
        XMPPatch patch;
        patch.rating = row.rating;
        patch.label = QString::fromUtf8(row.label);
        const Result<XMPSnapshot> saved = service.save(*snapshot, patch).result();
        ASSERT_TRUE(saved.ok()) << saved.message().toStdString();
        const QString sidecar = box.file(QStringLiteral("DSC_0001.xmp"));

        const ProcessRun byExiftool = run(exiftool, {QStringLiteral("-j"), QStringLiteral("-XMP:Rating"), QStringLiteral("-XMP:Label"), sidecar});
        ASSERT_EQ(byExiftool.exitCode, 0) << byExiftool.err.toStdString();
        const QJsonObject fields = QJsonDocument::fromJson(byExiftool.out).array().at(0).toObject();
        EXPECT_EQ(fields.value(QStringLiteral("Rating")).toInt(-99), row.rating) << byExiftool.out.toStdString();
        EXPECT_EQ(fields.value(QStringLiteral("Label")).toString(), QString::fromUtf8(row.label)) << byExiftool.out.toStdString();

        const ProcessRun byExiv2 = run(exiv2, {QStringLiteral("-px"), sidecar});
        ASSERT_EQ(byExiv2.exitCode, 0) << byExiv2.err.toStdString();
        const QString listing = QString::fromUtf8(byExiv2.out);
        const auto value = [&](const char* key) {
            const QRegularExpression line(QStringLiteral("^%1\\s+XmpText\\s+\\d+\\s+(.*)$").arg(QString::fromUtf8(key)),
                                          QRegularExpression::MultilineOption);
            return line.match(listing).captured(1).trimmed();
        };
        EXPECT_EQ(value("Xmp\\.xmp\\.Rating"), QString::number(row.rating)) << listing.toStdString();
        EXPECT_EQ(value("Xmp\\.xmp\\.Label"), QString::fromUtf8(row.label)) << listing.toStdString();
    }
}

QString cliPath()
{
    return qEnvironmentVariable("VANTELOR_CLI", QStringLiteral(VANTELOR_CLI_PATH));
}

QJsonArray cliJson(const QStringList& arguments, int expectedExit)
{
    const ProcessRun result = run(cliPath(), arguments + QStringList{QStringLiteral("--json")});
    EXPECT_EQ(result.exitCode, expectedExit) << result.err.toStdString();
    return QJsonDocument::fromJson(result.out).array();
}

TEST(XMPCommandLine, setThenReadReportsEachFileInInputOrder)
{
    Sandbox box;
    const QString a = box.write(QStringLiteral("A.NEF"), test::makeNef(32, 24));
    const QString b = box.write(QStringLiteral("B.NEF"), test::makeNef(32, 24));
    box.write(QStringLiteral("b.xmp"), test::XmpFixtures::darktable(1, std::nullopt));
    const QString c = box.write(QStringLiteral("C.NEF"), test::makeNef(32, 24));
    box.write(QStringLiteral("C.xmp"), "x");
    box.write(QStringLiteral("c.XMP"), "y");
    const QString jpeg = box.write(QStringLiteral("D.JPG"), test::makeJpeg(8, 8));

    const QJsonArray set = cliJson({QStringLiteral("xmp"), QStringLiteral("set"), b, a, c, jpeg, QStringLiteral("--rating"),
                                    QStringLiteral("4"), QStringLiteral("--label"), QStringLiteral("none")},
                                   1);
    ASSERT_EQ(set.size(), 4);
    EXPECT_EQ(set[0].toObject(), (QJsonObject{{"raw", b}, {"sidecar", box.file(QStringLiteral("b.xmp"))}, {"saved", true}}));
    EXPECT_EQ(set[1].toObject(), (QJsonObject{{"raw", a}, {"sidecar", box.file(QStringLiteral("A.xmp"))}, {"saved", true}}));
    EXPECT_EQ(set[2].toObject(), (QJsonObject{{"raw", c}, {"error", "Varios XMP coinciden con C"}, {"kind", "invalid"}}));
    EXPECT_EQ(set[3].toObject().value(QStringLiteral("kind")), QStringLiteral("invalid"));

    const QJsonArray again = cliJson({QStringLiteral("xmp"), QStringLiteral("set"), a, QStringLiteral("--rating"), QStringLiteral("4")}, 0);
    EXPECT_EQ(again[0].toObject().value(QStringLiteral("saved")), false);

    const QJsonArray read = cliJson({QStringLiteral("xmp"), QStringLiteral("read"), a, b, box.file(QStringLiteral("E.NEF"))}, 1);
    ASSERT_EQ(read.size(), 3);
    EXPECT_EQ(read[0].toObject(), (QJsonObject{{"raw", a}, {"sidecar", box.file(QStringLiteral("A.xmp"))}, {"exists", true}, {"rating", 4}, {"label", ""}}));
    EXPECT_EQ(read[1].toObject().value(QStringLiteral("rating")), 4);
    EXPECT_EQ(read[2].toObject().value(QStringLiteral("error")),
              box.file(QStringLiteral("E.NEF")) + QStringLiteral(": No such file or directory"));
}

TEST(XMPCommandLine, badArgumentsAreUsageErrors)
{
    const QString cli = cliPath();
    Sandbox box;
    const QString a = box.write(QStringLiteral("A.NEF"), test::makeNef(32, 24));
    const struct {
        QStringList arguments;
        int exit;
        const char* stderrContains;
    } rows[] = {
        {{"xmp"}, 2, "Uso: vantelor-cli xmp read"},
        {{"xmp", "write", a}, 2, "Subcomando desconocido: write"},
        {{"xmp", "set", a}, 2, "Indica --rating, --label o ambos."},
        {{"xmp", "set", a, "--rating", "tres"}, 2, "Valoración no válida: tres"},
        {{"xmp", "set", a, "--label", "Red"}, 2, "Etiqueta no válida: Red"},
        {{"xmp", "set", a, "--rating", "6"}, 1, "Valoración XMP no válida"},
        {{"xmp", "read"}, 2, "Faltan argumentos"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.arguments.join(QLatin1Char(' ')).toStdString());
        const ProcessRun result = run(cli, row.arguments);
        EXPECT_EQ(result.exitCode, row.exit);
        EXPECT_TRUE(QString::fromUtf8(result.err).contains(QString::fromUtf8(row.stderrContains))) << result.err.toStdString();
    }
    EXPECT_FALSE(box.exists(QStringLiteral("A.xmp")));
}

} // namespace
} // namespace vantelor
