#include <QJsonArray>
#include <QJsonObject>

#include "Command.h"
#include "Files/TransferFileSystem.h"
#include "Files/TransferRecovery.h"
#include "Support/Paths.h"

namespace vantelor::cli {

namespace {

int execute(const QCommandLineParser& parser)
{
    if (parser.positionalArguments().size() != 1) {
        Io::err(QStringLiteral("Indica una sola carpeta"));
        return usage;
    }
    // The command only waits for the answer, so the work runs right here: no worker thread to
    // start, and none to take down at exit.
    TransferFileSystem fileSystem;
    const Result<RecoveryReport> report
        = TransferRecovery(fileSystem, parser.isSet(QStringLiteral("dry-run")), parser.isSet(QStringLiteral("purge-verified")))
              .run(Paths::clean(parser.positionalArguments().constFirst()));
    if (!report)
        return Io::fail(report.message());
    if (parser.isSet(QStringLiteral("json"))) {
        Io::json(QJsonObject{{QStringLiteral("unfinished"), report->unfinished},
                             {QStringLiteral("keptOriginals"), report->keptOriginals},
                             {QStringLiteral("problems"), report->problems},
                             {QStringLiteral("lines"), QJsonArray::fromStringList(report->lines)}});
    } else {
        Io::out(report->text());
    }
    return report->problems ? failed : success;
}

const bool registered = Registry::addParsed(
    QStringLiteral("recover"), QStringLiteral("Arregla las transferencias interrumpidas de una carpeta."),
    Syntax{QStringLiteral(
               "Lee los diarios de las carpetas .vantelor-transfer-* y .vantelor-move-recovery de CARPETA y, "
               "según las huellas SHA-256, completa cada transferencia cuyos archivos estén todos verificados "
               "en el destino o la deshace si no. Nunca sobrescribe nada ni borra la única copia verificada "
               "de un archivo. Sale con 1 si algo quedó sin arreglar."),
           QStringLiteral("CARPETA"), 1,
           {QCommandLineOption(QStringLiteral("dry-run"), QStringLiteral("Solo dice lo que encontró y lo que haría.")),
            QCommandLineOption(QStringLiteral("purge-verified"),
                               QStringLiteral("Borra los originales que un traslado terminado dejó en "
                                              ".vantelor-move-recovery, tras comprobar de nuevo que su copia en "
                                              "el destino conserva la huella registrada."))}},
    execute);

} // namespace

} // namespace vantelor::cli
