#pragma once

#include <QList>
#include <QStringView>
#include <optional>

#include "logs/log_filter.h"
#include "logs/log_follow.h"
#include "logs/log_rows.h"
#include "logs/row_time.h"

namespace varnel {

// The time filter: every row, the last stretch of the log, or a range the user gives.
enum class TimeChoice { all, last5Minutes, lastHour, lastDay, range };

// In the order they are offered.
const QList<TimeChoice>& timeChoices();

// "All times", "Last 5 minutes", "Last hour", "Last day", "Range…".
QStringView timeChoiceTitle(TimeChoice choice);

struct TimeFilter {
    TimeChoice choice = TimeChoice::all;
    Instant rangeFrom = 0;  // both ends belong to the range; used by TimeChoice::range only
    Instant rangeTo = 0;
};

// Instants from..to, both included.
struct TimeWindow {
    Instant from = 0;
    Instant to = 0;
    bool operator==(const TimeWindow&) const = default;
};

// The instants a filter lets through, or none when it lets every row through. "Last …" is
// counted back from `newest`, the newest instant in the load, not from the clock: someone
// reading yesterday's log wants its last hour, not an empty table, and on a live log the newest
// row is moments old anyway. Without any instant in the load (newest is kNoInstant) a "Last …"
// choice lets nothing through. A range given backwards is read forwards.
std::optional<TimeWindow> timeWindow(const TimeFilter& filter, Instant newest);

// The newest of the instants, kNoInstant when there is none. Logs are not always in order, so
// this is not simply the last one.
Instant newestInstant(const QList<Instant>& instants);

// filterRows() narrowed to the rows whose instant lies in `window` (rows before the first
// timed row, kNoInstant, never do). Without a window, filterRows() as it is.
QList<qsizetype> filterRows(const LogRows& rows, const QList<Instant>& instants,
                            const RowFilter& filter, const std::optional<TimeWindow>& window,
                            qsizetype from = 0, qsizetype to = -1);

// Brings the instants of the rows before a follow change (rowInstants() of them) to what
// rowInstants() gives for `rows`, the rows after it, reading only the rows the change touched.
void followInstants(QList<Instant>& instants, const LogRows& rows, const LogFollowChange& change);

}  // namespace varnel
