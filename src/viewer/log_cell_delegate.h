#pragma once

#include <QStyledItemDelegate>

#include "viewer/message_layout.h"

namespace varnel {

// Draws the log table's cells: every column on one line with a tail ellipsis,
// except the message column while wrapping, which takes as many lines as its
// row is tall. Also draws the horizontal grid line under each row.
class LogCellDelegate : public QStyledItemDelegate {
public:
    LogCellDelegate(const MessageLayout& layout, int messageColumn, QObject* parent = nullptr);

    void setWrap(bool wrap) { wrap_ = wrap; }
    bool wrap() const { return wrap_; }

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;

protected:
    void initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const override;

private:
    const MessageLayout& layout_;
    int messageColumn_;
    bool wrap_ = false;
};

}  // namespace varnel
