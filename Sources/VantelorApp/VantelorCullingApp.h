#pragma once

#include <memory>

#include <QMessageBox>
#include <QObject>
#include <QPointer>

class QSessionManager;

namespace vantelor {

class FolderChooser;
class LibraryModel;
class MainWindow;
class PreviewService;
class PreviewWindow;
class QFileDialogChooser;

// The application: the one preview service, the one LibraryModel that both windows share, the
// main window, and the large preview window opened (or raised) whenever the controller's
// previewRequest changes. It guards quitting on every road (window close, the menu, the desktop
// session ending): a running transfer or save makes it wait, pending NEF edits make it ask.
// GUI thread only; the controller lives exactly as long as this object.
class VantelorCullingApp : public QObject {
    Q_OBJECT

public:
    struct Options {
        // Tests keep the preferences untouched and bring their own chooser.
        bool persistPreferences = true;
        FolderChooser* chooser = nullptr;
        int autosaveDelayMs = 350;
    };

    VantelorCullingApp();
    explicit VantelorCullingApp(Options options);
    ~VantelorCullingApp() override;

    // The dark Fusion look and the Spanish locale, once per process before any window exists.
    static void applyAppearance();

    void show();
    LibraryModel& library() const { return *m_library; }
    MainWindow& mainWindow() const { return *m_mainWindow; }
    // Null until the large preview was first asked for.
    PreviewWindow* previewWindow() const { return m_previewWindow.get(); }
    PreviewService& previews() const { return *m_previews; }

    // Every way of quitting ends here: answers at once, or shows the wait alert or the question.
    void requestQuit();
    // The alert on screen, for tests.
    QMessageBox* quitAlert() const { return m_quitAlert; }

signals:
    // Quitting was approved: the windows are closing and the event loop may end.
    void terminated();

private:
    void showPreviewWindow();
    void finishQuit();
    void commitData(QSessionManager& manager);

    Options m_options;
    std::unique_ptr<PreviewService> m_previews;
    std::unique_ptr<QFileDialogChooser> m_chooser;
    std::unique_ptr<LibraryModel> m_library;
    std::unique_ptr<MainWindow> m_mainWindow;
    std::unique_ptr<PreviewWindow> m_previewWindow;
    QPointer<QMessageBox> m_quitAlert;
    bool m_quitting = false;
    bool m_terminated = false;
};

} // namespace vantelor
