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

// What rowInstants() gives a row that has no time and no timed row before it.
inline constexpr Instant kNoInstant = std::numeric_limits<Instant>::min();

// Reads the times logs write: "2024-05-01T10:00:00Z", "2024-05-01 10:00:00.123+02:00" (any
// fraction, a zone or none, which is the machine's local time) and the numbers JSON lines carry
// (seconds, milliseconds, microseconds or nanoseconds since the epoch, told apart by size).
// Anything else, or a date that does not exist, is no instant. Keeps the local offset of every
// hour it looked up (a few thousand at most): asking the time zone costs microseconds, and the
// rows of several logs, or of one written out of order, go back and forth between hours.
class InstantReader {
public:
    std::optional<Instant> operator()(QUtf8StringView time);

private:
    qint64 localOffsetMs(qint64 localMs);

    QHash<qint64, qint64> offsetByHour_;  // local time in hours -> milliseconds east of UTC
};

// One instant per row: its own time, else that of the nearest timed row before it (a line
// without a time belongs where it was written), else kNoInstant.
QList<Instant> rowInstants(const LogRows& rows);

}  // namespace varnel
