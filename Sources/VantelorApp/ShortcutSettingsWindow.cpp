#include "ShortcutSettingsWindow.h"

#include "Model/ShortcutStore.h"

namespace vantelor {

ShortcutSettingsWindow::ShortcutSettingsWindow(ShortcutStore& store, QWidget* parent)
    : QDialog(parent)
    , m_store(store)
{
    setWindowTitle(QStringLiteral("Atajos — teclado y ratón"));
}

void ShortcutSettingsWindow::present(ShortcutStore& store, QWidget* parent)
{
    auto* window = new ShortcutSettingsWindow(store, parent);
    window->setAttribute(Qt::WA_DeleteOnClose);
    window->show();
}

} // namespace vantelor
