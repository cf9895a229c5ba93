#pragma once

#include <QHash>
#include <QList>
#include <QUtf8StringView>
#include <limits>
#include <optional>

#include "logs/log_rows.h"

namespace varnel {

// Milliseconds since 1970-01-01T00:00:00Z.
using Instant = qint64;

// Lengths of time in the unit instants count in.
inline constexpr qint64 kSecondMs = 1000;
inline constexpr qint64 kMinuteMs = 60 * kSecondMs;
inline constexpr qint64 kHourMs = 60 * kMinuteMs;
inline constexpr qint64 kDayMs = 24 * kHourMs;

// Division rounding down, also below zero: days and buckets before 1970 start earlier, not later.
constexpr qint64 floorDiv(qint64 a, qint64 b) {
    return a / b - (a % b != 0 && (a < 0) != (b < 0) ? 1 : 0);
}

// What rowInstants() gives a row that has no time and no timed row before it.
inline constexpr Instant kNoInstant = std::numeric_limits<Instant>::min();

// Reads the times logs write: "2024-05-01T10:00:00Z", "2024-05-01 10:00:00.123+02:00" (any
// fraction, a zone or none, which is the machine's local time) and the numbers JSON lines carry
// (seconds, milliseconds, microseconds or nanoseconds since the epoch, told apart by size).
// Anything else, or a date that does not exist, is no instant. Keeps the local offsets of the
// hours it looked up: a log's rows mostly share one, and the rest come back to a few.
class InstantReader {
public:
    std::optional<Instant> operator()(QUtf8StringView time);

private:
    qint64 localOffsetMs(qint64 localMs);

    qint64 cachedHour_ = std::numeric_limits<qint64>::min();  // local time, in hours
    qint64 cachedOffsetMs_ = 0;
    // By local day when the whole day has one offset, else by local hour.
    QHash<qint64, std::optional<qint64>> offsetsByDay_;
    QHash<qint64, qint64> offsetsByHour_;
};

// One instant per row: its own time, else that of the nearest timed row before it (a line
// without a time belongs where it was written), else kNoInstant.
QList<Instant> rowInstants(const LogRows& rows);

}  // namespace varnel
