#pragma once

#include <QWidget>

class QAbstractButton;
class QCheckBox;
class QComboBox;
class QDateTimeEdit;
class QFrame;
class QLabel;
class QLineEdit;
class QPushButton;
class QToolButton;

namespace vantelor {

class LibraryModel;

// The bar above the photos: order and its reversal, the capture-time interval (in a popover),
// minimum rating, colour, name search, select-all, the autosave switch, the XMP status (in a
// popover), the sheet toggle and the shortcut settings. Each control sets the controller's
// property; the bar re-reads them when the controller says they changed. The autosave switch,
// the sheet toggle and the settings button show their full titles when the bar is wide enough
// and shorter ones when it is not (the autosave switch first); tooltips and accessible names
// always carry the full titles.
class FilterBar : public QWidget {
    Q_OBJECT

public:
    explicit FilterBar(LibraryModel& library, QWidget* parent = nullptr);

    // The popovers, for tests and the screenshot driver; null until first opened.
    QFrame* capturePopover() const { return m_capturePopover; }
    QFrame* metadataPopover() const { return m_metadataPopover; }
    void showCapturePopover();
    void showMetadataPopover();
    // Whether the interval shows "Intervalo no válido".
    bool intervalInvalid() const;

    QLineEdit* searchField() const { return m_search; }
    // Whether each shortenable control shows its full title, in the order they are shortened.
    QList<bool> fullTitles() const;

signals:
    void settingsRequested();

protected:
    void resizeEvent(QResizeEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void refreshFilters();
    void refreshMetadata();
    void refreshDisplay();
    QFrame* makePopover();
    void place(QFrame* popover, QWidget* anchor);
    void fitTitles();
    void returnKeys();

    struct Title {
        QAbstractButton* button;
        QString full;
        QString brief;
    };

    LibraryModel& m_library;
    QComboBox* m_order = nullptr;
    QToolButton* m_reverse = nullptr;
    QToolButton* m_captureButton = nullptr;
    QComboBox* m_rating = nullptr;
    QComboBox* m_colour = nullptr;
    QLineEdit* m_search = nullptr;
    QCheckBox* m_autoSave = nullptr;
    QToolButton* m_metadataButton = nullptr;
    QToolButton* m_sheet = nullptr;
    QList<Title> m_titles;

    QFrame* m_capturePopover = nullptr;
    QCheckBox* m_timeSwitch = nullptr;
    QDateTimeEdit* m_timeFrom = nullptr;
    QDateTimeEdit* m_timeTo = nullptr;
    QLabel* m_invalid = nullptr;

    QFrame* m_metadataPopover = nullptr;
    QLabel* m_metadataText = nullptr;
    QLabel* m_pendingText = nullptr;
    QCheckBox* m_popoverAutoSave = nullptr;
    QPushButton* m_saveButton = nullptr;
};

} // namespace vantelor
