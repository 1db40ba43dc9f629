#include <QJsonArray>
#include <QJsonObject>

#include "Command.h"
#include "Files/DirectoryService.h"
#include "Support/Paths.h"

namespace vantelor::cli {

namespace {

int execute(const QCommandLineParser& parser)
{
    const QString folder = Paths::clean(parser.positionalArguments().first());
    DirectoryService service;
    const Result<QList<DirectoryEntry>> entries = service.children(folder).result();
    if (!entries)
        return Io::fail(entries.message());
    if (parser.isSet(QStringLiteral("json"))) {
        QJsonArray list;
        for (const DirectoryEntry& entry : *entries) {
            list.append(QJsonObject{{QStringLiteral("path"), Paths::jsonText(entry.url)},
                                    {QStringLiteral("name"), Paths::jsonText(entry.name)},
                                    {QStringLiteral("created"), Io::isoDate(entry.created)}});
        }
        Io::json(QJsonObject{{QStringLiteral("folder"), Paths::jsonText(folder)}, {QStringLiteral("folders"), list}});
        return success;
    }
    QStringList lines;
    for (const DirectoryEntry& entry : *entries)
        lines.append(Io::isoDate(entry.created) + QStringLiteral("  ") + entry.url);
    lines.append(QStringLiteral("%1 carpetas").arg(entries->size()));
    Io::out(lines.join(QLatin1Char('\n')));
    return success;
}

const bool registered = Registry::addParsed(
    QStringLiteral("folders"), QStringLiteral("Lista las subcarpetas en el orden del navegador."),
    Syntax{QStringLiteral("Lista las subcarpetas de CARPETA como las muestra el navegador: sin ocultas ni enlaces "
                          "simbólicos, ordenadas por nombre, con su fecha de creación (UTC)."),
           QStringLiteral("CARPETA"), 1},
    execute);

} // namespace

} // namespace vantelor::cli
