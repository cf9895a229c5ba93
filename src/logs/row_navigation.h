#pragma once

#include <QList>
#include <QStringView>

#include "logs/log_rows.h"

namespace varnel {

// Rows a reader hunts for: errors, fatal errors and warnings.
bool isProblemLevel(QUtf8StringView level);

enum class RowDirection { forward, backward };

// The first table row after `from` (before it, going backward) whose row is a
// problem; -1 when there is none. Table row i shows rows[shown[i]]; `from` may
// be -1 or shown.size() to start at either end.
qsizetype nextProblemRow(const LogRows& rows, const QList<qsizetype>& shown, qsizetype from,
                         RowDirection direction);

}  // namespace varnel
