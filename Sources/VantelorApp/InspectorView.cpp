#include "InspectorView.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QPushButton>
#include <QSlider>
#include <QStackedWidget>
#include <QToolButton>
#include <QVBoxLayout>

#include "Appearance.h"
#include "Model/LibraryModel.h"
#include "PreviewCanvas.h"
#include "Support/Paths.h"

namespace vantelor {

namespace {

QLabel* sectionTitle(const QString& text, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    Appearance::styleSectionTitle(label);
    return label;
}

QLabel* note(const QString& text, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    label->setWordWrap(true);
    Appearance::styleSecondary(label);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * 0.9);
    label->setFont(font);
    return label;
}

QToolButton* swatch(QColor colour, const QString& tip, QWidget* parent)
{
    auto* button = new QToolButton(parent);
    button->setCheckable(true);
    button->setFixedSize(26, 26);
    button->setToolTip(tip);
    button->setAccessibleName(tip);
    button->setFocusPolicy(Qt::NoFocus);
    button->setStyleSheet(QStringLiteral(
        "QToolButton { background: %1; border: 2px solid #2a2d31; border-radius: 13px; }"
        "QToolButton:checked { border: 2px solid #f0f0f0; }")
            .arg(colour.name()));
    return button;
}

bool isNef(const QString& url)
{
    return Paths::suffix(url).compare(QLatin1String("nef"), Qt::CaseInsensitive) == 0;
}

} // namespace

