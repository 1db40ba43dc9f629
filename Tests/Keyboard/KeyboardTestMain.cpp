#include <gtest/gtest.h>

#include <QApplication>
#include <QTemporaryDir>

// Widgets need a QApplication. The preferences and caches of the whole run live in a folder of
// their own, so that no test reads or writes the user's: QSettings fixes its paths on first use.
int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QTemporaryDir home;
    qputenv("XDG_CONFIG_HOME", (home.path() + QStringLiteral("/config")).toUtf8());
    qputenv("XDG_CACHE_HOME", (home.path() + QStringLiteral("/cache")).toUtf8());
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
