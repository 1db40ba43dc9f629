#pragma once

#include <functional>

#include <QMainWindow>

class QAction;

namespace vantelor {

class ContentView;
class LibraryModel;

// The main window: the menus "Archivo" and "Fotografías" over the main view. Closing it is a
// request to quit, which the application answers (it may ask first); the window only closes
// once quitting was approved. The menu commands carry no key equivalents: keys reach the same
// operations through the shortcut profile.
class MainWindow : public QMainWindow {
    Q_OBJECT

public:
    // `requestQuit` is called for every way of closing the window or quitting from its menu.
    MainWindow(LibraryModel& library, std::function<void()> requestQuit, QWidget* parent = nullptr);

    ContentView* content() const { return m_content; }
    QAction* sheetAction() const { return m_sheetAction; }
    // Set by the application once quitting was approved: the next close goes through.
    void approveClose() { m_closeApproved = true; }

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void refreshTitle();

    LibraryModel& m_library;
    std::function<void()> m_requestQuit;
    ContentView* m_content = nullptr;
    QAction* m_sheetAction = nullptr;
    QAction* m_autoSaveAction = nullptr;
    bool m_closeApproved = false;
};

} // namespace vantelor
