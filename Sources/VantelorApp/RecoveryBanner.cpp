#include "RecoveryBanner.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "Appearance.h"
#include "Model/LibraryModel.h"

namespace vantelor {

RecoveryBanner::RecoveryBanner(LibraryModel& library, QWidget* parent)
    : QFrame(parent)
    , m_library(library)
{
    setObjectName(QStringLiteral("recoveryBanner"));
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(16, 8, 16, 8);
    layout->setSpacing(14);
    auto* texts = new QVBoxLayout;
    texts->setSpacing(2);
    m_title = new QLabel(this);
    QFont bold = m_title->font();
    bold.setBold(true);
    m_title->setFont(bold);
    m_text = new QLabel(this);
    m_text->setWordWrap(true);
    m_text->setTextInteractionFlags(Qt::TextSelectableByMouse);
    texts->addWidget(m_title);
    texts->addWidget(m_text);
    layout->addLayout(texts, 1);

    m_repair = new QPushButton(this);
    m_repair->setFocusPolicy(Qt::NoFocus);
    m_repair->setToolTip(QStringLiteral("Completa o deshace cada transferencia según las huellas de sus archivos. "
                                        "Nunca sobrescribe nada ni borra la única copia verificada."));
    connect(m_repair, &QPushButton::clicked, this, [this] { m_library.recoverTransfers(); });
    m_close = new QPushButton(QStringLiteral("Cerrar"), this);
    m_close->setFocusPolicy(Qt::NoFocus);
    connect(m_close, &QPushButton::clicked, this, [this] { m_library.dismissRecoveryOutcome(); });
    layout->addWidget(m_repair, 0, Qt::AlignVCenter);
    layout->addWidget(m_close, 0, Qt::AlignVCenter);

    connect(&library, &LibraryModel::recoveryChanged, this, &RecoveryBanner::refresh);
    connect(&library, &LibraryModel::transferChanged, this, &RecoveryBanner::refresh);
    refresh();
}

void RecoveryBanner::refresh()
{
    const QString& finding = m_library.recoveryFinding();
    const QString& outcome = m_library.recoveryOutcome();
    const bool pending = !finding.isEmpty() || m_library.isRecovering();
    if (pending) {
        m_title->setText(QStringLiteral("Transferencia interrumpida en esta carpeta"));
        m_text->setText(finding);
    } else {
        m_title->setText(QStringLiteral("Transferencias interrumpidas revisadas"));
        m_text->setText(outcome);
    }
    // Amber while something waits to be put right; the calm panel colour once it was.
    setStyleSheet(QStringLiteral("#recoveryBanner { background: %1; border-bottom: 1px solid #0e0f11; }")
                      .arg(pending ? QStringLiteral("#3a3020") : Appearance::panel().name()));
    m_title->setStyleSheet(QStringLiteral("color: %1;").arg((pending ? Appearance::warning() : Appearance::accent()).name()));
    m_repair->setText(m_library.isRecovering() ? QStringLiteral("Reparando…") : QStringLiteral("Reparar"));
    m_repair->setVisible(pending);
    m_repair->setEnabled(!m_library.transferBusy());
    m_close->setVisible(!pending);
    setVisible(pending || !outcome.isEmpty());
}

} // namespace vantelor
