#pragma once

#include <optional>

#include <QWidget>

class QLabel;

namespace vantelor {

class HeaderResizeHandle;
class LibraryModel;

// The top of the main window: the folder's name, its status line, the last XMP message and the
// folder error. Its height is the user's, kept in the preferences under "layout.headerHeight"
// and changed with the handle below it.
class HeaderBar : public QWidget {
    Q_OBJECT

public:
    static constexpr double defaultHeight = 68;
    static constexpr double minimumHeight = 60;
    static constexpr double maximumHeight = 150;
    static constexpr double accessibilityStep = 8;
    static inline const QString preferencesKey = QStringLiteral("layout.headerHeight");

    HeaderBar(LibraryModel& library, HeaderResizeHandle& handle, QWidget* parent = nullptr);

    double headerHeight() const { return m_height; }
    void setHeaderHeight(double height);
    static double clampHeight(double height);

private:
    void refresh();

    LibraryModel& m_library;
    double m_height = defaultHeight;
    std::optional<double> m_dragStart;
    QLabel* m_title = nullptr;
    QLabel* m_status = nullptr;
    QLabel* m_metadataStatus = nullptr;
    QLabel* m_error = nullptr;
};

} // namespace vantelor
