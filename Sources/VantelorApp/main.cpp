#include <clocale>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include <QApplication>

#include "MainWindow.h"
#include "Model/LaunchOpener.h"
#include "Model/LaunchTarget.h"
#include "Model/SingleInstance.h"
#include "Model/LibraryModel.h"
#include "Support/Paths.h"
#include "VantelorCullingApp.h"

namespace {

const char* const usage =
    "Uso: vantelor [CARPETA | FOTO | URI file://]…\n"
    "Abre cada carpeta en una pestaña; una foto abre su carpeta y queda seleccionada.\n"
    "Si Vantelor ya está abierto, las carpetas se abren en su ventana.\n";

QString workingFolder()
{
    char buffer[4096];
    return ::getcwd(buffer, sizeof buffer) ? vantelor::Paths::decode(QByteArray(buffer)) : QStringLiteral("/");
}

// The folders and photos on the command line, as the bytes the shell passed: QApplication's
// own argument list would mangle a name that is not UTF-8. Qt's options (-platform …) were
// already taken out of argv by QApplication.
QList<QByteArray> pathArguments(int argc, char** argv)
{
    QList<QByteArray> arguments;
    bool options = true;
    for (int i = 1; i < argc; ++i) {
        const QByteArray argument(argv[i]);
        if (options && argument == "--") {
            options = false;
            continue;
        }
        if (options && argument.startsWith('-'))
            continue;
        arguments.append(argument);
    }
    return arguments;
}

} // namespace

int main(int argc, char** argv)
{
    // The operating system's messages (strerror) in the user's language where it has them.
    std::setlocale(LC_ALL, "");
    // Answered before any window system is needed, so they work on a console and in packaging.
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--version") == 0) {
            std::printf("vantelor %s\n", VANTELOR_VERSION);
            return 0;
        }
        if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) {
            std::fputs(usage, stdout);
            return 0;
        }
    }

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Vantelor"));
    QApplication::setOrganizationName(QStringLiteral("Vantelor"));
    QApplication::setDesktopFileName(QStringLiteral("com.vantelor.Vantelor"));
    vantelor::VantelorCullingApp::applyAppearance();

    const QList<vantelor::LaunchTarget> targets = vantelor::LaunchTarget::resolve(pathArguments(argc, argv), workingFolder());
    vantelor::SingleInstance instance;
    if (instance.claim(targets) == vantelor::SingleInstance::Role::secondary)
        return 0;

    vantelor::VantelorCullingApp culling;
    QObject::connect(&culling, &vantelor::VantelorCullingApp::terminated, &app, &QApplication::quit, Qt::QueuedConnection);
    culling.show();
    vantelor::LaunchOpener opener(culling.library());
    const auto openTargets = [&culling, &opener](const QList<vantelor::LaunchTarget>& opened) {
        opener.open(opened);
        culling.mainWindow().raise();
        culling.mainWindow().activateWindow();
    };
    QObject::connect(&instance, &vantelor::SingleInstance::targetsReceived, &culling, openTargets);
    openTargets(targets);
    return app.exec();
}
