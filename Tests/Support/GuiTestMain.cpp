#include <gtest/gtest.h>

#include <QApplication>
#include <QTemporaryDir>

#include "VantelorCullingApp.h"

// The main of the programs that drive widgets. The preferences, the caches and $HOME of the whole
// run live in a folder of their own, never the user's: QSettings fixes its paths on first use.
int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QTemporaryDir sandbox;
    qputenv("XDG_CONFIG_HOME", (sandbox.path() + QStringLiteral("/config")).toUtf8());
    qputenv("XDG_CACHE_HOME", (sandbox.path() + QStringLiteral("/cache")).toUtf8());
    qputenv("XDG_RUNTIME_DIR", sandbox.path().toUtf8());
    qputenv("HOME", sandbox.path().toUtf8());
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Vantelor"));
    QApplication::setOrganizationName(QStringLiteral("Vantelor"));
    vantelor::VantelorCullingApp::applyAppearance();
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
