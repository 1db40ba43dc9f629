#include "HeaderBar.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QSettings>
#include <QVBoxLayout>

#include "Appearance.h"
#include "HeaderResizeHandle.h"
#include "Model/LibraryModel.h"
#include "Support/Paths.h"

namespace vantelor {

HeaderBar::HeaderBar(LibraryModel& library, HeaderResizeHandle& handle, QWidget* parent)
    : QWidget(parent)
    , m_library(library)
{
    Appearance::fillBackground(this, Appearance::panel());

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(18, 8, 18, 8);
    auto* left = new QVBoxLayout;
    left->setSpacing(2);
    m_title = new QLabel(this);
    QFont titleFont = m_title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.35);
    titleFont.setBold(true);
    m_title->setFont(titleFont);
    m_status = new QLabel(this);
    Appearance::styleSecondary(m_status);
    left->addStretch();
    left->addWidget(m_title);
    left->addWidget(m_status);
    left->addStretch();
    layout->addLayout(left, 1);

    auto* right = new QVBoxLayout;
    right->setSpacing(2);
    m_metadataStatus = new QLabel(this);
    m_metadataStatus->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    Appearance::styleSecondary(m_metadataStatus);
    m_error = new QLabel(this);
    m_error->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    m_error->setWordWrap(true);
    m_error->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_error->setStyleSheet(QStringLiteral("color: %1;").arg(Appearance::warning().name()));
    right->addStretch();
    right->addWidget(m_metadataStatus);
    right->addWidget(m_error);
    right->addStretch();
    layout->addLayout(right, 1);

    const QVariant stored = QSettings().value(preferencesKey);
    setHeaderHeight(stored.isValid() ? stored.toDouble() : defaultHeight);

    connect(&handle, &HeaderResizeHandle::dragStarted, this, [this] { m_dragStart = m_height; });
    connect(&handle, &HeaderResizeHandle::dragged, this, [this](double translation) {
        if (!m_dragStart)
            m_dragStart = m_height;
        setHeaderHeight(*m_dragStart + translation);
    });
    connect(&handle, &HeaderResizeHandle::dragEnded, this, [this] { m_dragStart.reset(); });
    connect(&handle, &HeaderResizeHandle::resetRequested, this, [this] { setHeaderHeight(defaultHeight); });
    connect(&handle, &HeaderResizeHandle::stepped, this, [this](int direction) { setHeaderHeight(m_height + direction * accessibilityStep); });

    connect(&library, &LibraryModel::folderChanged, this, &HeaderBar::refresh);
    connect(&library, &LibraryModel::preparationChanged, this, &HeaderBar::refresh);
    connect(&library, &LibraryModel::metadataChanged, this, &HeaderBar::refresh);
    connect(&library, &LibraryModel::photosChanged, this, &HeaderBar::refresh);
    connect(&library, &LibraryModel::visiblePhotosChanged, this, &HeaderBar::refresh);
    refresh();
}

double HeaderBar::clampHeight(double height)
{
    return std::clamp(height, minimumHeight, maximumHeight);
}

void HeaderBar::setHeaderHeight(double height)
{
    const double clamped = clampHeight(height);
    m_height = clamped;
    setFixedHeight(qRound(clamped));
    QSettings settings;
    if (settings.value(preferencesKey).toDouble() != clamped)
        settings.setValue(preferencesKey, clamped);
}

void HeaderBar::refresh()
{
    const auto& folder = m_library.folder();
    m_title->setText(folder ? Paths::displayText(Paths::fileName(*folder)) : QStringLiteral("Vantelor"));
    m_title->setToolTip(folder ? Paths::displayText(*folder) : QString());
    QStringList parts;
    if (!m_library.status().isEmpty())
        parts << m_library.status();
    if (!m_library.preparationStatus().isEmpty())
        parts << m_library.preparationStatus();
    if (folder && !m_library.isPreparing() && !m_library.photos().isEmpty()
        && m_library.visiblePhotos().size() != m_library.photos().size())
        parts << QStringLiteral("%1 visibles").arg(m_library.visiblePhotos().size());
    m_status->setText(parts.join(QStringLiteral("  ·  ")));
    m_metadataStatus->setText(m_library.metadataStatus());
    const auto& error = m_library.folderError();
    m_error->setText(error.value_or(QString()));
    m_error->setVisible(error.has_value());
}

} // namespace vantelor
