#include <cstdio>
#include <cstring>
#include <unistd.h>

#include <QApplication>
#include <QLocale>
#include <QPalette>
#include <QStyleFactory>

#include "MainWindow.h"
#include "Model/LaunchTarget.h"
#include "Model/SingleInstance.h"
#include "Support/Paths.h"

namespace {

QPalette darkPalette()
{
    QPalette p;
    const QColor window(0x1f, 0x21, 0x24);
    const QColor base(0x17, 0x18, 0x1a);
    const QColor text(0xe6, 0xe6, 0xe6);
    const QColor accent(0x3d, 0x8b, 0xfd);
    p.setColor(QPalette::Window, window);
    p.setColor(QPalette::WindowText, text);
    p.setColor(QPalette::Base, base);
    p.setColor(QPalette::AlternateBase, window);
    p.setColor(QPalette::ToolTipBase, base);
    p.setColor(QPalette::ToolTipText, text);
    p.setColor(QPalette::Text, text);
    p.setColor(QPalette::Button, QColor(0x2a, 0x2d, 0x31));
    p.setColor(QPalette::ButtonText, text);
    p.setColor(QPalette::BrightText, Qt::white);
    p.setColor(QPalette::Highlight, accent);
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Link, accent);
    p.setColor(QPalette::PlaceholderText, QColor(0x8a, 0x8f, 0x98));
    for (auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        p.setColor(QPalette::Disabled, role, QColor(0x6b, 0x6f, 0x76));
    return p;
}

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
    QLocale::setDefault(QLocale(QLocale::Spanish, QLocale::Spain));
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    QApplication::setPalette(darkPalette());

    const QList<vantelor::LaunchTarget> targets = vantelor::LaunchTarget::resolve(pathArguments(argc, argv), workingFolder());
    vantelor::SingleInstance instance;
    if (instance.claim(targets) == vantelor::SingleInstance::Role::secondary)
        return 0;

    vantelor::MainWindow window;
    window.show();
    const auto openTargets = [&window](const QList<vantelor::LaunchTarget>& opened) {
        for (const vantelor::LaunchTarget& target : opened)
            window.openFolder(target.folder);
        window.raise();
        window.activateWindow();
    };
    QObject::connect(&instance, &vantelor::SingleInstance::targetsReceived, &window, openTargets);
    openTargets(targets);
    return app.exec();
}
