#include "logs/log_rows.h"

#include <gtest/gtest.h>

#include "support/log_corpus.h"
#include "support/log_row_printer.h"

using namespace varnel;

namespace {

const QString kArrow = QStringLiteral("  \u27F6  ");

bool blank(QChar c) {
    return c == u' ' || c == u'\t' || c.category() == QChar::Separator_Space;
}

QString trimmedBlanks(QString s) {
    while (!s.isEmpty() && blank(s.front())) s.remove(0, 1);
    while (!s.isEmpty() && blank(s.back())) s.chop(1);
    return s;
}

// Row building done the plain way, one string per field, for comparison.
QList<LogRow> plainRows(const QString& text) {
    QList<LogRow> rows;
    for (QString line : text.split(u'\n')) {
        if (line.endsWith(u'\r')) line.chop(1);
        if (trimmedBlanks(line).isEmpty()) continue;
        const LogRow row = LogParser::parseReference(line);
        const QString message = trimmedBlanks(row.message);
        const bool continuation =
            line.front().isSpace() || message.startsWith(u"at ") || message.startsWith(u"in ");
        if (row.time.isEmpty() && continuation && !rows.isEmpty() && !rows.back().time.isEmpty()) {
            rows.back().message += kArrow + message;
            rows.back().raw += u'\n' + line;
        } else {
            rows.append(row);
        }
    }
    return rows;
}

}  // namespace

TEST(LogRows, SplittingAndFolding) {
    // The stack trace of the example, a blank and a whitespace line, and a
    // text ending in a line feed.
    LogRows rows = LogRows::build(
        QStringLiteral("2024-05-01 10:00:00 ERROR boom\n    at tls.Handshake(conn:12)\n"
                       "    at net.Dial(dial:7)\n\n \t \nsvc: next\n"));
    ASSERT_EQ(rows.size(), 2);
    EXPECT_EQ(
        rows[0].toRow(),
        (LogRow{"2024-05-01 10:00:00", "ERROR", "",
                "boom" + kArrow + "at tls.Handshake(conn:12)" + kArrow + "at net.Dial(dial:7)",
                "2024-05-01 10:00:00 ERROR boom\n    at tls.Handshake(conn:12)\n"
                "    at net.Dial(dial:7)"}));
    EXPECT_EQ(rows[1].toRow(), (LogRow{"", "", "svc", "next", "svc: next"}));

    // "in " after a component prefix folds; so does a line under a blank line,
    // its raw text then joined from pieces that are not adjacent.
    rows = LogRows::build(
        QStringLiteral("2024-05-01 10:00:00 INFO tick  \nmain: in loop\n\n\tdetail\r\n"));
    ASSERT_EQ(rows.size(), 1);
    EXPECT_EQ(rows[0].message, QString("tick" + kArrow + "in loop" + kArrow + "detail"));
    EXPECT_EQ(rows[0].raw, u"2024-05-01 10:00:00 INFO tick\nmain: in loop\n\tdetail");

    // Continuations at the start, under a row without a time, or carrying
    // their own time stamp are rows of their own.
    rows =
        LogRows::build(QStringLiteral("  at start\nplain line\n  at under plain\n"
                                      "2024-05-01 10:00:00 a\n 2024-05-01 10:00:01 b\r\n"));
    EXPECT_EQ(rows.size(), 5);
    EXPECT_EQ(rows[4].time, u"2024-05-01 10:00:01");

    EXPECT_EQ(LogRows::build(QString()).size(), 0);
    EXPECT_EQ(LogRows::build(QStringLiteral("\n\n \u00a0\n")).size(), 0);
}

