#pragma once

#include <QColor>
#include <QStyledItemDelegate>

#include "Library/SessionLabel.h"

namespace vantelor {

// Draws the navigator's rows: section titles as small capitals, folders with their colour dot, a
// vanished folder greyed, and a listing or creation error in red under the folder's name.
class NavigatorDelegate : public QStyledItemDelegate {
    Q_OBJECT

public:
    using QStyledItemDelegate::QStyledItemDelegate;

    static QColor labelColor(SessionLabel label);

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    void updateEditorGeometry(QWidget* editor, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
};

} // namespace vantelor
