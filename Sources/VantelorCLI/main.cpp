#include <clocale>
#include <cstdio>

#include <QCoreApplication>

#include "Command.h"
#include "Support/Paths.h"

using namespace vantelor;

namespace {

void printCommands()
{
    cli::Io::out(QStringLiteral("Uso: vantelor-cli ORDEN [opciones] [argumentos]\n\nÓrdenes:"));
    for (const auto& command : cli::Registry::all())
        cli::Io::out(QStringLiteral("  %1%2").arg(command.name, -12).arg(command.summary));
    cli::Io::out(QStringLiteral("\nCada orden acepta --help y --json."));
}

} // namespace

int main(int argc, char** argv)
{
    // The operating system's messages (strerror) in the user's language where it has them.
    std::setlocale(LC_ALL, "");
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("vantelor-cli"));

    // QCoreApplication::arguments() would replace bytes that are not UTF-8; keep them.
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments.append(Paths::decode(QByteArray(argv[i])));

    if (arguments.size() < 2 || arguments[1] == QStringLiteral("--help") || arguments[1] == QStringLiteral("help")) {
        printCommands();
        return arguments.size() < 2 ? cli::usage : cli::success;
    }
    const auto command = cli::Registry::find(arguments[1]);
    if (!command) {
        cli::Io::err(QStringLiteral("Orden desconocida: %1").arg(arguments[1]));
        printCommands();
        return cli::usage;
    }
    const int status = command->run(arguments);
    fflush(stdout);
    return status;
}
