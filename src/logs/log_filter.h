#pragma once

#include <QList>
#include <QString>
#include <QStringView>

#include "logs/log_rows.h"

namespace varnel {

// The level filter: every level, or exactly one (WARN does not show ERROR).
enum class LevelChoice { all, error, fatal, warn, info, debug, trace };

// In the order they are offered.
const QList<LevelChoice>& levelChoices();

// "All levels", or the level word a row must carry ("ERROR", ...).
QStringView levelChoiceTitle(LevelChoice choice);

struct RowFilter {
    LevelChoice level = LevelChoice::all;
    QString search;  // found in time, level, source or message, ignoring case
};

// Indices of the rows that pass: the level matches exactly (or any level is
// chosen) and the search text, ignoring case, is found in time, level,
// source or message (never raw). Only rows from `from` up to `to` (the end
// when negative) are looked at.
QList<qsizetype> filterRows(const LogRows& rows, const RowFilter& filter, qsizetype from = 0,
                            qsizetype to = -1);

}  // namespace varnel
