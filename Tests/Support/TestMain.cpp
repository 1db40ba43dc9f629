#include <gtest/gtest.h>

#include <QCoreApplication>

// Every test program gets a QCoreApplication, so that futures can continue on the main thread.
int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