InspectorView::InspectorView(LibraryModel& library, PreviewCanvas& canvas, QWidget* parent)
    : QScrollArea(parent)
    , m_library(library)
    , m_canvas(canvas)
{
    setWidgetResizable(true);
    setFrameShape(QFrame::NoFrame);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setFocusPolicy(Qt::NoFocus);

    m_pages = new QStackedWidget(this);
    auto* empty = new QWidget(m_pages);
    auto* emptyLayout = new QVBoxLayout(empty);
    auto* emptyText = note(QStringLiteral("Selecciona una fotografía para ver sus datos."), empty);
    emptyText->setAlignment(Qt::AlignCenter);
    emptyLayout->addStretch();
    emptyLayout->addWidget(emptyText);
    emptyLayout->addStretch();
    m_pages->addWidget(empty);

    auto* page = new QWidget(m_pages);
    auto* layout = new QVBoxLayout(page);
    layout->setContentsMargins(16, 14, 16, 16);
    layout->setSpacing(8);

    m_name = new QLabel(page);
    QFont nameFont = m_name->font();
    nameFont.setBold(true);
    nameFont.setPointSizeF(nameFont.pointSizeF() * 1.1);
    m_name->setFont(nameFont);
    m_name->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(m_name);
    m_fileFacts = note(QString(), page);
    layout->addWidget(m_fileFacts);
    layout->addSpacing(6);

    // Rating.
    layout->addWidget(sectionTitle(QStringLiteral("ESTRELLAS"), page));
    auto* stars = new QHBoxLayout;
    stars->setSpacing(2);
    for (int i = 1; i <= 5; ++i) {
        auto* star = new QToolButton(page);
        star->setAutoRaise(true);
        star->setFocusPolicy(Qt::NoFocus);
        star->setToolTip(i == 1 ? QStringLiteral("1 estrella") : QStringLiteral("%1 estrellas").arg(i));
        star->setAccessibleName(star->toolTip());
        QFont f = star->font();
        f.setPointSizeF(f.pointSizeF() * 1.6);
        star->setFont(f);
        connect(star, &QToolButton::clicked, this, [this, i] { m_library.setRating(i); });
        m_starButtons.append(star);
        stars->addWidget(star);
    }
    stars->addStretch();
    layout->addLayout(stars);
    m_ratingText = new QLabel(page);
    m_ratingText->setVisible(false);
    auto* clearStars = new QPushButton(QStringLiteral("Quitar estrellas · ⇧0"), page);
    clearStars->setFocusPolicy(Qt::NoFocus);
    connect(clearStars, &QPushButton::clicked, this, [this] { m_library.setRating(0); });
    layout->addWidget(clearStars, 0, Qt::AlignLeft);
    layout->addSpacing(6);

    // Colour label.
    layout->addWidget(sectionTitle(QStringLiteral("ETIQUETA DE COLOR"), page));
    auto* swatches = new QHBoxLayout;
    swatches->setSpacing(6);
    for (SessionLabel label : SessionLabels::allCases) {
        auto* button = swatch(Appearance::labelColor(label), Appearance::labelTitle(label), page);
        connect(button, &QToolButton::clicked, this, [this, label] { m_library.setLabel(label); });
        m_labelButtons.append(button);
        swatches->addWidget(button);
    }
    swatches->addStretch();
    layout->addLayout(swatches);
    m_labelText = note(QString(), page);
    layout->addWidget(m_labelText);
    m_sessionNote = note(QStringLiteral("JPEG y otros formatos: las valoraciones solo se guardan durante esta sesión."), page);
    layout->addWidget(m_sessionNote);
    m_metadataError = new QLabel(page);
    m_metadataError->setWordWrap(true);
    m_metadataError->setStyleSheet(QStringLiteral("color: %1;").arg(Appearance::warning().name()));
    layout->addWidget(m_metadataError);
    layout->addSpacing(6);

    // Focus peaking.
    layout->addWidget(sectionTitle(QStringLiteral("ENFOQUE"), page));
    m_focusSwitch = new QCheckBox(QStringLiteral("Resaltar enfoque"), page);
    m_focusSwitch->setFocusPolicy(Qt::NoFocus);
    connect(m_focusSwitch, &QCheckBox::toggled, this, [this](bool on) { m_library.setFocusEnabled(on); });
    layout->addWidget(m_focusSwitch);
    auto* colourRow = new QHBoxLayout;
    colourRow->addWidget(new QLabel(QStringLiteral("Color del resaltado"), page));
    colourRow->addStretch();
    m_focusDefault = swatch(Appearance::focusColor(false), QStringLiteral("Rojo"), page);
    m_focusBlue = swatch(Appearance::focusColor(true), QStringLiteral("Azul"), page);
    connect(m_focusDefault, &QToolButton::clicked, this, [this] { m_library.setFocusBlue(false); });
    connect(m_focusBlue, &QToolButton::clicked, this, [this] { m_library.setFocusBlue(true); });
    colourRow->addWidget(m_focusDefault);
    colourRow->addWidget(m_focusBlue);
    layout->addLayout(colourRow);
    layout->addWidget(new QLabel(QStringLiteral("Sensibilidad del resaltado"), page));
    m_sensitivity = new QSlider(Qt::Horizontal, page);
    m_sensitivity->setRange(0, 100);
    m_sensitivity->setFocusPolicy(Qt::NoFocus);
    m_sensitivity->setAccessibleName(QStringLiteral("Sensibilidad del resaltado"));
    connect(m_sensitivity, &QSlider::valueChanged, this, [this](int value) {
        if (qRound(m_library.focusSensitivity() * 100) != value)
            m_library.setFocusSensitivity(value / 100.0);
    });
    layout->addWidget(m_sensitivity);
    m_focusShare = new QLabel(page);
    layout->addWidget(m_focusShare);
    layout->addWidget(note(QStringLiteral("Resalta bordes con contraste; no indica los puntos AF de Nikon. Analiza hasta 2560 px. "
                                          "El 100% utiliza la vista previa disponible, que puede ser menor que la imagen RAW."),
        page));
    layout->addSpacing(6);

    // Capture data.
    layout->addWidget(sectionTitle(QStringLiteral("DATOS DE CAPTURA"), page));
    m_waiting = note(QStringLiteral("Los datos aparecen al cargar la vista previa."), page);
    layout->addWidget(m_waiting);
    m_captureRows = new QWidget(page);
    auto* grid = new QGridLayout(m_captureRows);
    grid->setContentsMargins(0, 0, 0, 0);
    grid->setHorizontalSpacing(12);
    grid->setVerticalSpacing(5);
    grid->setColumnStretch(1, 1);
    int row = 0;
    auto addRow = [&](const QString& title) {
        auto* key = new QLabel(title, m_captureRows);
        Appearance::styleSecondary(key);
        auto* value = new QLabel(m_captureRows);
        value->setWordWrap(true);
        value->setTextInteractionFlags(Qt::TextSelectableByMouse);
        grid->addWidget(key, row, 0, Qt::AlignTop);
        grid->addWidget(value, row, 1);
        ++row;
        return value;
    };
    m_captureTime = addRow(QStringLiteral("Fecha y hora"));
    m_captureNote = note(QStringLiteral("Hora registrada por la cámara"), m_captureRows);
    grid->addWidget(m_captureNote, row++, 1);
    m_camera = addRow(QStringLiteral("Cámara"));
    m_lens = addRow(QStringLiteral("Objetivo"));
    m_exposure = addRow(QStringLiteral("Exposición"));
    m_iso = addRow(QStringLiteral("Sensibilidad"));
    m_dimensions = addRow(QStringLiteral("Dimensiones"));
    layout->addWidget(m_captureRows);
    m_previewFacts = note(QString(), page);
    layout->addWidget(m_previewFacts);
    layout->addStretch();
    m_pages->addWidget(page);
    setWidget(m_pages);

    connect(&library, &LibraryModel::selectionChanged, this, &InspectorView::refresh);
    connect(&library, &LibraryModel::marksChanged, this, &InspectorView::refreshMark);
    connect(&library, &LibraryModel::metadataChanged, this, &InspectorView::refreshMark);
    connect(&library, &LibraryModel::displayChanged, this, &InspectorView::refreshFocus);
    connect(&library, &LibraryModel::previewChanged, this, &InspectorView::refreshCapture);
    connect(&library, &LibraryModel::captureDatesChanged, this, &InspectorView::refreshCapture);
    connect(&library, &LibraryModel::visiblePhotosChanged, this, &InspectorView::refresh);
    connect(&canvas, &PreviewCanvas::focusShareChanged, this, &InspectorView::refreshFocus);
    refresh();
}

