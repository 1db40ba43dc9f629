#pragma once

#include <QList>
#include <QScrollArea>

class QCheckBox;
class QLabel;
class QSlider;
class QStackedWidget;
class QToolButton;

namespace vantelor {

class LibraryModel;
class PreviewCanvas;

// The right column: rating, colour label, focus peaking and the capture data of the current
// photo. Its buttons call the controller's operations; everything shown is re-read from the
// controller when one of its groups changes. The share of highlighted pixels comes from the
// main canvas, which owns the mask.
class InspectorView : public QScrollArea {
    Q_OBJECT

public:
    InspectorView(LibraryModel& library, PreviewCanvas& canvas, QWidget* parent = nullptr);

    // For tests: the texts as shown.
    QString ratingText() const;
    QString captureText() const;

private:
    void refresh();
    void refreshMark();
    void refreshFocus();
    void refreshCapture();

    LibraryModel& m_library;
    PreviewCanvas& m_canvas;
    QStackedWidget* m_pages = nullptr;
    QLabel* m_name = nullptr;
    QLabel* m_fileFacts = nullptr;
    QList<QToolButton*> m_starButtons;
    QLabel* m_ratingText = nullptr;
    QList<QToolButton*> m_labelButtons;
    QLabel* m_labelText = nullptr;
    QLabel* m_sessionNote = nullptr;
    QLabel* m_metadataError = nullptr;
    QCheckBox* m_focusSwitch = nullptr;
    QToolButton* m_focusDefault = nullptr;
    QToolButton* m_focusBlue = nullptr;
    QSlider* m_sensitivity = nullptr;
    QLabel* m_focusShare = nullptr;
    QLabel* m_captureTime = nullptr;
    QLabel* m_captureNote = nullptr;
    QWidget* m_captureRows = nullptr;
    QLabel* m_camera = nullptr;
    QLabel* m_lens = nullptr;
    QLabel* m_exposure = nullptr;
    QLabel* m_iso = nullptr;
    QLabel* m_dimensions = nullptr;
    int m_laidOutPage = -1;
    QLabel* m_previewFacts = nullptr;
    QLabel* m_waiting = nullptr;
};

} // namespace vantelor
