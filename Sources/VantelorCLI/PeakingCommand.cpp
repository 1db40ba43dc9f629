#include <QJsonObject>

#include "Command.h"
#include "OutputFile.h"
#include "Previews/FocusPeaking.h"
#include "Previews/PreviewService.h"
#include "Support/Paths.h"

namespace vantelor::cli {

namespace {

int execute(const QCommandLineParser& parser)
{
    bool sensitivityOk = false;
    const double sensitivity = parser.value(QStringLiteral("sensitivity")).toDouble(&sensitivityOk);
    // Written so that NaN fails too.
    if (!sensitivityOk || !(sensitivity >= 0 && sensitivity <= 1)) {
        Io::err(QStringLiteral("--sensitivity necesita un número entre 0 y 1, por ejemplo 0.5"));
        return usage;
    }
    const QString out = parser.isSet(QStringLiteral("out")) ? Paths::clean(parser.value(QStringLiteral("out"))) : QString();
    if (!out.isEmpty() && Paths::suffix(out).toLower() != QLatin1String("png")) {
        Io::err(QStringLiteral("La máscara se guarda como .png: ") + Paths::displayText(out));
        return usage;
    }

    PreviewService service(PreviewService::sharedCacheBytes);
    PhotoItem item;
    item.url = Paths::clean(parser.positionalArguments().first());
    const Result<PreviewResult> preview = service.load(item, PreviewService::standardDimension).result();
    if (!preview)
        return Io::fail(preview.message());
    if (preview->damaged)
        Io::damagedPreview(item.url);
    const Result<FocusMask> mask = FocusPeaking::calculate(preview->image, sensitivity);
    if (!mask)
        return Io::fail(mask.message());
    if (!out.isEmpty()) {
        if (const Status written = OutputFile::writeImage(out, mask->image); !written)
            return Io::fail(written.message());
    }
    if (parser.isSet(QStringLiteral("json"))) {
        Io::json(QJsonObject{{QStringLiteral("width"), mask->image.width()},
                             {QStringLiteral("height"), mask->image.height()},
                             {QStringLiteral("highlightedPixels"), double(mask->highlightedPixels)}});
        return success;
    }
    const qint64 total = qint64(mask->image.width()) * mask->image.height();
    Io::out(QStringLiteral("%1 × %2 · %3 píxeles resaltados (%4 % de los píxeles de la vista previa)")
                .arg(mask->image.width())
                .arg(mask->image.height())
                .arg(mask->highlightedPixels)
                .arg(total > 0 ? 100.0 * double(mask->highlightedPixels) / double(total) : 0.0, 0, 'f', 1));
    return success;
}

const bool registered = Registry::addParsed(
    QStringLiteral("peaking"), QStringLiteral("Resaltado de enfoque de la vista previa de una foto."),
    Syntax{QStringLiteral("Calcula el resaltado de enfoque de la vista previa de 2560 píxeles de ARCHIVO y escribe el "
                          "tamaño del análisis y cuántos píxeles quedan resaltados."),
           QStringLiteral("ARCHIVO"), 1,
           {QCommandLineOption(QStringLiteral("sensitivity"),
                               QStringLiteral("Sensibilidad de 0 (solo los bordes más nítidos) a 1 (más bordes); 0.5 si se omite."),
                               QStringLiteral("S"), QStringLiteral("0.5")),
            QCommandLineOption(QStringLiteral("out"),
                               QStringLiteral("Guarda el resaltado (gris 220 sobre transparente) en un archivo .png nuevo."),
                               QStringLiteral("MASCARA.png"))}},
    execute);

} // namespace

} // namespace vantelor::cli
