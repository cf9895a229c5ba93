#pragma once

#include <QAbstractTableModel>
#include <QFont>
#include <QList>
#include <QStringList>

#include <functional>

#include "logs/log_follow.h"
#include "logs/log_rows.h"
#include "logs/row_export.h"

namespace varnel {

// The table's view of one load: every row stays in `rows`, the table shows the
// ones listed in `shown`, in that order. Text, colours, fonts and tool tips come
// from here; which rows pass and which colour a level gets are decided in core.
class LogTableModel : public QAbstractTableModel {
    Q_OBJECT
public:
    // The log column is last here and shown first: it only means something
    // when the rows come from several logs.
    enum Column { timeColumn, levelColumn, sourceColumn, messageColumn, logColumn, columnCount_ };
    // The message with its line feeds; the display text has them as spaces.
    // Both are cut to what a cell lays out (cellText()).
    static constexpr int messageLinesRole = Qt::UserRole;
    // How many leading code units of the display text come from the row's
    // field: the rest of a cut message is the count of what was left out,
    // which a search must not mark. -1 when all of it does.
    static constexpr int fieldLengthRole = Qt::UserRole + 1;

    explicit LogTableModel(QObject* parent = nullptr);

    // Replaces everything at once (a model reset).
    void setContent(LogRows rows, QList<qsizetype> shown);
    // The log of each row (by index in the rows), by title, for the rows the
    // next setContent() brings; empty for the rows of one log.
    void setRowLogs(QStringList titles, QList<qint32> logOf);
    RowLogs rowLogs() const { return {logTitles_, logOf_}; }

    // Which of rows [from, to) pass the filter, ascending.
    using Passing = std::function<QList<qsizetype>(const LogRows&, qsizetype from, qsizetype to)>;
    // Moves to `rows`, which differ from the current ones as `change` (grown)
    // says, with row removals, insertions and a data change instead of a
    // reset, so the view keeps its selection and does no more work than the
    // change needs.
    void applyGrowth(LogRows rows, const LogFollowChange& change, const Passing& passing);

    const LogRows& rows() const { return rows_; }
    const QList<qsizetype>& shown() const { return shown_; }
    // The row behind a table row; `tableRow` must be below rowCount().
    LogRowView rowAt(int tableRow) const { return rows_[shown_.at(tableRow)]; }

    const QFont& cellFont() const { return cellFont_; }

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    LogRows rows_;
    QList<qsizetype> shown_;
    QStringList logTitles_;
    QList<qint32> logOf_;
    QFont cellFont_;
    QFont levelFont_;
};

// The system's monospaced font, 11 pixels high, the face of every cell.
QFont logCellFont();

}  // namespace varnel
