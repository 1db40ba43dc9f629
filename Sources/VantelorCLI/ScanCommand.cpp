#include <QJsonArray>
#include <QJsonObject>

#include "Command.h"
#include "Support/Paths.h"

namespace vantelor::cli {

namespace {

int execute(const QCommandLineParser& parser)
{
    const QString folder = Paths::clean(parser.positionalArguments().first());
    const Result<ScanSnapshot> snapshot = scanToEnd(folder);
    if (!snapshot)
        return Io::fail(snapshot.message());

    if (parser.isSet(QStringLiteral("json"))) {
        QJsonArray photos;
        for (const PhotoItem& photo : snapshot->photos) {
            photos.append(QJsonObject{
                {QStringLiteral("path"), Paths::jsonText(photo.url)},
                {QStringLiteral("name"), Paths::jsonText(photo.name())},
                {QStringLiteral("bytes"), double(photo.byteSize)},
                {QStringLiteral("created"), Io::isoDate(photo.created)},
                {QStringLiteral("modified"), Io::isoDate(photo.modified)},
            });
        }
        Io::json(QJsonObject{{QStringLiteral("folder"), Paths::jsonText(folder)},
                             {QStringLiteral("photos"), photos},
                             {QStringLiteral("skipped"), snapshot->skippedCount}});
        return success;
    }

    QString text;
    for (const PhotoItem& photo : snapshot->photos) {
        text += QStringLiteral("%1  %2  %3  %4\n")
                    .arg(photo.byteSize, 12)
                    .arg(Io::isoDate(photo.created), Io::isoDate(photo.modified), photo.url);
    }
    text += QStringLiteral("%1 fotos").arg(snapshot->photos.size());
    if (snapshot->skippedCount > 0)
        text += QStringLiteral(" • %1 omitidos").arg(snapshot->skippedCount);
    Io::out(text);
    return success;
}

const bool registered = Registry::addParsed(
    QStringLiteral("scan"), QStringLiteral("Lista las fotos de una carpeta en el orden del explorador."),
    Syntax{QStringLiteral("Lista las fotos de CARPETA (sin subcarpetas ni archivos ocultos), con su tamaño en bytes, "
                          "su fecha de creación y su fecha de modificación (UTC)."),
           QStringLiteral("CARPETA"), 1},
    execute);

} // namespace

} // namespace vantelor::cli
