#include "viewer/log_cell_delegate.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QFontMetricsF>
#include <QPainter>
#include <algorithm>

#include "logs/row_height.h"
#include "viewer/log_table_model.h"

namespace varnel {

namespace {

QPalette::ColorGroup colorGroup(const QStyleOptionViewItem& option) {
    if (!(option.state & QStyle::State_Enabled)) return QPalette::Disabled;
    return (option.state & QStyle::State_Active) ? QPalette::Normal : QPalette::Inactive;
}

// The palette's own selection colour, faint enough to read the text through in
// light and dark alike. A selected row already has that colour behind it, so
// there the mark is a lighter box in the selected text's colour. The row the
// user is on shows its marks more strongly.
QColor markColor(const QStyleOptionViewItem& option, bool current) {
    const bool selected = option.state & QStyle::State_Selected;
    QColor color = option.palette.color(colorGroup(option),
                                        selected ? QPalette::HighlightedText : QPalette::Highlight);
    color.setAlpha(selected ? (current ? 96 : 64) : (current ? 150 : 80));
    return color;
}

QColor textColor(const QStyleOptionViewItem& option) {
    return option.palette.color(colorGroup(option), (option.state & QStyle::State_Selected)
                                                        ? QPalette::HighlightedText
                                                        : QPalette::Text);
}

bool isCurrentRow(const QStyleOptionViewItem& option, const QModelIndex& index) {
    const auto* view = qobject_cast<const QAbstractItemView*>(option.widget);
    return view && view->currentIndex().row() == index.row();
}

}  // namespace

LogCellDelegate::LogCellDelegate(const MessageLayout& layout, int messageColumn, QObject* parent)
    : QStyledItemDelegate(parent), layout_(layout), messageColumn_(messageColumn) {}

void LogCellDelegate::initStyleOption(QStyleOptionViewItem* option,
                                      const QModelIndex& index) const {
    QStyledItemDelegate::initStyleOption(option, index);
    option->features &= ~QStyleOptionViewItem::WrapText;
}

QList<MatchRange> LogCellDelegate::marksIn(const QString& text, const QModelIndex& index) const {
    if (search_.isEmpty()) return {};
    const qsizetype fromField = index.data(LogTableModel::fieldLengthRole).toLongLong();
    return matchRanges(fromField < 0 ? QStringView(text) : QStringView(text).first(fromField),
                       search_);
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

        QList<QTextLayout::FormatRange> marks;
        const QList<MatchRange> found = marksIn(text, index);
        if (!found.isEmpty()) {
            QTextCharFormat format;
            format.setBackground(markColor(opt, isCurrentRow(option, index)));
            for (const MatchRange& range : found)
                marks.append({int(range.start), int(range.length), format});
        }
        const double width = RowHeight::wrapBoxWidth(opt.rect.width());
        painter->save();
        painter->setPen(textColor(opt));
        layout_.draw(painter, QRectF(opt.rect).adjusted(3, 0, 0, 0), width, text, marks);
        painter->restore();
    } else if (QStyleOptionViewItem opt(option); !search_.isEmpty()) {
        initStyleOption(&opt, index);
        const QList<MatchRange> marks = marksIn(opt.text, index);
        if (marks.isEmpty())
            style->drawControl(QStyle::CE_ItemViewItem, &opt, painter, widget);
        else
            paintMarkedLine(painter, opt, marks, isCurrentRow(option, index));
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

// The style draws the cell without its text, then the marks go down and the
// text, elided as the style would, on top of them.
void LogCellDelegate::paintMarkedLine(QPainter* painter, QStyleOptionViewItem& option,
                                      const QList<MatchRange>& marks, bool current) const {
    const QWidget* widget = option.widget;
    QStyle* style = widget ? widget->style() : QApplication::style();
    const QString text = option.text;
    const QRect textRect = style->subElementRect(QStyle::SE_ItemViewItemText, &option, widget);
    option.text.clear();
    style->drawControl(QStyle::CE_ItemViewItem, &option, painter, widget);

    const int margin = style->pixelMetric(QStyle::PM_FocusFrameHMargin, nullptr, widget) + 1;
    const QRect box = textRect.adjusted(margin, 0, -margin, 0);
    const QFontMetricsF metrics(option.font);
    const QString shown = metrics.elidedText(text, option.textElideMode, box.width());
    // An elided line keeps a head and an ellipsis: nothing past the head is marked.
    const qsizetype kept = shown == text ? text.size() : std::max<qsizetype>(shown.size() - 1, 0);
    const double top = box.top() + (box.height() - metrics.height()) / 2;

    painter->save();
    painter->setClipRect(option.rect, Qt::IntersectClip);
    const QColor fill = markColor(option, current);
    // Widths piece by piece, so that a long cell with many marks costs one
    // pass over what is visible.
    double x = box.left();
    qsizetype measured = 0;
    for (const MatchRange& mark : marks) {
        if (mark.start >= kept) break;
        const qsizetype end = std::min(mark.start + mark.length, kept);
        x += metrics.horizontalAdvance(text.mid(measured, mark.start - measured));
        const double width = metrics.horizontalAdvance(text.mid(mark.start, end - mark.start));
        painter->fillRect(QRectF(x, top, width, metrics.height()), fill);
        x += width;
        measured = end;
    }
    painter->setFont(option.font);
    painter->setPen(textColor(option));
    painter->drawText(box, int(option.displayAlignment) | Qt::TextSingleLine, shown);
    painter->restore();
}

}  // namespace varnel
