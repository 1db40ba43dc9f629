#include <gtest/gtest.h>

#include <QApplication>
#include <QTemporaryDir>

// The navigator reads and writes the preferences and looks at $HOME: both point into a folder
// of this run, never at the user's own.
int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QTemporaryDir sandbox;
    qputenv("XDG_CONFIG_HOME", (sandbox.path() + QStringLiteral("/config")).toUtf8());
    qputenv("XDG_CACHE_HOME", (sandbox.path() + QStringLiteral("/cache")).toUtf8());
    qputenv("XDG_RUNTIME_DIR", sandbox.path().toUtf8());
    qputenv("HOME", sandbox.path().toUtf8());
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
