#include "viewer/log_cell_delegate.h"

#include <QApplication>
#include <QPainter>

#include "logs/row_height.h"
#include "viewer/log_table_model.h"

namespace varnel {

LogCellDelegate::LogCellDelegate(const MessageLayout& layout, int messageColumn, QObject* parent)
    : QStyledItemDelegate(parent), layout_(layout), messageColumn_(messageColumn) {}

void LogCellDelegate::initStyleOption(QStyleOptionViewItem* option,
                                      const QModelIndex& index) const {
    QStyledItemDelegate::initStyleOption(option, index);
    option->features &= ~QStyleOptionViewItem::WrapText;
}

void LogCellDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                            const QModelIndex& index) const {
    const QWidget* widget = option.widget;
    QStyle* style = widget ? widget->style() : QApplication::style();

    if (wrap_ && index.column() == messageColumn_) {
        QStyleOptionViewItem opt(option);
        QStyledItemDelegate::initStyleOption(&opt, index);
        const QString text = index.data(LogTableModel::messageLinesRole).toString();
        opt.text.clear();
        style->drawControl(QStyle::CE_ItemViewItem, &opt, painter, widget);

        const QPalette::ColorGroup group = !(opt.state & QStyle::State_Enabled) ? QPalette::Disabled
                                           : (opt.state & QStyle::State_Active)
                                               ? QPalette::Normal
                                               : QPalette::Inactive;
        const QColor pen = (opt.state & QStyle::State_Selected)
                               ? opt.palette.color(group, QPalette::HighlightedText)
                               : opt.palette.color(group, QPalette::Text);
        const double width = RowHeight::wrapBoxWidth(opt.rect.width());
        painter->save();
        painter->setPen(pen);
        layout_.draw(painter, QRectF(opt.rect).adjusted(3, 0, 0, 0), width, text);
        painter->restore();
    } else {
        QStyledItemDelegate::paint(painter, option, index);
    }

    QStyleOptionViewItem gridOption(option);
    const QColor grid = QColor::fromRgba(
        QRgb(style->styleHint(QStyle::SH_Table_GridLineColor, &gridOption, widget)));
    painter->save();
    painter->setPen(grid);
    painter->drawLine(option.rect.bottomLeft(), option.rect.bottomRight());
    painter->restore();
}

}  // namespace varnel
