#include "logs/log_merge.h"

#include <gtest/gtest.h>

#include "logs/log_filter.h"

using namespace varnel;

namespace {

// A log given as its lines, or as the error its read gave.
struct Log {
    Log(QStringList l = {}, QString e = {}) : lines(std::move(l)), error(std::move(e)) {}
    QStringList lines;
    QString error;

    LogRows rows() const {
        return error.isEmpty() ? LogRows::build(lines.join(u'\n') + u'\n')
                               : LogRows::fromError(error);
    }
};

// Each merged row as "log:message".
QStringList merged(const QList<Log>& logs) {
    QList<LogRows> rows;
    for (const Log& log : logs) rows.append(log.rows());
    const MergedRows out = mergeRows(rows);
    EXPECT_EQ(out.logOf.size(), out.rows.size());
    QStringList seen;
    for (qsizetype i = 0; i < out.rows.size(); ++i)
        seen.append(QString::number(out.logOf.value(i)) + u':' + out.rows[i].message.toString());
    return seen;
}

}  // namespace

TEST(LogMerge, OrdersRowsOfEveryLogByTime) {
    const struct {
        const char* what;
        QList<Log> logs;
        QStringList expected;
    } cases[] = {
        {"interleaved",
         {{{"2024-05-01T10:00:01Z INFO a1", "2024-05-01T10:00:03Z INFO a3"}},
          {{"2024-05-01T10:00:02Z INFO b2", "2024-05-01T10:00:04Z INFO b4"}}},
         {"0:a1", "1:b2", "0:a3", "1:b4"}},
        {"zones are compared as instants",
         {{{"2024-05-01T12:00:02+02:00 INFO a"}}, {{"2024-05-01T10:00:01Z INFO b"}}},
         {"1:b", "0:a"}},
        {"ties keep the logs' order, then the rows'",
         {{{"2024-05-01T10:00:05Z INFO b1", "2024-05-01T10:00:05Z INFO b2"}},
          {{"2024-05-01T10:00:05Z INFO c1"}},
          {{"2024-05-01T10:00:05Z INFO a1", "2024-05-01T10:00:06Z INFO a2"}}},
         {"0:b1", "0:b2", "1:c1", "2:a1", "2:a2"}},
        {"a line without a time stays after the row before it",
         {{{"2024-05-01T10:00:01Z INFO a1", "untimed after a1", "2024-05-01T10:00:09Z INFO a9"}},
          {{"2024-05-01T10:00:01Z INFO b1", "2024-05-01T10:00:02Z INFO b2"}}},
         {"0:a1", "0:untimed after a1", "1:b1", "1:b2", "0:a9"}},
        {"lines before any time come first, each log's in its order",
         {{{"2024-05-01T10:00:01Z INFO a1"}},
          {{"banner", "2024-05-01T10:00:00Z INFO b0"}},
          {{"other banner"}}},
         {"1:banner", "2:other banner", "1:b0", "0:a1"}},
        {"a log whose times go back keeps its own order",
         {{{"2024-05-01T10:00:05Z INFO a5", "2024-05-01T10:00:01Z INFO a1"}},
          {{"2024-05-01T10:00:03Z INFO b3"}}},
         {"1:b3", "0:a5", "0:a1"}},
        {"an unreadable log still shows its error",
         {{{"2024-05-01T10:00:01Z INFO a1"}}, {{}, "The log could not be read."}},
         {"1:The log could not be read.", "0:a1"}},
        {"empty logs add nothing and move no index",
         {{}, {{"2024-05-01T10:00:01Z INFO b1"}}, {}},
         {"1:b1"}},
        {"one log is itself",
         {{{"x", "2024-05-01T10:00:02Z INFO two", "2024-05-01T10:00:01Z INFO one"}}},
         {"0:x", "0:two", "0:one"}},
        {"nothing", {}, {}},
    };
    for (const auto& c : cases) EXPECT_EQ(merged(c.logs), c.expected) << c.what;
}

TEST(LogMerge, MergedRowsKeepEveryFieldAndSearchAsTheirLogs) {
    // Folded rows keep parts of their text aside from the lines: both must
    // move with the row.
    const QList<LogRows> logs = {
        LogRows::build(u"2024-05-01T10:00:02Z ERROR [tls] boom\n    at Handshake(conn:12)\n"
                       u"2024-05-01T10:00:04Z INFO [tls] fine\n"),
        LogRows::build(
            u"{\"time\":\"2024-05-01T10:00:01Z\",\"level\":\"warn\",\"msg\":\"caf\u00e9\"}\n"
            u"2024-05-01T10:00:03Z DEBUG [proxy] Cert\u00c9 ok\n"),
    };
    const MergedRows out = mergeRows(logs);
    ASSERT_EQ(out.rows.size(), 4);
    EXPECT_EQ(out.logOf, (QList<qint32>{1, 0, 1, 0}));
    EXPECT_EQ(out.rows[0].toRow(), logs[1][0].toRow());
    EXPECT_EQ(out.rows[1].toRow(), logs[0][0].toRow());
    EXPECT_EQ(out.rows[2].toRow(), logs[1][1].toRow());
    EXPECT_EQ(out.rows[3].toRow(), logs[0][1].toRow());

    EXPECT_EQ(filterRows(out.rows, {LevelChoice::all, QStringLiteral("HANDSHAKE")}),
              (QList<qsizetype>{1}));
    EXPECT_EQ(filterRows(out.rows, {LevelChoice::all, QStringLiteral("certé")}),
              (QList<qsizetype>{2}));
    EXPECT_EQ(filterRows(out.rows, {LevelChoice::warn, QString()}), (QList<qsizetype>{0}));
}

TEST(LogMerge, StatusLineCountsLogsInsteadOfAPath) {
    EXPECT_EQ(allLogsStatusLine(3, 40, 0, 9), u"3 of 40 lines \u00B7 9 logs");
    EXPECT_EQ(allLogsStatusLine(1, 1, 1, 1),
              u"1 of 1 lines \u00B7 showing last 4 MB of 1 log \u00B7 1 log");
}

TEST(LogMerge, RowsAreFoundAgainInTheNextMerge) {
    using Kind = LogFollowChange::Kind;
    const LogFollowChange none;
    const struct {
        const char* what;
        QList<qint32> before, after;
        QList<LogFollowChange> changes;
        QList<qsizetype> rows, expected;
    } cases[] = {
        {"a row of one log lands among the others'",
         {0, 1, 0, 1},
         {0, 1, 1, 0, 1},
         {none, {Kind::grown, 0, 0, false, 1}},
         {0, 1, 2, 3},
         {0, 1, 3, 2}},
        {"rows dropped at a log's front are gone, the rest move up",
         {0, 0, 1},
         {0, 1},
         {{Kind::grown, 1, 0, false, 0}},
         {0, 1, 2},
         {-1, 0, 1}},
        {"lines of a dropped row come back as rows of their own",
         {0, 0, 0},
         {0, 0},
         {{Kind::grown, 2, 1, false, 0}},
         {0, 2},
         {-1, 1}},
        {"a log read afresh keeps nothing; the others stay",
         {0, 1},
         {1, 0},
         {{Kind::reloaded}, none},
         {0, 1},
         {-1, 0}},
        {"rows that are not there are not found", {0}, {0}, {none}, {5}, {-1}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(rowsInNewMerge(c.before, c.after, c.changes, c.rows), c.expected) << c.what;
}
