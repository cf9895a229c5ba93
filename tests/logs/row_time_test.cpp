#include "logs/row_time.h"

#include <gtest/gtest.h>

#include <QDateTime>
#include <QTimeZone>

using namespace varnel;

namespace {

Instant utc(int y, int mo, int d, int h, int mi, int s, int ms = 0) {
    return QDateTime(QDate(y, mo, d), QTime(h, mi, s, ms), QTimeZone::utc()).toMSecsSinceEpoch();
}

std::optional<Instant> read(const char* time) {
    return InstantReader()(QUtf8StringView(time));
}

}  // namespace

TEST(RowTime, ReadsTheStampsLogsWrite) {
    const struct {
        const char* time;
        Instant expected;
    } cases[] = {
        {"2024-05-01T10:00:00Z", utc(2024, 5, 1, 10, 0, 0)},
        {"2024-05-01 10:00:00.5Z", utc(2024, 5, 1, 10, 0, 0, 500)},
        {"2024-05-01T10:00:00.123456789Z", utc(2024, 5, 1, 10, 0, 0, 123)},
        {"2024-05-01T12:30:00+02:30", utc(2024, 5, 1, 10, 0, 0)},
        {"2024-05-01T05:00:00-0500", utc(2024, 5, 1, 10, 0, 0)},
        {"2024-02-29T23:59:59.999Z", utc(2024, 2, 29, 23, 59, 59, 999)},
        {"1969-12-31T23:59:59Z", utc(1969, 12, 31, 23, 59, 59)},
        {"2016-12-31T23:59:60Z", utc(2016, 12, 31, 23, 59, 59)},
        // Epoch numbers in whatever unit the writer chose.
        {"1714557600", utc(2024, 5, 1, 10, 0, 0)},
        {"1714557600.25", utc(2024, 5, 1, 10, 0, 0, 250)},
        {"1714557600123", utc(2024, 5, 1, 10, 0, 0, 123)},
        {"1714557600123456", utc(2024, 5, 1, 10, 0, 0, 123)},
        {"1714557600123456789", utc(2024, 5, 1, 10, 0, 0, 123)},
    };
    for (const auto& c : cases) EXPECT_EQ(read(c.time), c.expected) << c.time;
}

TEST(RowTime, WithoutAZoneTheMachinesLocalTimeApplies) {
    for (const char* time : {"2024-01-15T08:00:00", "2024-07-15 08:00:00.250"}) {
        const QDateTime local =
            QDateTime::fromString(QString::fromLatin1(time).replace(u' ', u'T'), Qt::ISODateWithMs);
        EXPECT_EQ(read(time), local.toMSecsSinceEpoch()) << time;
    }
}

TEST(RowTime, RefusesWhatIsNoInstant) {
    for (const char* time :
         {"", "yesterday", "2024-02-30T10:00:00Z", "2023-02-29T10:00:00Z", "2024-13-01T10:00:00Z",
          "2024-05-01T24:00:00Z", "2024-05-01", "2024-05-01T10:00Z", "2024-05-01T10:00:00.Z",
          "2024-05-01T10:00:00+2", "2024-05-01T10:00:00Zjunk", "12:00:00", "1714557600x", "1.",
          "99999999999999999999", "-1714557600"})
        EXPECT_EQ(read(time), std::nullopt) << time;
}

TEST(RowTime, UntimedRowsTakeTheTimeOfTheRowBefore) {
    const LogRows rows = LogRows::build(
        QStringLiteral("no time yet\n"
                       "2024-05-01T10:00:00Z INFO a: first\n"
                       "plain line without a stamp\n"
                       "{\"ts\":\"2024-05-01T10:00:05Z\",\"level\":\"warn\",\"msg\":\"second\"}\n"
                       "2024-05-01T10:00:09Z ERROR b: third\n"));
    ASSERT_EQ(rows.size(), 5);
    EXPECT_EQ(rowInstants(rows),
              (QList<Instant>{kNoInstant, utc(2024, 5, 1, 10, 0, 0), utc(2024, 5, 1, 10, 0, 0),
                              utc(2024, 5, 1, 10, 0, 5), utc(2024, 5, 1, 10, 0, 9)}));
}
