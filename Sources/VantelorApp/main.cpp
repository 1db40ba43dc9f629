#include <QApplication>

#include "Model/LibraryModel.h"
#include "Support/Paths.h"
#include "VantelorCullingApp.h"

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Vantelor"));
    QApplication::setOrganizationName(QStringLiteral("Vantelor"));
    QApplication::setDesktopFileName(QStringLiteral("com.vantelor.Vantelor"));
    vantelor::VantelorCullingApp::applyAppearance();

    vantelor::VantelorCullingApp culling;
    QObject::connect(&culling, &vantelor::VantelorCullingApp::terminated, &app, &QApplication::quit, Qt::QueuedConnection);
    culling.show();
    // The folder comes as bytes; QApplication::arguments() would mangle a name that is not UTF-8.
    if (argc > 1)
        culling.library().open(vantelor::Paths::decode(QByteArray(argv[1])));
    return app.exec();
}
