#pragma once

#include <QList>
#include <QString>
#include <QStringView>

#include "logs/log_rows.h"
#include "logs/row_navigation.h"

// Where the live search is found, once the filter has decided which rows it
// keeps: what a cell marks, how many times the search occurs in the rows
// shown, and which row Enter and F3 go to. The case rule is the filter's: the
// text and the search are both lower-cased, so the two never disagree on
// whether a row holds the search.
namespace varnel {

// A stretch of a cell's text, in UTF-16 code units of that text.
struct MatchRange {
    qsizetype start = 0;
    qsizetype length = 0;
    bool operator==(const MatchRange&) const = default;
};

// Where `search` occurs in `text`: occurrences from the left, each search
// resuming after the last one ("aa" is found twice in "aaaaa", not four times),
// and occurrences that touch joined into one range so that a mark has no seam.
// A range covers whole characters: one whose lower case is longer (U+0130
// becomes two units) is covered when any part of it is found. Empty when the
// search is.
QList<MatchRange> matchRanges(QStringView text, QStringView search);

// Occurrences of the search, counted as matchRanges() finds them before
// joining, in the time, level, source and message of the rows shown (table row
// i shows rows[shown[i]]). 0 for an empty search.
qsizetype countMatches(const LogRows& rows, const QList<qsizetype>& shown, const QString& search);

// The first table row after `from` (before it, going backward) whose row holds
// the search, going round at the ends and reaching `from` itself last; -1 when
// no row holds it or the search is empty. `from` may be -1 or shown.size() to
// start at either end.
qsizetype nextMatchingRow(const LogRows& rows, const QList<qsizetype>& shown, const QString& search,
                          qsizetype from, RowDirection direction);

// "1 match", "17 matches".
QString matchCountText(qsizetype count);

}  // namespace varnel
