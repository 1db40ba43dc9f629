// Stands for a launch of the application in the single-instance tests:
//   InstanceProbe SOCKET COUNT [PATH…]
// Claims the instance with the paths. A second launch prints "secondary" and exits; the first
// prints "primary", then one line per launch it receives (the folders joined by " | ") and exits
// after COUNT of them.
#include <cstdio>
#include <unistd.h>

#include <QCoreApplication>
#include <QTimer>

#include "Model/LaunchTarget.h"
#include "Model/SingleInstance.h"
#include "Support/Paths.h"

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    char cwd[4096];
    const QString working = ::getcwd(cwd, sizeof cwd) ? vantelor::Paths::decode(cwd) : QStringLiteral("/");
    QList<QByteArray> paths;
    for (int i = 3; i < argc; ++i)
        paths.append(QByteArray(argv[i]));

    vantelor::SingleInstance instance(vantelor::Paths::decode(argv[1]));
    if (instance.claim(vantelor::LaunchTarget::resolve(paths, working)) == vantelor::SingleInstance::Role::secondary) {
        std::puts("secondary");
        return 0;
    }
    std::puts("primary");
    std::fflush(stdout);

    int remaining = QByteArray(argv[2]).toInt();
    QObject::connect(&instance, &vantelor::SingleInstance::targetsReceived, &app,
                     [&remaining](const QList<vantelor::LaunchTarget>& targets) {
                         QStringList folders;
                         for (const auto& target : targets)
                             folders.append(vantelor::Paths::jsonText(target.folder) + (target.photo ? QStringLiteral(" *") : QString()));
                         std::puts(qPrintable(folders.join(QStringLiteral(" | "))));
                         std::fflush(stdout);
                         if (--remaining <= 0)
                             QCoreApplication::exit(0);
                     });
    QTimer::singleShot(20000, &app, [] { QCoreApplication::exit(1); });
    return app.exec();
}
