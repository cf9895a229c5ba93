#pragma once

#include <QList>
#include <QString>
#include <QUtf8StringView>
#include <array>

#include "logs/log_rows.h"
#include "logs/row_time.h"
#include "platform/system_color.h"

namespace varnel {

// What a timeline counts apart: ERROR and FATAL, WARN, and everything else.
enum class LevelClass { problem, warning, other };
inline constexpr int kLevelClasses = 3;

LevelClass levelClass(QUtf8StringView level);
// Red, orange, grey: the colours the table gives those levels, with the rest kept quiet.
SystemColor levelClassColor(LevelClass levelClass);

struct TimelineBucket {
    std::array<int, kLevelClasses> counts{};  // by LevelClass
    int firstRow = -1;                        // the first table row in the bucket, -1 if empty

    int total() const { return counts[0] + counts[1] + counts[2]; }
};

// Rows counted in buckets of equal width. Bucket i holds instants from start + i * width up to,
// not including, start + (i + 1) * width.
struct Timeline {
    Instant start = 0;
    qint64 widthMs = 0;
    QList<TimelineBucket> buckets;  // empty when no row has an instant

    Instant bucketStart(qsizetype bucket) const { return start + bucket * widthMs; }
};

// The smallest round width (1 s, 5 s, 10 s, 30 s, 1 min, 5 min, 15 min, 1 h, 6 h, 1 day, then
// whole days doubling) that covers first..last in at most `maxBuckets` buckets, each bucket
// beginning at a multiple of its width in local time (`utcOffsetMs` ahead of UTC).
qint64 bucketWidth(Instant first, Instant last, int maxBuckets, qint64 utcOffsetMs = 0);

// The shown rows (indices into `rows`, in table order) counted by bucket and level class.
// Rows without an instant are not counted. Buckets in between that hold no row are there, empty.
Timeline buildTimeline(const LogRows& rows, const QList<Instant>& instants,
                       const QList<qsizetype>& shown, int maxBuckets, qint64 utcOffsetMs = 0);

// Adds the table rows from `fromTableRow` on to a timeline built from the rows before them,
// when they fit the bucket width it has. False, leaving the timeline as it was, when they do
// not: then buildTimeline() must be run again.
bool extendTimeline(Timeline& timeline, const LogRows& rows, const QList<Instant>& instants,
                    const QList<qsizetype>& shown, qsizetype fromTableRow, int maxBuckets,
                    qint64 utcOffsetMs = 0);

// A bucket in words, for its tool tip: "10:05:00–10:05:30 · 42 lines: 3 errors, 1 warning".
QString bucketSummary(const Timeline& timeline, qsizetype bucket);

}  // namespace varnel
