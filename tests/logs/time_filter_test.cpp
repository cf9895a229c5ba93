#include "logs/time_filter.h"

#include <gtest/gtest.h>

#include <QDateTime>
#include <QTimeZone>
#include <vector>

#include "logs/timeline.h"

using namespace varnel;

namespace {

constexpr qint64 kMinute = 60'000;

Instant utc(int h, int mi, int s) {
    return QDateTime(QDate(2024, 5, 1), QTime(h, mi, s), QTimeZone::utc()).toMSecsSinceEpoch();
}

// Rows 0..5: an untimed line, then rows at 09:00, 09:58, (an untimed row at 09:58), 10:00
// (written before the 09:59 row: logs are not always in order) and 09:59.
const char* const kTimedLog =
    "no time yet\n"
    "2024-05-01T09:00:00Z ERROR a: early failure\n"
    "2024-05-01T09:58:00Z WARN a: slow\n"
    "plain line\n"
    "2024-05-01T10:00:00Z INFO b: newest\n"
    "2024-05-01T09:59:00Z ERROR b: late failure\n";

}  // namespace

TEST(TimeFilter, WindowsCountBackFromTheNewestRowAndRangesReadEitherWay) {
    const Instant newest = utc(10, 0, 0);
    const struct {
        TimeFilter filter;
        std::optional<TimeWindow> expected;
    } cases[] = {
        {{TimeChoice::all, 0, 0}, std::nullopt},
        {{TimeChoice::last5Minutes, 0, 0}, TimeWindow{utc(9, 55, 0), newest}},
        {{TimeChoice::lastHour, 0, 0}, TimeWindow{utc(9, 0, 0), newest}},
        {{TimeChoice::lastDay, 0, 0}, TimeWindow{newest - 24 * 60 * kMinute, newest}},
        {{TimeChoice::range, utc(9, 0, 0), utc(9, 30, 0)}, TimeWindow{utc(9, 0, 0), utc(9, 30, 0)}},
        {{TimeChoice::range, utc(9, 30, 0), utc(9, 0, 0)}, TimeWindow{utc(9, 0, 0), utc(9, 30, 0)}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(timeWindow(c.filter, newest), c.expected) << int(c.filter.choice);
}

TEST(TimeFilter, TimeCombinesWithLevelAndSearchAndUnplacedRowsPassOnlyWithoutIt) {
    const LogRows rows = LogRows::build(QString::fromUtf8(kTimedLog));
    const QList<Instant> instants = rowInstants(rows);
    ASSERT_EQ(newestInstant(instants), utc(10, 0, 0));
    const auto window = [&](TimeFilter f) { return timeWindow(f, newestInstant(instants)); };
    const struct {
        RowFilter rows;
        TimeFilter time;
        QList<qsizetype> expected;
    } cases[] = {
        {{LevelChoice::all, {}}, {TimeChoice::all, 0, 0}, {0, 1, 2, 3, 4, 5}},
        {{LevelChoice::all, {}}, {TimeChoice::last5Minutes, 0, 0}, {2, 3, 4, 5}},
        {{LevelChoice::all, {}}, {TimeChoice::lastHour, 0, 0}, {1, 2, 3, 4, 5}},
        {{LevelChoice::error, {}}, {TimeChoice::last5Minutes, 0, 0}, {5}},
        {{LevelChoice::all, QStringLiteral("FAILURE")}, {TimeChoice::lastHour, 0, 0}, {1, 5}},
        {{LevelChoice::all, {}}, {TimeChoice::range, utc(9, 58, 0), utc(9, 59, 0)}, {2, 3, 5}},
        {{LevelChoice::all, {}}, {TimeChoice::range, utc(11, 0, 0), utc(12, 0, 0)}, {}},
    };
    // As vectors: Qt's own comparison hands memcmp a null pointer for an empty list.
    const auto vector = [](const QList<qsizetype>& list) {
        return std::vector<qsizetype>(list.cbegin(), list.cend());
    };
    for (const auto& c : cases)
        EXPECT_EQ(vector(filterRows(rows, instants, c.rows, window(c.time))), vector(c.expected))
            << int(c.time.choice) << " " << c.rows.search.toStdString();

    // A log without a single time stamp has no last hour.
    const LogRows untimed = LogRows::build(QStringLiteral("one\ntwo\n"));
    const QList<Instant> none = rowInstants(untimed);
    EXPECT_TRUE(filterRows(untimed, none, RowFilter(),
                           timeWindow({TimeChoice::lastHour, 0, 0}, newestInstant(none)))
                    .isEmpty());
}

TEST(TimeFilter, FollowingKeepsTheInstantsAFullLoadWouldGive) {
    const struct {
        const char* text;
        qsizetype dropLines;
        const char* more;
    } cases[] = {
        // Lines added, one of them folding into the last row.
        {kTimedLog, 0, "    at frame(1)\n2024-05-01T10:01:00Z INFO c: more\nuntimed\n"},
        // The front dropped while the next kept row has no time of its own.
        {kTimedLog, 3, "2024-05-01T10:02:00Z INFO c: more\n"},
        // A dropped row's folded lines become rows of their own at the front.
        {"2024-05-01T10:00:00Z ERROR a: boom\n    at one\n    at two\nafter\n"
         "2024-05-01T10:00:05Z INFO b: ok\n",
         1, ""},
    };
    for (const auto& c : cases) {
        const LogRows before = LogRows::build(QString::fromUtf8(c.text));
        QList<Instant> instants = rowInstants(before);
        const LogRows::Trimmed trimmed = before.withoutLeadingLines(c.dropLines);
        LogFollowChange change{LogFollowChange::Kind::grown, trimmed.dropped, trimmed.rederived,
                               false, 0};
        followInstants(instants, trimmed.rows, change);
        EXPECT_EQ(instants, rowInstants(trimmed.rows)) << c.text;

        const LogRows::Appended grown = trimmed.rows.appended(QByteArrayView(c.more));
        ASSERT_FALSE(grown.rebuilt);
        change = {LogFollowChange::Kind::grown, 0, 0, grown.lastChanged, grown.added};
        followInstants(instants, grown.rows, change);
        EXPECT_EQ(instants, rowInstants(grown.rows)) << c.text << c.more;
    }
}

TEST(Timeline, WidthIsTheSmallestRoundOneThatFits) {
    const Instant t = utc(10, 0, 0);
    const struct {
        Instant first, last;
        int maxBuckets;
        qint64 expected;
    } cases[] = {
        {t, t, 60, 1000},
        {t, t + 59'999, 60, 1000},
        {t, t + 60'000, 60, 5000},
        {t, t + 299'999, 60, 5000},
        {t, t + 40 * kMinute, 60, kMinute},
        {t, t + 3 * 60 * kMinute, 60, 5 * kMinute},
        {t, t + 20 * 60 * kMinute, 60, 60 * kMinute},
        {t, t + 100 * 60 * kMinute, 60, 6 * 60 * kMinute},
        {t, t + 30LL * 24 * 60 * kMinute, 60, 24 * 60 * kMinute},
        {t, t + 200LL * 24 * 60 * kMinute, 60, 4LL * 24 * 60 * kMinute},
        // A stamp from another century still ends in a finite width.
        {-62'135'596'800'000, 253'402'300'799'000, 60, 128LL * 24 * 60 * kMinute * 512},
        {t, t + 10'000, 0, 30'000},
    };
    for (const auto& c : cases)
        EXPECT_EQ(bucketWidth(c.first, c.last, c.maxBuckets), c.expected)
            << c.last - c.first << " in " << c.maxBuckets;
    // Buckets begin at round local times: ten minutes in 10 one-minute buckets, but from
    // 10:00:30 to 10:09:40 they straddle eleven minute marks when local time is 25 s ahead.
    EXPECT_EQ(bucketWidth(utc(10, 0, 30), utc(10, 9, 40), 10, 0), kMinute);
    EXPECT_EQ(bucketWidth(utc(10, 0, 30), utc(10, 9, 40), 10, 25'000), 5 * kMinute);
}

TEST(Timeline, CountsShownRowsByLevelClassAndKnowsEachBucketsFirstRow) {
    const LogRows rows = LogRows::build(QString::fromUtf8(kTimedLog));
    const QList<Instant> instants = rowInstants(rows);
    // Everything shown: 09:00 to 10:00 in at most 10 buckets is 15-minute buckets.
    Timeline all = buildTimeline(rows, instants, {0, 1, 2, 3, 4, 5}, 10);
    ASSERT_EQ(all.widthMs, 15 * kMinute);
    EXPECT_EQ(all.start, utc(9, 0, 0));
    ASSERT_EQ(all.buckets.size(), 5);
    using Counts = std::array<int, kLevelClasses>;
    EXPECT_EQ(all.buckets[0].counts, (Counts{1, 0, 0}));
    EXPECT_EQ(all.buckets[0].firstRow, 1);  // table row 0 has no instant and is not counted
    EXPECT_EQ(all.buckets[1].total(), 0);
    EXPECT_EQ(all.buckets[1].firstRow, -1);
    EXPECT_EQ(all.buckets[3].counts, (Counts{1, 1, 1}));
    EXPECT_EQ(all.buckets[3].firstRow, 2);
    EXPECT_EQ(all.buckets[4].counts, (Counts{0, 0, 1}));
    EXPECT_EQ(all.buckets[4].firstRow, 4);

    // Only the last two rows shown, out of order: table rows, not load rows, and a width that
    // shrinks to their span.
    const Timeline late = buildTimeline(rows, instants, {4, 5}, 10);
    EXPECT_EQ(late.widthMs, 10'000);
    ASSERT_EQ(late.buckets.size(), 7);
    EXPECT_EQ(late.buckets[0].firstRow, 1);
    EXPECT_EQ(late.buckets[0].counts, (Counts{1, 0, 0}));
    EXPECT_EQ(late.buckets[6].firstRow, 0);
    EXPECT_EQ(late.buckets[6].counts, (Counts{0, 0, 1}));

    EXPECT_TRUE(buildTimeline(rows, instants, {0}, 10).buckets.isEmpty());
}

TEST(Timeline, ExtendingGivesWhatABuildWouldOrRefuses) {
    const LogRows rows = LogRows::build(QString::fromUtf8(kTimedLog));
    const QList<Instant> instants = rowInstants(rows);
    const QList<qsizetype> shown = {0, 1, 2, 3, 4, 5};
    for (const qsizetype split : {2, 3, 4, 5}) {
        Timeline grown = buildTimeline(rows, instants, shown.first(split), 10);
        const qint64 widthBefore = grown.widthMs;
        if (extendTimeline(grown, rows, instants, shown, split, 10)) {
            const Timeline built = buildTimeline(rows, instants, shown, 10);
            EXPECT_EQ(grown.widthMs, built.widthMs) << split;
            EXPECT_EQ(grown.start, built.start) << split;
            ASSERT_EQ(grown.buckets.size(), built.buckets.size()) << split;
            for (qsizetype b = 0; b < built.buckets.size(); ++b) {
                EXPECT_EQ(grown.buckets[b].counts, built.buckets[b].counts) << split << " " << b;
                EXPECT_EQ(grown.buckets[b].firstRow, built.buckets[b].firstRow)
                    << split << " " << b;
            }
        } else {
            // Refused only when the rows would need wider buckets, and untouched then.
            EXPECT_LT(widthBefore, buildTimeline(rows, instants, shown, 10).widthMs) << split;
            EXPECT_EQ(grown.widthMs, widthBefore);
        }
    }
}

TEST(Timeline, BucketSummaryGivesTheSpanInLocalTimeAndTheCounts) {
    Timeline timeline;
    timeline.start = QDateTime(QDate(2024, 5, 1), QTime(10, 5, 0)).toMSecsSinceEpoch();
    timeline.widthMs = 30'000;
    timeline.buckets.resize(2);
    timeline.buckets[0].counts = {1, 2, 3};
    timeline.buckets[1].counts = {0, 0, 1};
    EXPECT_EQ(
        bucketSummary(timeline, 0),
        QStringLiteral("2024-05-01 10:05:00\u201310:05:30 \u00B7 6 lines: 1 error, 2 warnings"));
    EXPECT_EQ(bucketSummary(timeline, 1),
              QStringLiteral("2024-05-01 10:05:30\u201310:06:00 \u00B7 1 line"));
    timeline.widthMs = 5 * kMinute;
    timeline.buckets[0].counts = {0, 0, 0};
    EXPECT_EQ(bucketSummary(timeline, 0),
              QStringLiteral("2024-05-01 10:05\u201310:10 \u00B7 no lines"));
}
