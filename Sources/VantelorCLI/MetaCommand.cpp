#include "Command.h"
#include "Previews/PreviewDecoder.h"
#include "Support/Paths.h"

namespace vantelor::cli {

class MetaCommand final : public Command {
public:
    QString name() const override { return QStringLiteral("meta"); }
    QString summary() const override { return QStringLiteral("Datos de captura de una foto, como los muestra el inspector."); }

    Syntax syntax() const override
    {
        return {QStringLiteral("Escribe las dimensiones, la cámara, el objetivo, la sensibilidad, el diafragma y el tiempo de "
                               "exposición de ARCHIVO, sin decodificar la imagen."),
                QStringLiteral("ARCHIVO"), 1};
    }

    int execute(const QCommandLineParser& parser) override
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
};

VANTELOR_CLI_COMMAND(MetaCommand)

} // namespace vantelor::cli
