#include "KeyboardInput.h"

#include <QWidget>

namespace vantelor {

KeyboardInput::KeyboardInput(QWidget* view, Action action)
    : QObject(view)
    , m_view(view)
    , m_action(std::move(action))
{
}

void KeyboardInput::setCapturing(bool capturing)
{
    m_capturing = capturing;
}

void KeyboardInput::prepareNavigation()
{
}

} // namespace vantelor
