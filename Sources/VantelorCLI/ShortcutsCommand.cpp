#include "Command.h"
#include "Input/ShortcutProfileFile.h"
#include "Support/Paths.h"

namespace vantelor::cli {

namespace {

void printProfile(const ShortcutProfile& profile)
{
    int width = 0;
    for (const ShortcutBinding& binding : profile.bindings)
        width = std::max(width, int(binding.trigger.display.size()));
    QString text;
    for (const ShortcutBinding& binding : profile.bindings)
        text += QStringLiteral("%1  %2\n").arg(binding.trigger.display, -width).arg(ActionIDs::title(binding.action));
    text += QStringLiteral("%1 atajos").arg(profile.bindings.size());
    Io::out(text);
}

QString helpText()
{
    return QStringLiteral(
        "Uso: vantelor-cli shortcuts check [--json] ARCHIVO\n"
        "     vantelor-cli shortcuts defaults [--json]\n\n"
        "check     Comprueba un perfil de atajos como lo haría Importar y muestra los atajos que se\n"
        "          conservarían; con --json, el perfil resultante.\n"
        "defaults  Muestra los atajos de serie; con --json, en la forma de un archivo de perfil.\n\n"
        "En los atajos, ⌘ es la tecla Ctrl, ⌥ es Alt y ⌃ es la tecla Super.");
}

int checkProfile(const QCommandLineParser& parser)
{
    if (parser.positionalArguments().size() > 1) {
        Io::err(QStringLiteral("Sobran argumentos. Uso: vantelor-cli shortcuts check ARCHIVO"));
        return usage;
    }
    const Result<ShortcutProfile> profile = ShortcutProfileFile::read(Paths::clean(parser.positionalArguments().first()));
    if (!profile)
        return Io::fail(profile.message());
    if (parser.isSet(QStringLiteral("json")))
        Io::json(profile->toJsonObject());
    else
        printProfile(*profile);
    return success;
}

int check(const QStringList& arguments)
{
    const Syntax syntax{
        QStringLiteral("Lee ARCHIVO (un perfil de atajos en JSON) como lo haría Importar en los ajustes de atajos: lo "
                       "descodifica, comprueba sus reglas y le añade los atajos básicos. Muestra los atajos que "
                       "quedarían, o el motivo por el que se rechaza. En los atajos, ⌘ es la tecla Ctrl."),
        QStringLiteral("ARCHIVO"), 1};
    return runParsed(arguments, syntax, checkProfile);
}

int showDefaults(const QCommandLineParser& parser)
{
    if (!parser.positionalArguments().isEmpty()) {
        Io::err(QStringLiteral("Sobran argumentos. Uso: vantelor-cli shortcuts defaults [--json]"));
        return usage;
    }
    if (parser.isSet(QStringLiteral("json")))
        Io::json(ShortcutProfile::defaults().toJsonObject());
    else
        printProfile(ShortcutProfile::defaults());
    return success;
}

int defaults(const QStringList& arguments)
{
    const Syntax syntax{QStringLiteral("Muestra los atajos de serie. Con --json, en la forma de un archivo de perfil, "
                                       "listo para editarlo e importarlo. En los atajos, ⌘ es la tecla Ctrl.")};
    return runParsed(arguments, syntax, showDefaults);
}

int run(const QStringList& arguments)
{
    const QString sub = arguments.value(2);
    if (sub == QLatin1String("check"))
        return check(subcommandArguments(arguments));
    if (sub == QLatin1String("defaults"))
        return defaults(subcommandArguments(arguments));
    if (sub == QLatin1String("--help") || sub == QLatin1String("-help")) {
        Io::out(helpText());
        return success;
    }
    Io::err(sub.isEmpty() ? QStringLiteral("Falta la orden: check o defaults.") : QStringLiteral("Orden desconocida: shortcuts %1").arg(sub));
    Io::err(helpText());
    return usage;
}

const bool registered = Registry::add(
    {QStringLiteral("shortcuts"),
     QStringLiteral("Comprueba un perfil de atajos (check ARCHIVO) o muestra el de serie (defaults)."), run});

} // namespace

} // namespace vantelor::cli
