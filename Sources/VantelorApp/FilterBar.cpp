#include "FilterBar.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDateTimeEdit>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPixmap>
#include <QPushButton>
#include <QScreen>
#include <QTimeZone>
#include <QToolButton>
#include <QVBoxLayout>

#include "Appearance.h"
#include "KeyboardInput.h"
#include "Model/LibraryModel.h"
#include "Model/PhotoOrder.h"

namespace vantelor {

namespace {

QIcon dot(QColor colour)
{
    QPixmap pixmap(14, 14);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(colour);
    painter.drawEllipse(QRectF(1, 1, 12, 12));
    return QIcon(pixmap);
}

QToolButton* barButton(const QString& text, const QString& help, QWidget* parent)
{
    auto* button = new QToolButton(parent);
    button->setText(text);
    button->setToolTip(help);
    button->setAccessibleName(help);
    button->setFocusPolicy(Qt::NoFocus);
    button->setToolButtonStyle(Qt::ToolButtonTextOnly);
    button->setMinimumHeight(28);
    return button;
}

QFrame* separator(QWidget* parent)
{
    auto* line = new QFrame(parent);
    line->setFrameShape(QFrame::VLine);
    line->setFixedWidth(1);
    line->setStyleSheet(QStringLiteral("background: #3a3d42;"));
    line->setFixedHeight(20);
    return line;
}

} // namespace

FilterBar::FilterBar(LibraryModel& library, QWidget* parent)
    : QWidget(parent)
    , m_library(library)
{
    Appearance::fillBackground(this, Appearance::panel());

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(12, 6, 12, 6);
    layout->setSpacing(6);

    m_order = new QComboBox(this);
    m_order->setFocusPolicy(Qt::NoFocus);
    m_order->setAccessibleName(QStringLiteral("Orden"));
    for (PhotoOrder order : PhotoOrders::allCases)
        m_order->addItem(PhotoOrders::title(order), int(order));
    connect(m_order, &QComboBox::activated, this, [this](int index) {
        m_library.setPhotoOrder(PhotoOrder(m_order->itemData(index).toInt()));
    });
    layout->addWidget(m_order);

    m_reverse = barButton(QStringLiteral("Invertir orden"), QStringLiteral("Invertir orden de fotos"), this);
    m_reverse->setCheckable(true);
    connect(m_reverse, &QToolButton::clicked, this, [this](bool on) { m_library.setDescending(on); });
    layout->addWidget(m_reverse);

    m_captureButton = barButton(QStringLiteral("Filtrar por captura"), QStringLiteral("Filtrar por captura"), this);
    m_captureButton->setCheckable(true);
    connect(m_captureButton, &QToolButton::clicked, this, [this] { showCapturePopover(); });
    layout->addWidget(m_captureButton);
    layout->addWidget(separator(this));

    m_rating = new QComboBox(this);
    m_rating->setFocusPolicy(Qt::NoFocus);
    m_rating->setAccessibleName(QStringLiteral("Valoración mínima"));
    m_rating->setToolTip(QStringLiteral("Valoración mínima"));
    m_rating->addItem(QStringLiteral("Todas las estrellas"), 0);
    for (int i = 1; i <= 5; ++i)
        m_rating->addItem(QString(i, QChar(0x2605)) + (i < 5 ? QStringLiteral(" o más") : QString()), i);
    connect(m_rating, &QComboBox::activated, this, [this](int index) { m_library.setMinimumRating(m_rating->itemData(index).toInt()); });
    layout->addWidget(m_rating);

    m_colour = new QComboBox(this);
    m_colour->setFocusPolicy(Qt::NoFocus);
    m_colour->setAccessibleName(QStringLiteral("Filtrar por color"));
    m_colour->addItem(QStringLiteral("Todos los colores"), -1);
    for (SessionLabel label : SessionLabels::allCases)
        m_colour->addItem(dot(Appearance::labelColor(label)), Appearance::labelTitle(label), int(label));
    connect(m_colour, &QComboBox::activated, this, [this](int index) {
        const int value = m_colour->itemData(index).toInt();
        m_library.setLabelFilter(value < 0 ? std::nullopt : std::optional<SessionLabel>(SessionLabel(value)));
    });
    layout->addWidget(m_colour);

    m_search = new QLineEdit(this);
    m_search->setPlaceholderText(QStringLiteral("Buscar por nombre"));
    m_search->setAccessibleName(QStringLiteral("Filtrar por nombre"));
    m_search->setClearButtonEnabled(true);
    m_search->setMinimumWidth(150);
    m_search->setMaximumWidth(240);
    connect(m_search, &QLineEdit::textEdited, this, [this](const QString& text) { m_library.setSearch(text); });
    // Enter or Esc ends the search: the arrows step photos again.
    connect(m_search, &QLineEdit::returnPressed, this, &FilterBar::returnKeys);
    m_search->installEventFilter(this);
    connect(m_search, &QLineEdit::textChanged, this, [this](const QString& text) {
        // The clear button changes the text without an edit.
        if (text.isEmpty() && !m_library.search().isEmpty())
            m_library.setSearch(text);
    });
    layout->addWidget(m_search, 1);

    auto* selectAll = barButton(QStringLiteral("Seleccionar todo"), QStringLiteral("Seleccionar todas las fotos filtradas"), this);
    connect(selectAll, &QToolButton::clicked, this, [this] { m_library.selectAll(); });
    layout->addWidget(selectAll);
    layout->addWidget(separator(this));

    const QString autoSaveText = QStringLiteral("Guardar automáticamente estrellas y colores en XMP junto a NEF");
    m_autoSave = new QCheckBox(autoSaveText, this);
    m_autoSave->setToolTip(autoSaveText);
    m_autoSave->setAccessibleName(autoSaveText);
    m_autoSave->setFocusPolicy(Qt::NoFocus);
    connect(m_autoSave, &QCheckBox::clicked, this, [this](bool on) { m_library.setAutoSave(on); });
    layout->addWidget(m_autoSave);

    m_metadataButton = barButton(QStringLiteral("XMP"), QStringLiteral("Estado de metadatos XMP"), this);
    connect(m_metadataButton, &QToolButton::clicked, this, [this] { showMetadataPopover(); });
    layout->addWidget(m_metadataButton);
    layout->addWidget(separator(this));

    m_sheet = barButton(QStringLiteral("Hoja de contactos"), QStringLiteral("Vista previa / hoja de contactos · G"), this);
    m_sheet->setCheckable(true);
    connect(m_sheet, &QToolButton::clicked, this, [this](bool on) { m_library.setShowSheet(on); });
    layout->addWidget(m_sheet);

    auto* settings = barButton(QStringLiteral("Ajustes de teclado y ratón"), QStringLiteral("Ajustes de teclado y ratón"), this);
    connect(settings, &QToolButton::clicked, this, &FilterBar::settingsRequested);
    layout->addWidget(settings);

    m_sheet->setText(m_sheet->toolTip());
    m_titles = {{m_autoSave, autoSaveText, QStringLiteral("Autoguardar XMP")},
                {m_sheet, m_sheet->text(), QStringLiteral("Hoja de contactos · G")},
                {settings, settings->text(), QStringLiteral("Atajos…")}};

    connect(&library, &LibraryModel::filterChanged, this, &FilterBar::refreshFilters);
    connect(&library, &LibraryModel::metadataChanged, this, &FilterBar::refreshMetadata);
    connect(&library, &LibraryModel::displayChanged, this, &FilterBar::refreshDisplay);
    refreshFilters();
    refreshMetadata();
    refreshDisplay();
    fitTitles();
}

void FilterBar::refreshFilters()
{
    m_order->setCurrentIndex(m_order->findData(int(m_library.photoOrder())));
    m_reverse->setChecked(m_library.descending());
    m_rating->setCurrentIndex(std::max(0, m_rating->findData(m_library.minimumRating())));
    const auto& label = m_library.labelFilter();
    m_colour->setCurrentIndex(std::max(0, m_colour->findData(label ? int(*label) : -1)));
    if (m_search->text() != m_library.search())
        m_search->setText(m_library.search());
    m_captureButton->setChecked(m_library.timeEnabled());
    if (m_timeSwitch) {
        const QSignalBlocker a(m_timeSwitch), b(m_timeFrom), c(m_timeTo);
        m_timeSwitch->setChecked(m_library.timeEnabled());
        if (m_library.timeFrom().isValid())
            m_timeFrom->setDateTime(m_library.timeFrom());
        if (m_library.timeTo().isValid())
            m_timeTo->setDateTime(m_library.timeTo());
        m_invalid->setVisible(intervalInvalid());
    }
}

QList<bool> FilterBar::fullTitles() const
{
    QList<bool> full;
    for (const Title& title : m_titles)
        full.append(title.button->text() == title.full);
    return full;
}

void FilterBar::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    fitTitles();
}

