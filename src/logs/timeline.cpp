#include "logs/timeline.h"

#include <QDateTime>
#include <algorithm>

namespace varnel {

namespace {

constexpr qint64 kRoundWidths[] = {kSecondMs,   5 * kSecondMs, 10 * kSecondMs, 30 * kSecondMs,
                                   kMinuteMs,   5 * kMinuteMs, 15 * kMinuteMs, kHourMs,
                                   6 * kHourMs, kDayMs};

qint64 bucketOf(Instant at, qint64 width, qint64 utcOffsetMs) {
    return floorDiv(at + utcOffsetMs, width);
}

qint64 bucketsSpanned(Instant first, Instant last, qint64 width, qint64 utcOffsetMs) {
    return bucketOf(last, width, utcOffsetMs) - bucketOf(first, width, utcOffsetMs) + 1;
}

struct InstantSpan {
    Instant first = kNoInstant;
    Instant last = kNoInstant;
};

InstantSpan spanOf(const QList<Instant>& instants, const QList<qsizetype>& shown, qsizetype from) {
    InstantSpan span;
    for (qsizetype row = from; row < shown.size(); ++row) {
        const Instant at = instants.value(shown[row], kNoInstant);
        if (at == kNoInstant) continue;
        if (span.first == kNoInstant || at < span.first) span.first = at;
        if (span.last == kNoInstant || at > span.last) span.last = at;
    }
    return span;
}

// Counts table rows from `from` on into buckets that already cover their instants.
void count(Timeline& timeline, const LogRows& rows, const QList<Instant>& instants,
           const QList<qsizetype>& shown, qsizetype from) {
    for (qsizetype row = from; row < shown.size(); ++row) {
        const Instant at = instants.value(shown[row], kNoInstant);
        if (at == kNoInstant) continue;
        TimelineBucket& bucket = timeline.buckets[(at - timeline.start) / timeline.widthMs];
        ++bucket.counts[int(levelClass(rows[shown[row]].level))];
        if (bucket.firstRow < 0) bucket.firstRow = int(row);
    }
}

QString countsText(const TimelineBucket& bucket) {
    const int total = bucket.total();
    if (total == 0) return QStringLiteral("no lines");
    QString text = total == 1 ? QStringLiteral("1 line") : QStringLiteral("%1 lines").arg(total);
    QStringList parts;
    const auto part = [&](int n, const char* one, const char* many) {
        if (n > 0)
            parts.append(QStringLiteral("%1 %2").arg(n).arg(QLatin1String(n == 1 ? one : many)));
    };
    part(bucket.counts[int(LevelClass::problem)], "error", "errors");
    part(bucket.counts[int(LevelClass::warning)], "warning", "warnings");
    if (!parts.isEmpty()) text += QStringLiteral(": ") + parts.join(QStringLiteral(", "));
    return text;
}

}  // namespace

LevelClass levelClass(QUtf8StringView level) {
    if (level == "ERROR" || level == "FATAL") return LevelClass::problem;
    if (level == "WARN") return LevelClass::warning;
    return LevelClass::other;
}

SystemColor levelClassColor(LevelClass levelClass) {
    switch (levelClass) {
        case LevelClass::problem:
            return SystemColor::red;
        case LevelClass::warning:
            return SystemColor::orange;
        case LevelClass::other:
            break;
    }
    return SystemColor::gray;
}

qint64 bucketWidth(Instant first, Instant last, int maxBuckets, qint64 utcOffsetMs) {
    maxBuckets = std::max(maxBuckets, 1);
    for (const qint64 width : kRoundWidths)
        if (bucketsSpanned(first, last, width, utcOffsetMs) <= maxBuckets) return width;
    // Years of log, or a stamp from another century: whole days, doubling, always ends.
    qint64 width = 2 * kDayMs;
    while (bucketsSpanned(first, last, width, utcOffsetMs) > maxBuckets) width *= 2;
    return width;
}

Timeline buildTimeline(const LogRows& rows, const QList<Instant>& instants,
                       const QList<qsizetype>& shown, int maxBuckets, qint64 utcOffsetMs) {
    Timeline timeline;
    const InstantSpan span = spanOf(instants, shown, 0);
    if (span.first == kNoInstant) return timeline;
    timeline.widthMs = bucketWidth(span.first, span.last, maxBuckets, utcOffsetMs);
    timeline.start =
        bucketOf(span.first, timeline.widthMs, utcOffsetMs) * timeline.widthMs - utcOffsetMs;
    timeline.buckets.resize(bucketsSpanned(span.first, span.last, timeline.widthMs, utcOffsetMs));
    count(timeline, rows, instants, shown, 0);
    return timeline;
}

bool extendTimeline(Timeline& timeline, const LogRows& rows, const QList<Instant>& instants,
                    const QList<qsizetype>& shown, qsizetype fromTableRow, int maxBuckets,
                    qint64 utcOffsetMs) {
    if (timeline.buckets.isEmpty()) return false;
    const InstantSpan added = spanOf(instants, shown, fromTableRow);
    if (added.first == kNoInstant) return true;
    const qint64 width = timeline.widthMs;
    const qint64 firstBucket = bucketOf(timeline.start, width, utcOffsetMs);
    const qint64 lastBucket = firstBucket + timeline.buckets.size() - 1;
    const qint64 newFirst = std::min(firstBucket, bucketOf(added.first, width, utcOffsetMs));
    const qint64 newLast = std::max(lastBucket, bucketOf(added.last, width, utcOffsetMs));
    // The first and last buckets hold rows, so this is the span buildTimeline() would see: if
    // the width still fits it, it is still the narrowest that does.
    if (newLast - newFirst + 1 > std::max(maxBuckets, 1)) return false;
    timeline.buckets.insert(0, firstBucket - newFirst, TimelineBucket{});
    timeline.buckets.resize(newLast - newFirst + 1);
    timeline.start = newFirst * width - utcOffsetMs;
    count(timeline, rows, instants, shown, fromTableRow);
    return true;
}

QString bucketSummary(const Timeline& timeline, qsizetype bucket) {
    const QDateTime from = QDateTime::fromMSecsSinceEpoch(timeline.bucketStart(bucket));
    const QDateTime to = QDateTime::fromMSecsSinceEpoch(timeline.bucketStart(bucket + 1));
    QString when;
    if (timeline.widthMs >= kDayMs) {
        const QDateTime lastDay = to.addMSecs(-1);
        when = from.toString(QStringLiteral("yyyy-MM-dd"));
        if (lastDay.date() != from.date())
            when += u'\u2013' + lastDay.toString(QStringLiteral("yyyy-MM-dd"));
    } else {
        const QString time = timeline.widthMs % kMinuteMs == 0 ? QStringLiteral("HH:mm")
                                                               : QStringLiteral("HH:mm:ss");
        when = from.toString(QStringLiteral("yyyy-MM-dd ") + time) + u'\u2013' +
               to.toString(to.date() == from.date() ? time : QStringLiteral("yyyy-MM-dd ") + time);
    }
    return when + QStringLiteral(" \u00B7 ") + countsText(timeline.buckets.at(bucket));
}

}  // namespace varnel
