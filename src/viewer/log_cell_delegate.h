#pragma once

#include <QList>
#include <QString>
#include <QStyledItemDelegate>

#include "logs/row_search.h"
#include "viewer/message_layout.h"

namespace varnel {

// Draws the log table's cells: every column on one line with a tail ellipsis,
// except the message column while wrapping, which takes as many lines as its
// row is tall. Where the search is found, the text gets a mark behind it.
// Also draws the horizontal grid line under each row.
class LogCellDelegate : public QStyledItemDelegate {
public:
    LogCellDelegate(const MessageLayout& layout, int messageColumn, QObject* parent = nullptr);

    void setWrap(bool wrap) { wrap_ = wrap; }
    bool wrap() const { return wrap_; }
    // What to mark; nothing when empty.
    void setSearch(const QString& search) { search_ = search; }

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;

protected:
    void initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const override;

private:
    // Where the search is found in a cell's text, within what came from the row.
    QList<MatchRange> marksIn(const QString& text, const QModelIndex& index) const;
    void paintMarkedLine(QPainter* painter, QStyleOptionViewItem& option,
                         const QList<MatchRange>& marks, bool current) const;

    const MessageLayout& layout_;
    int messageColumn_;
    bool wrap_ = false;
    QString search_;
};

}  // namespace varnel
