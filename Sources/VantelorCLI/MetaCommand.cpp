#include "Command.h"
#include "Previews/PreviewDecoder.h"
#include "Support/Paths.h"

namespace vantelor::cli {

namespace {

int execute(const QCommandLineParser& parser)
{
    const QString path = Paths::clean(parser.positionalArguments().first());
    const Result<PhotoMetadata> metadata = PreviewDecoder::metadata(path);
    if (!metadata)
        return Io::fail(metadata.message());
    if (parser.isSet(QStringLiteral("json"))) {
        Io::json(metadata->toJson());
        return success;
    }
    Io::out(QStringLiteral("Cámara: %1\nObjetivo: %2\nExposición: %3 · %4\nSensibilidad: %5\nDimensiones: %6 × %7")
                .arg(metadata->camera, metadata->lens, metadata->shutter, metadata->aperture, metadata->iso)
                .arg(metadata->width)
                .arg(metadata->height));
    return success;
}

const bool registered = Registry::addParsed(
    QStringLiteral("meta"), QStringLiteral("Datos de captura de una foto, como los muestra el inspector."),
    Syntax{QStringLiteral("Escribe las dimensiones, la cámara, el objetivo, la sensibilidad, el diafragma y el tiempo de "
                          "exposición de ARCHIVO, sin decodificar la imagen."),
           QStringLiteral("ARCHIVO"), 1},
    execute);

} // namespace

} // namespace vantelor::cli
