#include "NavigatorDelegate.h"

#include <QApplication>
#include <QPainter>

#include "Model/NavigatorModel.h"

namespace vantelor {

namespace {

constexpr int dotSize = 9;
constexpr int padding = 6;

NavigatorModel::Kind kindOf(const QModelIndex& index)
{
    return NavigatorModel::Kind(index.data(NavigatorModel::KindRole).toInt());
}

QFont smaller(QFont font, double factor)
{
    font.setPointSizeF(font.pointSizeF() * factor);
    return font;
}

} // namespace

QColor NavigatorDelegate::labelColor(SessionLabel label)
{
    switch (label) {
    case SessionLabel::none: return {};
    case SessionLabel::red: return QColor(0xe5, 0x48, 0x4d);
    case SessionLabel::yellow: return QColor(0xf0, 0xc0, 0x00);
    case SessionLabel::green: return QColor(0x3f, 0xb9, 0x50);
    case SessionLabel::blue: return QColor(0x3d, 0x8b, 0xfd);
    case SessionLabel::purple: return QColor(0xa3, 0x71, 0xf7);
    }
    return {};
}

QSize NavigatorDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    QSize size = QStyledItemDelegate::sizeHint(option, index);
    const int line = option.fontMetrics.height();
    if (kindOf(index) == NavigatorModel::Kind::section)
        return {size.width(), line + 14};
    size.setHeight(std::max(size.height(), line + 8));
    if (!index.data(NavigatorModel::ErrorRole).toString().isEmpty())
        size.setHeight(size.height() + line);
    return size;
}

void NavigatorDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    QStyleOptionViewItem opt = option;
    initStyleOption(&opt, index);
    const QPalette& palette = opt.palette;
    painter->save();

    if (kindOf(index) == NavigatorModel::Kind::section) {
        painter->setFont(smaller(opt.font, 0.8));
        painter->setPen(palette.color(QPalette::Disabled, QPalette::Text));
        QFont font = painter->font();
        font.setBold(true);
        font.setLetterSpacing(QFont::PercentageSpacing, 108);
        painter->setFont(font);
        painter->drawText(opt.rect.adjusted(2, 6, 0, 0), Qt::AlignLeft | Qt::AlignVCenter, opt.text.toUpper());
        painter->restore();
        return;
    }

    // Background and selection as the style draws them, then our own content.
    const QString text = opt.text;
    opt.text.clear();
    opt.icon = QIcon();
    QStyle* style = opt.widget ? opt.widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &opt, painter, opt.widget);

    const bool missing = index.data(NavigatorModel::MissingRole).toBool();
    const QString error = index.data(NavigatorModel::ErrorRole).toString();
    const int line = opt.fontMetrics.height();
    QRect row = opt.rect.adjusted(2, 0, -padding, 0);
    QRect first(row.left(), row.top(), row.width(), error.isEmpty() ? row.height() : row.height() - line);

    const QIcon folderIcon = style->standardIcon(QStyle::SP_DirIcon);
    const int iconSize = 16;
    const QRect iconRect(first.left(), first.center().y() - iconSize / 2, iconSize, iconSize);
    folderIcon.paint(painter, iconRect, Qt::AlignCenter, missing ? QIcon::Disabled : QIcon::Normal);

    const auto label = SessionLabel(index.data(NavigatorModel::LabelRole).toInt());
    int right = first.right();
    if (label != SessionLabel::none) {
        const QRect dot(right - dotSize, first.center().y() - dotSize / 2, dotSize, dotSize);
        painter->setRenderHint(QPainter::Antialiasing);
        painter->setPen(Qt::NoPen);
        painter->setBrush(labelColor(label));
        painter->drawEllipse(dot);
        right = dot.left() - padding;
    }

    const bool selected = opt.state & QStyle::State_Selected;
    QColor textColor = palette.color(selected ? QPalette::HighlightedText : QPalette::Text);
    if (missing)
        textColor = palette.color(QPalette::Disabled, QPalette::Text);
    painter->setPen(textColor);
    painter->setFont(opt.font);
    const QRect textRect(iconRect.right() + padding, first.top(), right - iconRect.right() - padding, first.height());
    painter->drawText(textRect, Qt::AlignLeft | Qt::AlignVCenter,
                      opt.fontMetrics.elidedText(text, Qt::ElideMiddle, textRect.width()));

    if (!error.isEmpty()) {
        painter->setPen(selected ? palette.color(QPalette::HighlightedText) : QColor(0xff, 0x7b, 0x72));
        painter->setFont(smaller(opt.font, 0.9));
        const QRect errorRect(textRect.left(), first.bottom() - 2, row.right() - textRect.left(), line);
        painter->drawText(errorRect, Qt::AlignLeft | Qt::AlignVCenter,
                          painter->fontMetrics().elidedText(error, Qt::ElideRight, errorRect.width()));
    }
    painter->restore();
}

void NavigatorDelegate::updateEditorGeometry(QWidget* editor, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    // The editor covers the name only: the error of a refused name stays readable under it.
    QRect rect = option.rect.adjusted(24, 1, -2, -1);
    if (!index.data(NavigatorModel::ErrorRole).toString().isEmpty())
        rect.setHeight(rect.height() - option.fontMetrics.height());
    editor->setGeometry(rect);
}

} // namespace vantelor
