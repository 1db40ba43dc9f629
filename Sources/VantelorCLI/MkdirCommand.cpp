#include <QJsonObject>

#include "Command.h"
#include "Files/DirectoryService.h"
#include "Support/Paths.h"

namespace vantelor::cli {

namespace {

int execute(const QCommandLineParser& parser)
{
    const QStringList positional = parser.positionalArguments();
    DirectoryService service;
    const Result<QString> created = service.createFolder(Paths::clean(positional[0]), positional[1]).result();
    if (!created)
        return Io::fail(created.message());
    if (parser.isSet(QStringLiteral("json")))
        Io::json(QJsonObject{{QStringLiteral("path"), Paths::jsonText(*created)}});
    else
        Io::out(*created);
    return success;
}

const bool registered = Registry::addParsed(
    QStringLiteral("mkdir"), QStringLiteral("Crea una carpeta nueva, como el navegador de carpetas."),
    Syntax{QStringLiteral("Crea la carpeta NOMBRE dentro de CARPETA (permisos 755) y escribe su ruta. "
                          "Nunca sustituye nada que ya exista ni crea carpetas intermedias."),
           QStringLiteral("CARPETA NOMBRE"), 2},
    execute);

} // namespace

} // namespace vantelor::cli
