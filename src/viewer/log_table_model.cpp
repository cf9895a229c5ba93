#include "viewer/log_table_model.h"

#include <QFontDatabase>
#include <QTextDocument>
#include <algorithm>

#include "logs/cell_text.h"
#include "logs/log_presentation.h"
#include "logs/utf8.h"
#include "ui/system_palette.h"

namespace varnel {

QFont logCellFont() {
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    // The table's sizes (17-pixel rows, a 175-pixel time column) were made for
    // an 11-point face where a point is a pixel. At 11 points on a 96-dpi
    // screen the face is 20 pixels high: descenders are cut off and time
    // stamps do not fit. So the font keeps the proportions, not the points.
    font.setPixelSize(11);
    font.setWeight(QFont::Normal);
    return font;
}

LogTableModel::LogTableModel(QObject* parent)
    : QAbstractTableModel(parent), cellFont_(logCellFont()), levelFont_(cellFont_) {
    levelFont_.setWeight(QFont::Bold);
}

void LogTableModel::setContent(LogRows rows, QList<qsizetype> shown) {
    beginResetModel();
    rows_ = std::move(rows);
    shown_ = std::move(shown);
    endResetModel();
}

void LogTableModel::setRowLogs(QStringList titles, QList<qint32> logOf) {
    logTitles_ = std::move(titles);
    logOf_ = std::move(logOf);
}

void LogTableModel::applyGrowth(LogRows rows, const LogFollowChange& change,
                                const Passing& passing) {
    const auto gone = std::lower_bound(shown_.cbegin(), shown_.cend(), change.dropped);
    if (const int count = int(gone - shown_.cbegin()); count > 0) {
        beginRemoveRows({}, 0, count - 1);
        shown_.remove(0, count);
        endRemoveRows();
    }
    // The rows that stay are the same rows at new indices.
    rows_ = std::move(rows);
    for (qsizetype& index : shown_) index += change.rederived - change.dropped;

    QList<qsizetype> front = passing(rows_, 0, change.rederived);
    if (!front.isEmpty()) {
        beginInsertRows({}, 0, int(front.size()) - 1);
        front.append(shown_);
        shown_ = std::move(front);
        endInsertRows();
    }

    if (change.lastChanged) {
        const qsizetype last = rows_.size() - change.added - 1;
        const bool wasShown = !shown_.isEmpty() && shown_.last() == last;
        const bool passes = !passing(rows_, last, last + 1).isEmpty();
        const int tableRow = int(shown_.size()) - (wasShown ? 1 : 0);
        if (wasShown && passes) {
            emit dataChanged(index(tableRow, 0), index(tableRow, columnCount_ - 1));
        } else if (wasShown) {
            beginRemoveRows({}, tableRow, tableRow);
            shown_.removeLast();
            endRemoveRows();
        } else if (passes) {
            beginInsertRows({}, tableRow, tableRow);
            shown_.append(last);
            endInsertRows();
        }
    }

    const QList<qsizetype> added = passing(rows_, rows_.size() - change.added, rows_.size());
    if (!added.isEmpty()) {
        beginInsertRows({}, int(shown_.size()), int(shown_.size() + added.size()) - 1);
        shown_.append(added);
        endInsertRows();
    }
}

int LogTableModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : int(shown_.size());
}

int LogTableModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : columnCount_;
}

QVariant LogTableModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= shown_.size()) return {};
    const LogRowView row = rowAt(index.row());
    const int column = index.column();
    switch (role) {
        case Qt::DisplayRole:
            switch (column) {
                case timeColumn:
                    return row.time.toString();
                case levelColumn:
                    return row.level.toString();
                case sourceColumn:
                    return row.source.toString();
                case logColumn:
                    return logTitles_.value(logOf_.value(shown_.at(index.row()), -1));
                default: {
                    // One line means one line: a message that kept a line feed
                    // must not put its second line into a 17-pixel row.
                    QString text = cellText(row.message).toString();
                    text.replace(u'\n', u' ');
                    return text;
                }
            }
        case messageLinesRole:
            return cellText(row.message).toString();
        case fieldLengthRole: {
            if (column != messageColumn) return -1;
            const CellText cut = cellText(row.message);
            return cut.more == 0 ? qsizetype(-1) : utf8::toString(cut.head).size();
        }
        case Qt::ForegroundRole:
            switch (column) {
                case timeColumn:
                case sourceColumn:
                case logColumn:
                    return resolve(SystemColor::secondaryLabel);
                case levelColumn:
                    return resolve(levelColor(row.level));
                default:
                    return resolve(messageColor(row.level));
            }
        case Qt::FontRole:
            return column == levelColumn ? levelFont_ : cellFont_;
        case Qt::ToolTipRole:
            // As markup, so that a line that looks like markup shows as written.
            if (column == messageColumn)
                return Qt::convertFromPlainText(tooltipText(utf8::toString(row.raw)),
                                                Qt::WhiteSpacePre);
            return {};
        default:
            return {};
    }
}

QVariant LogTableModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
    switch (section) {
        case timeColumn:
            return QStringLiteral("Time");
        case levelColumn:
            return QStringLiteral("Level");
        case sourceColumn:
            return QStringLiteral("Source");
        case messageColumn:
            return QStringLiteral("Message");
        case logColumn:
            return QStringLiteral("Log");
        default:
            return {};
    }
}

}  // namespace varnel
