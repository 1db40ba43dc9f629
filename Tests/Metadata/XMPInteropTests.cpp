#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QStandardPaths>

#include <gtest/gtest.h>

#include "Metadata/XMPService.h"
#include "Support/CliRunner.h"
#include "Support/ImageFixtures.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"
#include "Support/XmpFixtures.h"

namespace vantelor {
namespace {

using test::Sandbox;

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
    const struct { const char* name; std::optional<QByteArray> sidecar; int rating; const char* label; } rows[] = {
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

        const test::CliRun byExiftool = test::runCli({QStringLiteral("-j"), QStringLiteral("-XMP:Rating"), QStringLiteral("-XMP:Label"), sidecar},
                                                     QProcessEnvironment::systemEnvironment(), exiftool);
        ASSERT_EQ(byExiftool.status, 0) << byExiftool.err.toStdString();
        const QJsonObject fields = QJsonDocument::fromJson(byExiftool.out).array().at(0).toObject();
        EXPECT_EQ(fields.value(QStringLiteral("Rating")).toInt(-99), row.rating) << byExiftool.out.toStdString();
        EXPECT_EQ(fields.value(QStringLiteral("Label")).toString(), QString::fromUtf8(row.label)) << byExiftool.out.toStdString();

        const test::CliRun byExiv2 = test::runCli({QStringLiteral("-px"), sidecar}, QProcessEnvironment::systemEnvironment(), exiv2);
        ASSERT_EQ(byExiv2.status, 0) << byExiv2.err.toStdString();
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

} // namespace
} // namespace vantelor