void InspectorView::refresh()
{
    const auto photo = m_library.selectedPhoto();
    // A stack is as tall as its tallest page; the hidden one must not make the empty state
    // scroll. Laying the pages out again costs a good part of a step: only when the page changes.
    if (const int page = photo ? 1 : 0; page != m_laidOutPage) {
        m_laidOutPage = page;
        m_pages->setCurrentIndex(page);
        for (int i = 0; i < m_pages->count(); ++i) {
            const auto policy = i == page ? QSizePolicy::Preferred : QSizePolicy::Ignored;
            m_pages->widget(i)->setSizePolicy(policy, policy);
        }
        m_pages->adjustSize();
    }
    if (!photo)
        return;
    m_name->setText(Paths::displayText(photo->name()));
    m_name->setToolTip(Paths::displayText(photo->url));
    const QLocale locale;
    const int count = int(m_library.selectedIDs().size());
    QString facts = locale.formattedDataSize(photo->byteSize, 1, QLocale::DataSizeTraditionalFormat);
    if (count > 1)
        facts += QStringLiteral(" · %1 fotos seleccionadas").arg(count);
    m_fileFacts->setText(facts);
    m_sessionNote->setVisible(!isNef(photo->url));
    refreshMark();
    refreshFocus();
    refreshCapture();
}

