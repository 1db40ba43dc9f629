#include <QJsonObject>

#include "Command.h"
#include "OutputFile.h"
#include "Previews/JpegDecoder.h"
#include "Previews/NikonPreview.h"
#include "Support/Paths.h"

namespace vantelor::cli {

namespace {

int execute(const QCommandLineParser& parser)
{
    const QString path = Paths::clean(parser.positionalArguments().first());
    const QString out = parser.value(QStringLiteral("out"));

    // The extension rule of the preview service: only ".nef" files are searched.
    const auto found = Paths::suffix(path).toLower() == QLatin1String("nef") ? NikonPreview::locate(path) : std::nullopt;
    if (!found)
        return Io::fail(QStringLiteral("No hay ninguna vista previa JPEG incrustada en ") + Paths::displayText(path));
    // Only reported: the bytes are what the file holds, and the preview service passes over them.
    if (!JpegDecoder::decode(found->bytes, 64, JpegDecoder::Damage::refused))
        Io::damagedPreview(path);
    if (!out.isEmpty()) {
        const Status written = OutputFile::writeBytes(Paths::clean(out), found->bytes);
        if (!written)
            return Io::fail(written.message());
    }
    if (parser.isSet(QStringLiteral("json"))) {
        Io::json(QJsonObject{{QStringLiteral("offset"), double(found->offset)},
                             {QStringLiteral("length"), double(found->length)}});
        return success;
    }
    Io::out(QStringLiteral("%1 bytes en la posición %2").arg(found->length).arg(found->offset));
    return success;
}

const bool registered = Registry::addParsed(
    QStringLiteral("nef-preview"), QStringLiteral("Extrae la vista previa JPEG más grande de un NEF."),
    Syntax{QStringLiteral("Busca la vista previa JPEG más grande incrustada en ARCHIVO (un NEF) y escribe su posición "
                          "y su longitud en bytes. No lee los datos RAW."),
           QStringLiteral("ARCHIVO"), 1,
           {QCommandLineOption(QStringLiteral("out"), QStringLiteral("Escribe los bytes del JPEG, sin cambios, en un archivo nuevo."),
                               QStringLiteral("SALIDA.jpg"))}},
    execute);

} // namespace

} // namespace vantelor::cli
