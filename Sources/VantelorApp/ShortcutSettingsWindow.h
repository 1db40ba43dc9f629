#pragma once

#include <QDialog>
#include <QList>

#include "Input/ActionID.h"

class QAction;
class QFrame;
class QHBoxLayout;
class QLabel;
class QScrollArea;

namespace vantelor {

class KeyboardInput;
class ShortcutStore;

// "Atajos — teclado y ratón": every action with its shortcuts, recording, import, export, reset.
// A thin view over the store: every rule and message comes from it. While the store records, this
// window's own capture takes every key and extra mouse button pressed in it, even from a text
// field, and hands it to the store. GUI thread only.
class ShortcutSettingsWindow : public QDialog {
    Q_OBJECT

public:
    ShortcutSettingsWindow(ShortcutStore& store, QWidget* parent = nullptr);

    // Shows the one settings window of the application, creating it on first use, and raises it.
    static void present(ShortcutStore& store, QWidget* parent);
    // The window present() shows, if it exists.
    static ShortcutSettingsWindow* presented();
    // The desktop's usual "Preferencias…" entry (Ctrl+, where the desktop has that shortcut),
    // opening this window for `window`; the caller puts it into a menu.
    static QAction* preferencesAction(ShortcutStore& store, QWidget* window);

protected:
    void hideEvent(QHideEvent* event) override;

private:
    struct Row {
        ActionID action;
        QHBoxLayout* triggers;
    };

    void buildRows(QScrollArea* area);
    void refreshRows();
    void fillRow(const Row& row);
    void refreshError();
    void refreshConflict();
    void chooseImport();
    void chooseExport();

    ShortcutStore& m_store;
    KeyboardInput* m_input = nullptr;
    QList<Row> m_rows;
    QFrame* m_errorBar = nullptr;
    QLabel* m_errorText = nullptr;
    QFrame* m_conflictBar = nullptr;
    QLabel* m_conflictText = nullptr;
};

} // namespace vantelor
