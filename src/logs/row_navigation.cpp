#include "logs/row_navigation.h"

#include <algorithm>

namespace varnel {

bool isProblemLevel(QUtf8StringView level) {
    return level == QUtf8StringView("ERROR") || level == QUtf8StringView("FATAL") ||
           level == QUtf8StringView("WARN");
}

qsizetype nextProblemRow(const LogRows& rows, const QList<qsizetype>& shown, qsizetype from,
                         RowDirection direction) {
    const qsizetype step = direction == RowDirection::forward ? 1 : -1;
    const qsizetype start = std::clamp<qsizetype>(from, -1, shown.size());
    for (qsizetype row = start + step; row >= 0 && row < shown.size(); row += step)
        if (isProblemLevel(rows[shown[row]].level)) return row;
    return -1;
}

}  // namespace varnel