void FilterBar::fitTitles()
{
    // What each full title adds to the bar over its short one, and the bar's least width with
    // every title short: shortened one by one until the rest fit, the search field keeping room.
    QList<int> extra;
    int shown = 0;
    for (const Title& title : std::as_const(m_titles)) {
        const QFontMetrics metrics(title.button->font());
        extra.append(metrics.horizontalAdvance(title.full) - metrics.horizontalAdvance(title.brief));
        if (title.button->text() == title.full)
            shown += extra.last();
    }
    const int shortest = layout()->minimumSize().width() - shown;
    const int searchRoom = 80;
    int needed = shortest + searchRoom;
    for (int e : std::as_const(extra))
        needed += e;
    for (qsizetype n = 0; n < m_titles.size(); ++n) {
        const bool full = needed <= width();
        needed -= full ? 0 : extra[n];
        m_titles[n].button->setText(full ? m_titles[n].full : m_titles[n].brief);
    }
    setMinimumWidth(shortest);
}

void FilterBar::returnKeys()
{
    if (KeyboardInput* input = KeyboardInput::of(this))
        input->prepareNavigation();
}

bool FilterBar::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_search && event->type() == QEvent::KeyPress && static_cast<QKeyEvent*>(event)->key() == Qt::Key_Escape)
        returnKeys();
    return QWidget::eventFilter(watched, event);
}

