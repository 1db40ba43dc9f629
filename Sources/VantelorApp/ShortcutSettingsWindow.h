#pragma once

#include <QDialog>

namespace vantelor {

class ShortcutStore;

// "Atajos — teclado y ratón": every action with its shortcuts, recording, import, export, reset.
class ShortcutSettingsWindow : public QDialog {
    Q_OBJECT

public:
    ShortcutSettingsWindow(ShortcutStore& store, QWidget* parent = nullptr);

    // Shows the one settings window of the application, creating it on first use, and raises it.
    static void present(ShortcutStore& store, QWidget* parent);

private:
    ShortcutStore& m_store;
};

} // namespace vantelor
