#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

#include "Support/CliRunner.h"
#include "Support/ImageFixtures.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"

using namespace vantelor;
using namespace vantelor::test;

namespace {

CliRun cli(const QStringList& arguments)
{
    return runCli(arguments);
}

} // namespace

TEST(Cli, ScanPrintsTheSortedPhotosAsJson)
{
    Sandbox box;
    box.write(QStringLiteral("IMG_10.jpg"), "x");
    box.write(QStringLiteral("IMG_2.NEF"), QByteArray(42, 'n'));
    box.write(QStringLiteral("notes.txt"), "t");
    const CliRun run = cli({QStringLiteral("scan"), QStringLiteral("--json"), box.path()});
    ASSERT_EQ(run.status, 0) << run.err.constData();
    const QJsonObject doc = QJsonDocument::fromJson(run.out).object();
    EXPECT_EQ(doc.value(QStringLiteral("folder")).toString(), box.path());
    EXPECT_EQ(doc.value(QStringLiteral("skipped")).toInt(-1), 0);
    const QJsonArray photos = doc.value(QStringLiteral("photos")).toArray();
    ASSERT_EQ(photos.size(), 2);
    const QJsonObject first = photos.at(0).toObject();
    EXPECT_EQ(first.value(QStringLiteral("name")).toString(), QStringLiteral("IMG_2.NEF"));
    EXPECT_EQ(first.value(QStringLiteral("path")).toString(), box.file(QStringLiteral("IMG_2.NEF")));
    EXPECT_EQ(first.value(QStringLiteral("bytes")).toInteger(), 42);
    const QRegularExpression iso(QStringLiteral("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ$"));
    EXPECT_TRUE(iso.match(first.value(QStringLiteral("modified")).toString()).hasMatch());
    EXPECT_TRUE(iso.match(first.value(QStringLiteral("created")).toString()).hasMatch());
}

TEST(Cli, NamesThatAreNotUtf8StayBytesInTextAndPercentEncodedInJson)
{
    Sandbox box;
    box.write(Paths::decode("caf\xe9.nef"), "n");
    const CliRun text = cli({QStringLiteral("scan"), box.path()});
    ASSERT_EQ(text.status, 0);
    EXPECT_TRUE(text.out.contains(Paths::encode(box.path()) + "/caf\xe9.nef\n"));
    const CliRun json = cli({QStringLiteral("scan"), QStringLiteral("--json"), box.path()});
    ASSERT_EQ(json.status, 0);
    const QJsonArray photos = QJsonDocument::fromJson(json.out).object().value(QStringLiteral("photos")).toArray();
    ASSERT_EQ(photos.size(), 1);
    EXPECT_EQ(photos.at(0).toObject().value(QStringLiteral("name")).toString(), QStringLiteral("caf%E9.nef"));
}

TEST(Cli, DatesOfFilesAndFoldersLeaveOutPhotosWithoutATime)
{
    Sandbox box;
    ExifInfo info;
    info.dateTimeOriginal = QByteArray("2024:03:01 10:15:30");
    const QString dated = box.write(QStringLiteral("shoot/a.jpg"), makeJpeg(16, 16, info));
    box.write(QStringLiteral("shoot/b.nef"), makeNef(16, 16, QByteArray("2023:12:31 23:59:59")));
    box.write(QStringLiteral("shoot/c.jpg"), makeJpeg(16, 16));
    const CliRun run = cli({QStringLiteral("dates"), QStringLiteral("--json"), box.file(QStringLiteral("shoot")), dated});
    ASSERT_EQ(run.status, 0) << run.err.constData();
    const QJsonObject dates = QJsonDocument::fromJson(run.out).object().value(QStringLiteral("dates")).toObject();
    EXPECT_EQ(dates.size(), 2);
    EXPECT_EQ(dates.value(dated).toString(), QStringLiteral("2024-03-01T10:15:30Z"));
    EXPECT_EQ(dates.value(box.file(QStringLiteral("shoot/b.nef"))).toString(), QStringLiteral("2023-12-31T23:59:59Z"));
}

TEST(Cli, ExitStatusesAndMessages)
{
    Sandbox box;
    const QString file = box.write(QStringLiteral("a.nef"), "n");
    const struct {
        QStringList arguments;
        int status;
        const char* stderrText;
    } rows[] = {
        {{}, 2, ""},
        {{"frobnicate"}, 2, "Orden desconocida: frobnicate"},
        {{"scan"}, 2, "Faltan argumentos"},
        {{"scan", "--no-such-option", box.path()}, 2, ""},
        {{"scan", file}, 1, "Carpeta no disponible o ilegible: "},
        {{"scan", box.file("missing")}, 1, "Carpeta no disponible o ilegible: "},
        {{"dates", box.file("missing.nef")}, 1, "No such file or directory"},
        {{"scan", "--help"}, 0, ""},
        {{"dates", "--help"}, 0, ""},
        {{"--help"}, 0, ""},
    };
    for (const auto& row : rows) {
        const CliRun run = cli(row.arguments);
        EXPECT_EQ(run.status, row.status) << row.arguments.join(QLatin1Char(' ')).toStdString();
        EXPECT_TRUE(QString::fromUtf8(run.err).contains(QString::fromUtf8(row.stderrText)))
            << run.err.constData();
    }
}
