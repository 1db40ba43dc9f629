#include <gtest/gtest.h>

#include <QApplication>
#include <QTemporaryDir>

#include "VantelorCullingApp.h"

// Widgets need a QApplication. The preferences and the preview cache go to a folder of this run,
// never to the user's ~/.config and ~/.cache.
int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QTemporaryDir home;
    qputenv("XDG_CONFIG_HOME", (home.path() + QStringLiteral("/config")).toLocal8Bit());
    qputenv("XDG_CACHE_HOME", (home.path() + QStringLiteral("/cache")).toLocal8Bit());
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Vantelor"));
    QApplication::setOrganizationName(QStringLiteral("Vantelor"));
    vantelor::VantelorCullingApp::applyAppearance();
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