void InspectorView::refreshMark()
{
    const auto photo = m_library.selectedPhoto();
    if (!photo)
        return;
    const SessionMark mark = m_library.mark(photo->url);
    for (int i = 0; i < m_starButtons.size(); ++i) {
        auto* star = m_starButtons[i];
        const bool filled = i < mark.rating;
        const QString glyph = filled ? QStringLiteral("★") : QStringLiteral("☆");
        // A style sheet is costly to apply: only a star that changes gets one.
        if (star->text() == glyph)
            continue;
        star->setText(glyph);
        star->setStyleSheet(filled ? QStringLiteral("color: #f5c542;") : QStringLiteral("color: #6b6f76;"));
    }
    m_ratingText->setText(Appearance::stars(mark.rating));
    for (int i = 0; i < m_labelButtons.size(); ++i)
        m_labelButtons[i]->setChecked(SessionLabels::allCases[size_t(i)] == mark.label);
    m_labelText->setText(Appearance::labelTitle(mark.label));
    const QString error = m_library.metadataErrors().value(photo->url);
    m_metadataError->setText(error);
    m_metadataError->setVisible(!error.isEmpty());
}

void InspectorView::refreshFocus()
{
    const QSignalBlocker blockSwitch(m_focusSwitch);
    const QSignalBlocker blockSlider(m_sensitivity);
    m_focusSwitch->setChecked(m_library.focusEnabled());
    m_focusDefault->setChecked(!m_library.focusBlue());
    m_focusBlue->setChecked(m_library.focusBlue());
    m_sensitivity->setValue(qRound(m_library.focusSensitivity() * 100));
    const auto share = m_canvas.focusShare();
    if (m_library.focusEnabled() && share)
        m_focusShare->setText(QLocale().toString(*share, 'f', 1) + QStringLiteral("% de los píxeles de la vista previa"));
    else
        m_focusShare->setText(QString());
    m_focusShare->setVisible(m_library.focusEnabled() && share);
}

void InspectorView::refreshCapture()
{
    const auto photo = m_library.selectedPhoto();
    if (!photo)
        return;
    const auto captured = m_library.captureDates().constFind(photo->url);
    if (captured != m_library.captureDates().constEnd() && captured->isValid()) {
        m_captureTime->setText(captured->toUTC().toString(QStringLiteral("dd/MM/yyyy HH:mm:ss")));
        m_captureNote->setVisible(true);
    } else {
        m_captureTime->setText(QStringLiteral("Sin fecha de captura EXIF"));
        m_captureNote->setVisible(false);
    }
    const auto& preview = m_library.preview();
    const bool shown = preview && m_library.displayedID() == photo->url;
    m_waiting->setVisible(!shown);
    m_camera->setVisible(shown);
    m_lens->setVisible(shown);
    m_exposure->setVisible(shown);
    m_iso->setVisible(shown);
    m_dimensions->setVisible(shown);
    // Row titles follow their values.
    auto* grid = static_cast<QGridLayout*>(m_captureRows->layout());
    for (int r = 2; r < grid->rowCount(); ++r) {
        if (auto* item = grid->itemAtPosition(r, 0))
            item->widget()->setVisible(shown);
    }
    m_previewFacts->setVisible(shown);
    if (!shown)
        return;
    const PhotoMetadata& meta = preview->metadata;
    m_camera->setText(meta.camera);
    m_lens->setText(meta.lens);
    m_exposure->setText(meta.shutter + QStringLiteral(" · ") + meta.aperture);
    m_iso->setText(meta.iso);
    m_dimensions->setText(meta.width > 0 ? QStringLiteral("%1 × %2").arg(meta.width).arg(meta.height) : PhotoMetadata::placeholder());
    m_previewFacts->setText((preview->usedFallback ? QStringLiteral("Vista previa decodificada") : QStringLiteral("Vista previa incrustada"))
        + QStringLiteral(" · %1 × %2 píxeles de vista previa").arg(preview->image.width()).arg(preview->image.height()));
}

QString InspectorView::ratingText() const
{
    return m_ratingText->text();
}

QString InspectorView::captureText() const
{
    return m_captureTime->text();
}

} // namespace vantelor
