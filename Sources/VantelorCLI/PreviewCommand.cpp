#include <cerrno>
#include <sys/stat.h>

#include <QJsonArray>
#include <QJsonObject>

#include "Command.h"
#include "OutputFile.h"
#include "Previews/PreviewService.h"
#include "Support/Paths.h"

namespace vantelor::cli {

namespace {

int execute(const QCommandLineParser& parser)
{
    bool sizeOk = false;
    const int size = parser.value(QStringLiteral("size")).toInt(&sizeOk);
    if (!sizeOk || size < PreviewService::minimumDimension || size > PreviewService::maximumDimension) {
        Io::err(QStringLiteral("--size necesita un número entero de píxeles entre %1 y %2")
                    .arg(PreviewService::minimumDimension)
                    .arg(PreviewService::maximumDimension));
        return usage;
    }
    const QStringList files = parser.positionalArguments();
    const QString out = parser.isSet(QStringLiteral("out")) ? Paths::clean(parser.value(QStringLiteral("out"))) : QString();
    if (!out.isEmpty() && files.size() == 1 && !OutputFile::isImagePath(out)) {
        Io::err(QStringLiteral("La salida debe terminar en .png o .jpg: ") + Paths::displayText(out));
        return usage;
    }
    if (!out.isEmpty() && files.size() > 1 && ::mkdir(Paths::encode(out).constData(), 0755) != 0 && errno != EEXIST)
        return Io::fail(SystemError::fromErrno(out).message());

    // All requests at once: the service decodes two at a time, as it does for the window.
    PreviewService service(PreviewService::sharedCacheBytes);
    QList<QFuture<Result<PreviewResult>>> futures;
    for (const QString& file : files) {
        PhotoItem item;
        item.url = Paths::clean(file);
        futures.append(service.load(item, size));
    }

    const bool json = parser.isSet(QStringLiteral("json"));
    QJsonArray results;
    bool allOk = true;
    for (qsizetype i = 0; i < files.size(); ++i) {
        const QString path = Paths::clean(files[i]);
        Result<PreviewResult> result = futures[i].result();
        if (result && !out.isEmpty()) {
            const QString target = files.size() == 1 ? out : Paths::join(out, Paths::fileName(path) + QStringLiteral(".png"));
            if (const Status written = OutputFile::writeImage(target, result->image); !written)
                result = written.failure();
        }
        allOk = allOk && result.ok();
        if (result && result->damaged)
            Io::damagedPreview(path);
        if (json) {
            if (result) {
                results.append(QJsonObject{
                    {QStringLiteral("path"), Paths::jsonText(path)},
                    {QStringLiteral("width"), result->image.width()},
                    {QStringLiteral("height"), result->image.height()},
                    {QStringLiteral("usedFallback"), result->usedFallback},
                    {QStringLiteral("damaged"), result->damaged},
                    {QStringLiteral("metadata"), result->metadata.toJson()},
                });
            } else {
                results.append(QJsonObject{{QStringLiteral("path"), Paths::jsonText(path)},
                                           {QStringLiteral("error"), result.message()}});
            }
        } else if (result) {
            Io::out(QStringLiteral("%1  %2 × %3  %4")
                        .arg(path)
                        .arg(result->image.width())
                        .arg(result->image.height())
                        .arg(result->usedFallback ? QStringLiteral("Vista previa decodificada")
                                                  : QStringLiteral("Vista previa incrustada")));
        } else {
            Io::err(result.message());
        }
    }
    if (json)
        Io::json(results);
    return allOk ? success : failed;
}

const bool registered = Registry::addParsed(
    QStringLiteral("preview"), QStringLiteral("Decodifica la vista previa de cada foto, como la muestra la app."),
    Syntax{QStringLiteral("Obtiene la vista previa de cada ARCHIVO por el mismo camino que la app (la vista previa "
                          "incrustada si la hay) y escribe su tamaño y sus datos de captura."),
           QStringLiteral("ARCHIVO…"), 1,
           {QCommandLineOption(QStringLiteral("size"),
                               QStringLiteral("Lado mayor de la vista previa en píxeles (32 a 8192; 2560 si se omite)."),
                               QStringLiteral("N"), QString::number(PreviewService::standardDimension)),
            QCommandLineOption(QStringLiteral("out"),
                               QStringLiteral("Guarda la vista previa: un archivo .png o .jpg nuevo para una foto; para "
                                              "varias, una carpeta donde cada una se guarda como NOMBRE.png."),
                               QStringLiteral("RUTA"))}},
    execute);

} // namespace

} // namespace vantelor::cli
