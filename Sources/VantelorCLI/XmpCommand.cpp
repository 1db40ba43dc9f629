#include <QJsonArray>
#include <QJsonObject>

#include "Command.h"
#include "Library/SessionLabel.h"
#include "Metadata/SidecarReader.h"
#include "Metadata/XMPService.h"
#include "Support/Paths.h"

namespace vantelor::cli {

namespace {

const QString usageText = QStringLiteral(
    "Uso: vantelor-cli xmp read NEF… [--json]\n"
    "     vantelor-cli xmp set NEF… [--rating N] [--label none|red|yellow|green|blue|purple] [--json]");

// The machine-readable kind of a failure: the three kinds of sidecar errors, and "io" for what
// the system reported.
QString kindName(const Failure& failure)
{
    if (const auto* workflow = std::get_if<WorkflowError>(&failure))
        return workflow->kindName();
    if (std::holds_alternative<SystemError>(failure))
        return QStringLiteral("io");
    if (std::holds_alternative<Cancelled>(failure))
        return QStringLiteral("cancelled");
    return QStringLiteral("invalid");
}

QString stars(int rating)
{
    if (rating < 0)
        return QStringLiteral("rechazada");
    return QString(rating, QChar(0x2605)) + QString(5 - rating, QChar(0x2606));
}

QList<QString> cleanedPaths(const QStringList& arguments)
{
    QList<QString> out;
    for (const QString& argument : arguments)
        out.append(Paths::clean(argument));
    return out;
}

// A system error names its file already; any other failure is told beside the photo it concerns.
QString messageFor(const QString& raw, const Result<XMPSnapshot>& result)
{
    if (std::holds_alternative<SystemError>(result.failure()))
        return result.message();
    return raw + QStringLiteral(": ") + result.message();
}

int readSidecars(const QCommandLineParser& parser)
{
    const QList<QString> raws = cleanedPaths(parser.positionalArguments());
    // One process, nothing else writing through it: the reader needs no service of its own.
    const QList<Result<XMPSnapshot>> results = SidecarReader::readAll(raws, /*checkPhotos=*/true);

    bool allRead = true;
    QJsonArray json;
    QString text;
    for (qsizetype i = 0; i < raws.size(); ++i) {
        const Result<XMPSnapshot>& result = results[i];
        if (!result) {
            allRead = false;
            json.append(QJsonObject{{QStringLiteral("raw"), Paths::jsonText(raws[i])},
                                    {QStringLiteral("error"), result.message()}});
            Io::err(messageFor(raws[i], result));
            continue;
        }
        json.append(QJsonObject{
            {QStringLiteral("raw"), Paths::jsonText(raws[i])},
            {QStringLiteral("sidecar"), Paths::jsonText(result->sidecar)},
            {QStringLiteral("exists"), result->data.has_value()},
            {QStringLiteral("rating"), result->rating},
            {QStringLiteral("label"), result->label ? QJsonValue(*result->label) : QJsonValue()},
        });
        text += QStringLiteral("%1  %2  %3  %4\n")
                    .arg(stars(result->rating), -9)
                    .arg(result->label ? (result->label->isEmpty() ? QStringLiteral("\"\"") : *result->label)
                                       : QStringLiteral("—"),
                         -8)
                    .arg(raws[i],
                         result->data ? QStringLiteral("→ ") + Paths::fileName(result->sidecar) : QStringLiteral("(sin XMP)"));
    }
    if (parser.isSet(QStringLiteral("json"))) {
        Io::json(json);
    } else if (!text.isEmpty()) {
        text.chop(1);
        Io::out(text);
    }
    return allRead ? success : failed;
}

int read(const QStringList& arguments)
{
    const Syntax syntax{QStringLiteral("Escribe la valoración (−1 a 5) y la etiqueta de color que guarda el XMP de "
                                       "cada NEF. Los NEF de una carpeta se leen con un solo listado."),
                        QStringLiteral("NEF…"), 1};
    return runParsed(arguments, syntax, readSidecars);
}

int saveSidecars(const QCommandLineParser& parser)
{
    XMPPatch patch;
    if (parser.isSet(QStringLiteral("rating"))) {
        bool isNumber = false;
        const int rating = parser.value(QStringLiteral("rating")).toInt(&isNumber);
        if (!isNumber || rating < -1 || rating > 5) {
            Io::err(QStringLiteral("Valoración no válida: ") + parser.value(QStringLiteral("rating")));
            return usage;
        }
        patch.rating = rating;
    }
    if (parser.isSet(QStringLiteral("label"))) {
        const std::optional<SessionLabel> label = SessionLabels::fromRawValue(parser.value(QStringLiteral("label")).toLower());
        if (!label) {
            Io::err(QStringLiteral("Etiqueta no válida: ") + parser.value(QStringLiteral("label"))
                    + QStringLiteral(" (none, red, yellow, green, blue o purple)"));
            return usage;
        }
        // No colour is written as the empty text, as the app writes it: the property stays.
        patch.label = *label == SessionLabel::none ? QString() : SessionLabels::rawValue(*label);
    }
    if (patch.isEmpty()) {
        Io::err(QStringLiteral("Indica --rating, --label o ambos.\n") + usageText);
        return usage;
    }

    const QList<QString> raws = cleanedPaths(parser.positionalArguments());
    const QList<Result<XMPSnapshot>> snapshots = SidecarReader::readAll(raws, /*checkPhotos=*/true);
    XMPService service;
    bool allSaved = true;
    QJsonArray json;
    QString text;
    for (qsizetype i = 0; i < raws.size(); ++i) {
        Result<XMPSnapshot> saved = snapshots[i];
        bool written = false;
        if (saved) {
            const std::optional<QByteArray> before = saved->data;
            saved = service.save(*saved, patch).result();
            written = saved && saved->data != before;
        }
        if (!saved) {
            allSaved = false;
            json.append(QJsonObject{{QStringLiteral("raw"), Paths::jsonText(raws[i])},
                                    {QStringLiteral("error"), saved.message()},
                                    {QStringLiteral("kind"), kindName(saved.failure())}});
            Io::err(messageFor(raws[i], saved));
            continue;
        }
        json.append(QJsonObject{{QStringLiteral("raw"), Paths::jsonText(raws[i])},
                                {QStringLiteral("sidecar"), Paths::jsonText(saved->sidecar)},
                                {QStringLiteral("saved"), written}});
        text += (written ? QStringLiteral("Guardado  ") : QStringLiteral("Sin cambios  ")) + saved->sidecar
            + QLatin1Char('\n');
    }
    if (parser.isSet(QStringLiteral("json"))) {
        Io::json(json);
    } else if (!text.isEmpty()) {
        text.chop(1);
        Io::out(text);
    }
    return allSaved ? success : failed;
}

int set(const QStringList& arguments)
{
    const Syntax syntax{
        QStringLiteral("Guarda la valoración y/o la etiqueta de color en el XMP de cada NEF, sin tocar el NEF ni "
                       "nada más del XMP. Si otro programa cambió el XMP mientras tanto, no se guarda. La versión "
                       "anterior queda en .vantelor-backups junto a las fotos."),
        QStringLiteral("NEF…"), 1,
        {QCommandLineOption(QStringLiteral("rating"), QStringLiteral("Valoración de −1 a 5."), QStringLiteral("N")),
         QCommandLineOption(QStringLiteral("label"), QStringLiteral("Etiqueta de color: none, red, yellow, green, blue o purple."),
                            QStringLiteral("COLOR"))}};
    return runParsed(arguments, syntax, saveSidecars);
}

int run(const QStringList& arguments)
{
    const QString subcommand = arguments.value(2);
    if (subcommand == QLatin1String("read"))
        return read(subcommandArguments(arguments));
    if (subcommand == QLatin1String("set"))
        return set(subcommandArguments(arguments));
    if (subcommand == QLatin1String("--help") || subcommand == QLatin1String("-h")) {
        Io::out(usageText);
        return success;
    }
    Io::err(subcommand.isEmpty() ? usageText : QStringLiteral("Subcomando desconocido: ") + subcommand + QLatin1Char('\n') + usageText);
    return usage;
}

const bool registered = Registry::add(
    {QStringLiteral("xmp"),
     QStringLiteral("Lee o guarda la valoración y la etiqueta de color de fotos NEF en sus XMP."), run});

} // namespace

} // namespace vantelor::cli