bool FilterBar::intervalInvalid() const
{
    const QDateTime& from = m_library.timeFrom();
    const QDateTime& to = m_library.timeTo();
    return from.isValid() && to.isValid() && from > to;
}

void FilterBar::refreshMetadata()
{
    m_autoSave->setChecked(m_library.autoSave());
    const int pending = int(m_library.dirty().size());
    QString text = QStringLiteral("XMP");
    if (m_library.conflictURL())
        text += QStringLiteral(" ⚠");
    else if (m_library.isSaving())
        text += QStringLiteral(" …");
    else if (pending > 0)
        text += QStringLiteral(" • %1").arg(pending);
    m_metadataButton->setText(text);
    if (m_metadataPopover) {
        m_metadataText->setText(m_library.metadataStatus().isEmpty() ? QStringLiteral("Sin cambios XMP en esta sesión.") : m_library.metadataStatus());
        m_pendingText->setText(pending == 1 ? QStringLiteral("1 foto NEF con cambios sin guardar")
                                            : QStringLiteral("%1 fotos NEF con cambios sin guardar").arg(pending));
        m_popoverAutoSave->setChecked(m_library.autoSave());
        m_saveButton->setEnabled(pending > 0 && !m_library.isSaving());
    }
}

void FilterBar::refreshDisplay()
{
    m_sheet->setChecked(m_library.showSheet());
}

QFrame* FilterBar::makePopover()
{
    auto* popover = new QFrame(this, Qt::Popup);
    popover->setFrameShape(QFrame::StyledPanel);
    Appearance::fillBackground(popover, QColor(0x2c, 0x2f, 0x34));
    return popover;
}

void FilterBar::place(QFrame* popover, QWidget* anchor)
{
    popover->adjustSize();
    QPoint at = anchor->mapToGlobal(QPoint(0, anchor->height() + 4));
    if (const QScreen* screen = anchor->screen()) {
        const QRect area = screen->availableGeometry();
        at.setX(std::min(at.x(), area.right() - popover->width()));
    }
    popover->move(at);
    popover->show();
}

