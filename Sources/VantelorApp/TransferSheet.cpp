#include "TransferSheet.h"

#include <QDialogButtonBox>
#include <QHeaderView>
#include <QLabel>
#include <QLocale>
#include <QMap>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

#include "Appearance.h"
#include "Library/PhotoItem.h"
#include "Support/Paths.h"

namespace vantelor {

namespace {

QString sizeText(qint64 bytes)
{
    return QLocale().formattedDataSize(bytes, 1, QLocale::DataSizeTraditionalFormat);
}

QString files(qsizetype count)
{
    return count == 1 ? QStringLiteral("1 archivo") : QStringLiteral("%1 archivos").arg(count);
}

} // namespace

TransferSheet::TransferSheet(const TransferPlan& plan, QWidget* parent) : QDialog(parent)
{
    const bool copy = plan.kind == TransferKind::copy;
    setWindowTitle(copy ? QStringLiteral("Copiar selección…") : QStringLiteral("Mover selección…"));
    setWindowModality(Qt::WindowModal);
    resize(640, 520);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 18, 20, 16);
    layout->setSpacing(10);
    auto* title = new QLabel(copy ? QStringLiteral("Revisa las fotos que se copiarán") : QStringLiteral("Revisa las fotos que se moverán"), this);
    QFont titleFont = title->font();
    titleFont.setBold(true);
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.2);
    title->setFont(titleFont);
    layout->addWidget(title);

    // Files that share a folder and a base name travel together; the photo heads its group.
    struct Group {
        QString head;
        QList<TransferItem> items;
        qint64 bytes = 0;
    };
    QMap<QString, Group> groups;
    for (const TransferItem& item : plan.items) {
        const QString key = Paths::join(Paths::parent(item.source), Paths::baseName(item.source)).toCaseFolded();
        Group& group = groups[key];
        group.items.append(item);
        group.bytes += item.bytes;
        if (group.head.isEmpty() || (PhotoItem::hasSupportedExtension(item.source) && !PhotoItem::hasSupportedExtension(group.head)))
            group.head = item.source;
    }

    m_list = new QTreeWidget(this);
    m_list->setColumnCount(2);
    m_list->setHeaderLabels({QStringLiteral("Foto y archivos asociados"), QStringLiteral("Tamaño")});
    m_list->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    m_list->header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    m_list->header()->setStretchLastSection(false);
    m_list->setRootIsDecorated(true);
    m_list->setUniformRowHeights(true);
    m_list->setSelectionMode(QAbstractItemView::NoSelection);
    m_list->setFocusPolicy(Qt::NoFocus);
    m_list->setStyleSheet(QStringLiteral("QTreeWidget::item { padding: 3px 2px; }"));
    for (const Group& group : groups) {
        auto* row = new QTreeWidgetItem(m_list);
        row->setText(0, Paths::displayText(Paths::fileName(group.head)) + QStringLiteral("  ·  ") + files(group.items.size()));
        row->setText(1, sizeText(group.bytes));
        row->setTextAlignment(1, Qt::AlignRight | Qt::AlignVCenter);
        QFont bold = row->font(0);
        bold.setBold(true);
        row->setFont(0, bold);
        for (const TransferItem& item : group.items) {
            auto* child = new QTreeWidgetItem(row);
            child->setText(0, Paths::displayText(Paths::fileName(item.source)));
            child->setText(1, sizeText(item.bytes));
            child->setTextAlignment(1, Qt::AlignRight | Qt::AlignVCenter);
        }
        row->setExpanded(true);
    }
    layout->addWidget(m_list, 1);

    m_total = QStringLiteral("%1 · %2 · %3").arg(groups.size() == 1 ? QStringLiteral("1 foto") : QStringLiteral("%1 fotos").arg(groups.size()),
        files(plan.items.size()), sizeText(plan.totalBytes()));
    auto* total = new QLabel(QStringLiteral("Total: ") + m_total, this);
    layout->addWidget(total);
    auto* destination = new QLabel(QStringLiteral("Destino: ") + Paths::displayText(plan.destination), this);
    destination->setWordWrap(true);
    destination->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(destination);
    auto* note = new QLabel(copy ? QStringLiteral("Cada copia se verifica por SHA-256. No se sobrescribe nada.")
                                 : QStringLiteral("Cada archivo se verifica por SHA-256 antes de retirar el original. No se sobrescribe nada."),
        this);
    note->setWordWrap(true);
    Appearance::styleSecondary(note);
    layout->addWidget(note);

    auto* buttons = new QDialogButtonBox(this);
    auto* confirm = buttons->addButton(copy ? QStringLiteral("Copiar %1").arg(files(plan.items.size()))
                                            : QStringLiteral("Mover %1").arg(files(plan.items.size())),
        QDialogButtonBox::AcceptRole);
    confirm->setDefault(true);
    buttons->addButton(QStringLiteral("Cancelar"), QDialogButtonBox::RejectRole);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);
}

} // namespace vantelor
