#include "viewer/row_detail_pane.h"

#include <QTextOption>
#include <algorithm>

#include "logs/row_details.h"
#include "viewer/log_table_model.h"

namespace varnel {

namespace {

// Beyond this, a line without break points would be wrapped at word
// boundaries in time that grows with the square of its length.
constexpr qsizetype wordWrapLineLimit = 5000;

qsizetype longestLine(QStringView text) {
    qsizetype longest = 0;
    for (qsizetype at = 0; at <= text.size();) {
        qsizetype feed = text.indexOf(u'\n', at);
        if (feed < 0) feed = text.size();
        longest = std::max(longest, feed - at);
        at = feed + 1;
    }
    return longest;
}

}  // namespace

RowDetailPane::RowDetailPane(QWidget* parent) : QPlainTextEdit(parent) {
    setReadOnly(true);
    setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    setFont(logCellFont());
    setPlaceholderText(QStringLiteral("Select a row to see every field of its line."));
}

void RowDetailPane::showRow(const std::optional<LogRowView>& row, const QString& log) {
    if (!row) {
        if (!raw_) return;
        raw_.reset();
        clear();
        return;
    }
    if (raw_ && row->raw == QUtf8StringView(*raw_) && log == log_) return;
    raw_ = QByteArray(row->raw.data(), row->raw.size());
    log_ = log;
    const QString text = rowDetailText(*row, log);
    setWordWrapMode(longestLine(text) > wordWrapLineLimit
                        ? QTextOption::WrapAnywhere
                        : QTextOption::WrapAtWordBoundaryOrAnywhere);
    setPlainText(text);
}

}  // namespace varnel