void FilterBar::showCapturePopover()
{
    m_captureButton->setChecked(m_library.timeEnabled());
    if (!m_capturePopover) {
        m_capturePopover = makePopover();
        auto* layout = new QGridLayout(m_capturePopover);
        layout->setContentsMargins(16, 14, 16, 14);
        layout->setVerticalSpacing(8);
        auto* title = new QLabel(QStringLiteral("Hora de la cámara · EXIF"), m_capturePopover);
        Appearance::styleSectionTitle(title);
        layout->addWidget(title, 0, 0, 1, 2);
        m_timeSwitch = new QCheckBox(QStringLiteral("Filtrar por captura"), m_capturePopover);
        layout->addWidget(m_timeSwitch, 1, 0, 1, 2);
        auto makeEdit = [this] {
            auto* edit = new QDateTimeEdit(m_capturePopover);
            edit->setDisplayFormat(QStringLiteral("dd/MM/yyyy HH:mm:ss"));
            edit->setCalendarPopup(true);
            edit->setTimeSpec(Qt::UTC);
            return edit;
        };
        m_timeFrom = makeEdit();
        m_timeTo = makeEdit();
        layout->addWidget(new QLabel(QStringLiteral("Desde"), m_capturePopover), 2, 0);
        layout->addWidget(m_timeFrom, 2, 1);
        layout->addWidget(new QLabel(QStringLiteral("Hasta"), m_capturePopover), 3, 0);
        layout->addWidget(m_timeTo, 3, 1);
        m_invalid = new QLabel(QStringLiteral("Intervalo no válido"), m_capturePopover);
        m_invalid->setStyleSheet(QStringLiteral("color: %1;").arg(Appearance::warning().name()));
        layout->addWidget(m_invalid, 4, 0, 1, 2);

        // An interval never set starts as the span of the folder's capture times.
        if (!m_library.timeFrom().isValid() || !m_library.timeTo().isValid()) {
            QDateTime first, last;
            for (const QDateTime& date : m_library.captureDates()) {
                if (!first.isValid() || date < first)
                    first = date;
                if (!last.isValid() || date > last)
                    last = date;
            }
            const QDateTime now = QDateTime::currentDateTimeUtc();
            m_timeFrom->setDateTime(first.isValid() ? first : now.addDays(-1));
            m_timeTo->setDateTime(last.isValid() ? last : now);
        }
        connect(m_timeSwitch, &QCheckBox::toggled, this, [this](bool on) {
            if (!m_library.timeFrom().isValid())
                m_library.setTimeFrom(m_timeFrom->dateTime());
            if (!m_library.timeTo().isValid())
                m_library.setTimeTo(m_timeTo->dateTime());
            m_library.setTimeEnabled(on);
        });
        connect(m_timeFrom, &QDateTimeEdit::dateTimeChanged, this, [this](const QDateTime& at) { m_library.setTimeFrom(at); });
        connect(m_timeTo, &QDateTimeEdit::dateTimeChanged, this, [this](const QDateTime& at) { m_library.setTimeTo(at); });
        refreshFilters();
    }
    place(m_capturePopover, m_captureButton);
}

void FilterBar::showMetadataPopover()
{
    if (!m_metadataPopover) {
        m_metadataPopover = makePopover();
        auto* layout = new QVBoxLayout(m_metadataPopover);
        layout->setContentsMargins(16, 14, 16, 14);
        layout->setSpacing(8);
        auto* title = new QLabel(QStringLiteral("Estado de metadatos XMP"), m_metadataPopover);
        Appearance::styleSectionTitle(title);
        layout->addWidget(title);
        m_metadataText = new QLabel(m_metadataPopover);
        m_metadataText->setWordWrap(true);
        m_metadataText->setMinimumWidth(320);
        layout->addWidget(m_metadataText);
        m_pendingText = new QLabel(m_metadataPopover);
        Appearance::styleSecondary(m_pendingText);
        layout->addWidget(m_pendingText);
        m_popoverAutoSave = new QCheckBox(QStringLiteral("Guardar automáticamente estrellas y colores en XMP junto a NEF"), m_metadataPopover);
        connect(m_popoverAutoSave, &QCheckBox::clicked, this, [this](bool on) { m_library.setAutoSave(on); });
        layout->addWidget(m_popoverAutoSave);
        m_saveButton = new QPushButton(QStringLiteral("Guardar XMP"), m_metadataPopover);
        connect(m_saveButton, &QPushButton::clicked, this, [this] { m_library.savePending(); });
        layout->addWidget(m_saveButton, 0, Qt::AlignRight);
        refreshMetadata();
    }
    place(m_metadataPopover, m_metadataButton);
}

} // namespace vantelor
