#pragma once

#include <QWidget>

namespace vantelor {

class ContentView;
class LibraryModel;

// "Vantelor — Vista previa": the main view in preview-only mode, for a second screen. It shares
// the main window's controller, so stepping, zoom and focus peaking follow the same keys.
// Closing it only hides it.
class PreviewWindow : public QWidget {
    Q_OBJECT

public:
    explicit PreviewWindow(LibraryModel& library, QWidget* parent = nullptr);

    ContentView* content() const { return m_content; }

private:
    ContentView* m_content = nullptr;
};

} // namespace vantelor
