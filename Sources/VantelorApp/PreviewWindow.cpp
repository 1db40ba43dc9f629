#include "PreviewWindow.h"

#include <QVBoxLayout>

#include "ContentView.h"
#include "KeyboardInput.h"
#include "Model/LibraryModel.h"
#include "Model/ShortcutStore.h"

namespace vantelor {

PreviewWindow::PreviewWindow(LibraryModel& library, QWidget* parent) : QWidget(parent, Qt::Window)
{
    setObjectName(QStringLiteral("preview"));
    setWindowTitle(QStringLiteral("Vantelor — Vista previa"));
    resize(1480, 940);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    m_content = new ContentView(library, true, this);
    layout->addWidget(m_content);
    new KeyboardInput(this, [lib = &library](const InputTrigger& trigger) {
        const auto action = lib->shortcuts().profile().action(trigger);
        return action && lib->run(*action);
    });
}

} // namespace vantelor
