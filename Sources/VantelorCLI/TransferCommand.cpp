#include "Command.h"

#include <atomic>
#include <functional>
#include <memory>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <unistd.h>

#include <QJsonArray>
#include <QJsonObject>

#include "Files/FileWorkflow.h"
#include "Files/TransferKind.h"
#include "Support/Paths.h"

namespace vantelor::cli {

namespace {

const QString destinationOption = QStringLiteral("to");
const QString yesOption = QStringLiteral("yes");

QString kindVerb(TransferKind kind)
{
    return kind == TransferKind::copy ? QStringLiteral("Copiar") : QStringLiteral("Mover");
}

QString planText(const TransferPlan& plan)
{
    QStringList lines;
    for (const TransferItem& item : plan.items)
        lines.append(QStringLiteral("%1  %2").arg(item.bytes, 12).arg(item.source));
    lines.append(QStringLiteral("%1 archivos · %2 bytes → %3")
                     .arg(plan.items.size())
                     .arg(plan.totalBytes())
                     .arg(plan.destination));
    return lines.join(QLatin1Char('\n'));
}

// Reads one answer from the terminal: yes in Spanish or English, anything else is no.
bool confirmed(const TransferPlan& plan)
{
    const QString question = QStringLiteral("¿%1 %2 archivos a %3? [s/N] ")
                                 .arg(kindVerb(plan.kind))
                                 .arg(plan.items.size())
                                 .arg(plan.destination);
    const QByteArray bytes = Paths::encode(question);
    fwrite(bytes.constData(), 1, size_t(bytes.size()), stderr);
    fflush(stderr);
    char line[64] = {};
    if (!fgets(line, sizeof line, stdin))
        return false;
    const QString answer = QString::fromUtf8(line).trimmed().toLower();
    return answer == QLatin1String("s") || answer == QLatin1String("si") || answer == QStringLiteral("sí")
        || answer == QLatin1String("y") || answer == QLatin1String("yes");
}

QFuture<Result<TransferPlan>> planFrom(const QCommandLineParser& parser, FileWorkflow& workflow, TransferKind kind)
{
    QStringList sources;
    for (const QString& argument : parser.positionalArguments())
        sources.append(Paths::clean(argument));
    return workflow.plan(sources, Paths::clean(parser.value(destinationOption)), kind);
}

const QString associatedFilesText = QStringLiteral(
    "Cada FOTO viaja con todos los archivos de su carpeta que tienen su mismo nombre base (XMP, JPEG gemelo…) "
    "y con los de edición que llevan su nombre completo (DSC_0001.NEF.xmp, .pp3, .dop). "
    "Nunca se sobrescribe nada: si el destino ya contiene alguno de esos nombres, no se transfiere nada.");

// What plan, copy and move accept: the sources, the command's own options and --to.
Syntax transferSyntax(const QString& description, QList<QCommandLineOption> options)
{
    options.append(QCommandLineOption(destinationOption, QStringLiteral("Carpeta de destino."), QStringLiteral("DESTINO")));
    return {description + associatedFilesText, QStringLiteral("FOTO…"), 1, options};
}

// Parses the arguments, then runs the body once the destination is known to be given.
int runWithDestination(const QStringList& arguments, const Syntax& syntax, const std::function<int(const QCommandLineParser&)>& body)
{
    return runParsed(arguments, syntax, [&body](const QCommandLineParser& parser) {
        if (!parser.isSet(destinationOption)) {
            Io::err(QStringLiteral("Falta la carpeta de destino: --to DESTINO"));
            return int(usage);
        }
        return body(parser);
    });
}

int showPlan(const QCommandLineParser& parser)
{
    const bool copy = parser.isSet(QStringLiteral("copy"));
    if (copy == parser.isSet(QStringLiteral("move"))) {
        Io::err(QStringLiteral("Indica --copy o --move"));
        return usage;
    }

    FileWorkflow workflow;
    const Result<TransferPlan> plan = planFrom(parser, workflow, copy ? TransferKind::copy : TransferKind::move).result();
    if (!plan)
        return Io::fail(plan.message());
    if (parser.isSet(QStringLiteral("json"))) {
        const QByteArray journal = plan->journal() + '\n';
        fwrite(journal.constData(), 1, size_t(journal.size()), stdout);
    } else {
        Io::out(planText(*plan));
    }
    return success;
}

sigset_t stopSignals()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    return set;
}

// Waits for the work while Ctrl-C and SIGTERM, held back from every thread, are turned into a
// request to stop: a transfer killed outright would leave its staging folder behind. True when
// one came.
template <typename T>
bool waitStoppable(const QFuture<T>& future, const std::function<void()>& stop)
{
    const sigset_t held = stopSignals();
    bool stopped = false;
    while (!future.isFinished()) {
        const timespec wait{0, 50 * 1000 * 1000};
        if (sigtimedwait(&held, nullptr, &wait) > 0 && !stopped) {
            stopped = true;
            stop();
        }
    }
    return stopped;
}

int transfer(const QCommandLineParser& parser, TransferKind kind)
{
    const bool json = parser.isSet(QStringLiteral("json"));
    const bool yes = parser.isSet(yesOption);

    // Blocked before the worker thread is born, so that only waitStoppable ever takes them.
    const sigset_t held = stopSignals();
    pthread_sigmask(SIG_BLOCK, &held, nullptr);
    FileWorkflow workflow;
    QFuture<Result<TransferPlan>> planning = planFrom(parser, workflow, kind);
    if (waitStoppable(planning, [&planning] { planning.cancel(); }))
        return Io::fail(Cancelled().message());
    const Result<TransferPlan> plan = planning.result();
    if (!plan)
        return Io::fail(plan.message());
    // The plan goes where it does not spoil a JSON answer, and out before the work starts.
    (json ? Io::err : Io::out)(planText(*plan));
    fflush(stdout);
    if (!yes) {
        if (!::isatty(STDIN_FILENO))
            return Io::fail(QStringLiteral("Sin terminal no se puede confirmar; añade --yes para transferir sin preguntar"));
        // Nothing has changed yet: while the question waits, Ctrl-C ends the program as usual.
        pthread_sigmask(SIG_UNBLOCK, &held, nullptr);
        if (!confirmed(*plan))
            return Io::fail(Cancelled().message());
        pthread_sigmask(SIG_BLOCK, &held, nullptr);
    }

    auto stop = std::make_shared<std::atomic<bool>>(false);
    QFuture<Result<TransferReceipt>> execution = workflow.execute(*plan, [stop] { return stop->load(); });
    waitStoppable(execution, [&stop] { stop->store(true); });
    const Result<TransferReceipt> receipt = execution.result();
    if (!receipt && isCancelled(receipt.failure()))
        return Io::fail(QStringLiteral("Transferencia detenida; se ha deshecho lo hecho"));
    if (!receipt)
        return Io::fail(receipt.message());
    if (json) {
        QJsonArray folders;
        for (const QString& folder : receipt->recoveryFolders)
            folders.append(Paths::jsonText(folder));
        Io::json(QJsonObject{{QStringLiteral("count"), receipt->count}, {QStringLiteral("recoveryFolders"), folders}});
        return success;
    }
    QString text = (kind == TransferKind::copy ? QStringLiteral("Copiados ") : QStringLiteral("Movidos "))
        + QString::number(receipt->count) + QStringLiteral(" archivos. ");
    if (!receipt->recoveryFolders.isEmpty()) {
        text += QStringLiteral("Copias de recuperación conservadas en .vantelor-move-recovery.");
        for (const QString& folder : receipt->recoveryFolders)
            text += QStringLiteral("\n  ") + folder;
    }
    Io::out(text);
    return success;
}

// `plan --copy|--move`: prints the plan and stops.
int runPlan(const QStringList& arguments)
{
    const Syntax syntax = transferSyntax(
        QStringLiteral("Muestra lo que harían copy o move: cada archivo que viajaría, con su tamaño en bytes, y el "
                       "destino. No cambia nada. Con --json escribe el plan tal como lo guarda el diario "
                       "transaction.json. "),
        {QCommandLineOption(QStringLiteral("copy"), QStringLiteral("Planea una copia.")),
         QCommandLineOption(QStringLiteral("move"), QStringLiteral("Planea un traslado."))});
    return runWithDestination(arguments, syntax, showPlan);
}

// `copy` and `move`: plans, shows the plan, asks for confirmation unless --yes, executes.
int runTransfer(const QStringList& arguments, TransferKind kind)
{
    const QString what = kind == TransferKind::copy
        ? QStringLiteral("Copia cada FOTO con sus archivos asociados a DESTINO. ")
        : QStringLiteral("Mueve cada FOTO con sus archivos asociados a DESTINO; los originales quedan en "
                         ".vantelor-move-recovery/<id> junto a ellos. ");
    const Syntax syntax = transferSyntax(
        what + QStringLiteral("Muestra el plan y pide confirmación (salvo con --yes); sin terminal y sin --yes no "
                              "hace nada. Cada copia se verifica con SHA-256 antes de colocarla; si algo falla, se "
                              "deshace lo hecho. "),
        {QCommandLineOption(yesOption, QStringLiteral("Transfiere sin preguntar."))});
    return runWithDestination(arguments, syntax, [kind](const QCommandLineParser& parser) { return transfer(parser, kind); });
}

const bool registered = Registry::add({QStringLiteral("plan"),
                                       QStringLiteral("Muestra qué archivos viajarían en una copia o un traslado."), runPlan})
    && Registry::add({QStringLiteral("copy"), QStringLiteral("Copia fotos con sus archivos asociados, verificadas."),
                      [](const QStringList& arguments) { return runTransfer(arguments, TransferKind::copy); }})
    && Registry::add({QStringLiteral("move"), QStringLiteral("Mueve fotos con sus archivos asociados, conservando los originales."),
                      [](const QStringList& arguments) { return runTransfer(arguments, TransferKind::move); }});

} // namespace

} // namespace vantelor::cli
