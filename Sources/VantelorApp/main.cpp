#include <QApplication>
#include <QLocale>
#include <QPalette>
#include <QStyleFactory>

#include "MainWindow.h"
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

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Vantelor"));
    QApplication::setOrganizationName(QStringLiteral("Vantelor"));
    QApplication::setDesktopFileName(QStringLiteral("com.vantelor.Vantelor"));
    QLocale::setDefault(QLocale(QLocale::Spanish, QLocale::Spain));
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    QApplication::setPalette(darkPalette());

    vantelor::MainWindow window;
    window.show();
    // The folder comes as bytes; QApplication::arguments() would mangle a name that is not UTF-8.
    if (argc > 1)
        window.openFolder(vantelor::Paths::decode(QByteArray(argv[1])));
    return app.exec();
}
