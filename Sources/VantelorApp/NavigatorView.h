#pragma once

#include <QWidget>

namespace vantelor {

class LibraryModel;

// The folder tree on the left of the main window: home, volumes, recent folders, favourites.
class NavigatorView : public QWidget {
    Q_OBJECT

public:
    explicit NavigatorView(LibraryModel& library, QWidget* parent = nullptr);

private:
    LibraryModel& m_library;
};

} // namespace vantelor