TEST(LogRows, MatchRowsBuiltThePlainWay) {
    test_support::LogCorpus corpus(3);
    QString text = corpus.text(1'500'000);
    text += QStringLiteral("\n  at first\r\n\x1b[31m2024-05-01 10:00:00 X\x1b[0m  \n  in y \n");
    text.squeeze();  // as a freshly read tail is
    const LogRows rows = LogRows::build(text);
    const QList<LogRow> expected = plainRows(text);
    ASSERT_EQ(rows.size(), expected.size());
    for (qsizetype i = 0; i < rows.size(); ++i) ASSERT_EQ(rows[i].toRow(), expected[i]) << i;

    // Copies share the text; nothing is copied per row.
    const LogRows copy = rows;
    EXPECT_EQ(copy[7].message.data(), rows[7].message.data());
    EXPECT_LT(rows.memoryBytes(), 3 * text.toUtf8().size());
}

TEST(LogRows, FoldingAcrossTheMiddleOfALargeText) {
    // Large texts are built in two halves; a trace running over the middle
    // must fold as if read in one go, and so must one that must not fold.
    const QString frames = QStringLiteral("    at frame(x:1)\n").repeated(40'000);
    const QString texts[] = {
        "2024-05-01 10:00:00 ERROR boom\n" + frames + "next\n",
        "no time here\n" + frames,
        "2024-05-01 10:00:00 ERROR boom\n" + frames + "2024-05-01 10:00:01 x\n" + frames,
        QStringLiteral("svc: plain line\n").repeated(20'000) + "2024-05-01 10:00:00 a\n" +
            QStringLiteral("main: in loop\n").repeated(20'000),
    };
    for (const QString& text : texts) {
        const LogRows rows = LogRows::build(text);
        const QList<LogRow> expected = plainRows(text);
        ASSERT_EQ(rows.size(), expected.size());
        for (qsizetype i = 0; i < rows.size(); ++i) ASSERT_EQ(rows[i].toRow(), expected[i]) << i;
    }
}

TEST(LogRows, ErrorRow) {
    const QString error = QStringLiteral(
        "Cannot read this log (permission denied). Try \u2018Open Logs Folder\u2019.");
    const LogRows rows = LogRows::fromError(error);
    ASSERT_EQ(rows.size(), 1);
    EXPECT_EQ(rows[0].toRow(), (LogRow{"", "WARN", "", error, error}));
    EXPECT_EQ(filterRows(rows, "WARN", "permission"), QList<qsizetype>{0});
    EXPECT_TRUE(filterRows(rows, "ERROR", "").isEmpty());
}

TEST(LogRows, Filter) {
    const LogRows rows = LogRows::build(QStringLiteral(
        "2024-05-01 10:00:00 WARNING: disk nearly full\n"                          // 0 WARN
        "[2024-05-01 10:00:01] ERROR proxy: Handshake FAILED\n"                    // 1 ERROR
        "2024-05-01 10:00:02 FATAL core: gone\n"                                   // 2 FATAL
        "{\"level\":\"info\",\"target\":\"Caf\u00c9\",\"msg\":\"\u212Aelvin\"}\n"  // 3 INFO
        "no level here\n"));                                                       // 4
    const QString all = QStringLiteral("All levels");

    EXPECT_EQ(filterRows(rows, all, ""), (QList<qsizetype>{0, 1, 2, 3, 4}));
    // An exact match: WARN hides ERROR and FATAL.
    EXPECT_EQ(filterRows(rows, "WARN", ""), QList<qsizetype>{0});
    EXPECT_EQ(filterRows(rows, "ERROR", ""), QList<qsizetype>{1});
    EXPECT_TRUE(filterRows(rows, "DEBUG", "").isEmpty());
    // Any letter case, in time, level, source or message.
    EXPECT_EQ(filterRows(rows, all, "handshake failed"), QList<qsizetype>{1});
    EXPECT_EQ(filterRows(rows, all, "PROXY"), QList<qsizetype>{1});
    EXPECT_EQ(filterRows(rows, all, "10:00:02"), QList<qsizetype>{2});
    EXPECT_EQ(filterRows(rows, all, "fatal"), QList<qsizetype>{2});
    EXPECT_EQ(filterRows(rows, "FATAL", "disk"), QList<qsizetype>{});
    // Text only raw holds is never found: the word WARNING, a stamp's bracket.
    EXPECT_TRUE(filterRows(rows, all, "warning").isEmpty());
    EXPECT_TRUE(filterRows(rows, all, "[2024").isEmpty());
    // Lower-casing is Unicode's: É and the Kelvin sign K.
    EXPECT_EQ(filterRows(rows, all, "caf\u00e9"), QList<qsizetype>{3});
    EXPECT_EQ(filterRows(rows, all, "CAF\u00c9"), QList<qsizetype>{3});
    EXPECT_EQ(filterRows(rows, all, "kelvin"), QList<qsizetype>{3});
    EXPECT_EQ(filterRows(rows, all, "e"), (QList<qsizetype>{0, 1, 2, 3, 4}));

    // '[' and '{', '@' and '`' differ only in bit 0x20: near misses stay misses.
    const LogRows near =
        LogRows::build(QStringLiteral("svc: a {2024 `at` and a longer tail of text\n"));
    EXPECT_TRUE(filterRows(near, all, "[2024").isEmpty());
    EXPECT_TRUE(filterRows(near, all, "@at").isEmpty());
    EXPECT_EQ(filterRows(near, all, "{2024 `AT"), QList<qsizetype>{0});
    EXPECT_EQ(filterRows(near, all, "OF TEXT"), QList<qsizetype>{0});
}

TEST(LogRows, FilterMatchesPlainLowerCasing) {
    test_support::LogCorpus corpus(5);
    const LogRows rows = LogRows::build(corpus.text(600'000));
    for (const QString& needle :
         {QStringLiteral("retry"), QStringLiteral("AGENT::"), QStringLiteral("caf\u00c9"),
          QStringLiteral(":4"), QStringLiteral("\u65e5\u672c"), QStringLiteral("\u27F6")}) {
        for (const QString& level : {QStringLiteral("All levels"), QStringLiteral("ERROR")}) {
            QList<qsizetype> expected;
            const QString lower = needle.toLower();
            for (qsizetype i = 0; i < rows.size(); ++i) {
                const LogRow r = rows[i].toRow();
                if (level != u"All levels" && r.level != level) continue;
                if (r.time.toLower().contains(lower) || r.level.toLower().contains(lower) ||
                    r.source.toLower().contains(lower) || r.message.toLower().contains(lower))
                    expected.append(i);
            }
            EXPECT_EQ(filterRows(rows, level, needle), expected) << needle.toStdString();
        }
    }
}

TEST(LogRows, StatusLineAndColours) {
    EXPECT_EQ(levelChoices(),
              (QStringList{"All levels", "ERROR", "FATAL", "WARN", "INFO", "DEBUG", "TRACE"}));
    EXPECT_EQ(statusLine(12, 40, false, ""), u"12 of 40 lines");
    EXPECT_EQ(statusLine(1, 1, true, "/Library/Logs/Varnel/agent.log"),
              QStringLiteral(
                  "1 of 1 lines \u00B7 showing last 4 MB \u00B7 /Library/Logs/Varnel/agent.log"));
    EXPECT_EQ(statusLine(0, 3, false, "/x.log"), QStringLiteral("0 of 3 lines \u00B7 /x.log"));

    const struct {
        const char16_t* level;
        SystemColor level_color;
        SystemColor message_color;
    } colours[] = {
        {u"ERROR", SystemColor::red, SystemColor::red},
        {u"FATAL", SystemColor::red, SystemColor::red},
        {u"WARN", SystemColor::orange, SystemColor::label},
        {u"INFO", SystemColor::green, SystemColor::label},
        {u"DEBUG", SystemColor::secondaryLabel, SystemColor::label},
        {u"TRACE", SystemColor::secondaryLabel, SystemColor::label},
        {u"NOTICE", SystemColor::label, SystemColor::label},
        {u"error", SystemColor::label, SystemColor::label},
        {u"", SystemColor::label, SystemColor::label},
    };
    for (const auto& c : colours) {
        EXPECT_EQ(levelColor(c.level), c.level_color) << QString::fromUtf16(c.level).toStdString();
        EXPECT_EQ(messageColor(c.level), c.message_color);
    }
}
