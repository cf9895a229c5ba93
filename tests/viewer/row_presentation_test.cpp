// The viewer's decisions that need no window: cell text, tool tips, row
// details and export.
#include <gtest/gtest.h>

#include "logs/cell_text.h"
#include "logs/row_details.h"
#include "logs/row_export.h"

using namespace varnel;

namespace {

TEST(CellText, LongTextIsCutWithItsCountAndNeverInsideAPair) {
    EXPECT_EQ(cellText("short").toString(), QStringLiteral("short"));
    const QByteArray hex(2500, 'f');
    EXPECT_EQ(cellText(hex).toString(),
              QString(2000, u'f') + QStringLiteral(" … 500 more characters"));
    // Counted in code units as drawn: a lock is two, "é" one though two bytes.
    const CellText cut = cellText(
        "\xC3\xA9"
        "b\xF0\x9F\x94\x92"
        "c",
        3);
    EXPECT_EQ(cut.head, QUtf8StringView("\xC3\xA9"
                                        "b"));
    EXPECT_EQ(cut.more, 3);
    EXPECT_EQ(cellText("abcd", 3).toString(), QStringLiteral("abc … 1 more character"));

    // Tool tips: lines broken at a blank in their second half, or hard; at
    // most 16 pieces, then the count of what is left.
    const QString words = QStringLiteral("word ").repeated(30).trimmed();  // 149 characters
    EXPECT_EQ(tooltipText(words).split(u'\n'),
              (QStringList{QStringLiteral("word ").repeated(24),
                           QStringLiteral("word ").repeated(6).trimmed()}));
    const QStringList pieces = tooltipText(QString(200'000, u'x')).split(u'\n');
    ASSERT_EQ(pieces.size(), 17);
    EXPECT_EQ(pieces[0], QString(120, u'x'));
    EXPECT_EQ(pieces[16], QStringLiteral("… 198080 more characters"));
    EXPECT_EQ(tooltipText(u"a\n\n  b"), QStringLiteral("a\n\n  b"));
}

LogRows oneRow(const QString& lines) {
    return LogRows::build(lines + u'\n');
}

TEST(RowDetails, JsonLinesGiveEveryFieldColumnKeysFirstPlainLinesTheirColumns) {
    const LogRows json = oneRow(QStringLiteral(
        R"({"zone":"eu","msg":"hi","span":{"id":7,"tags":[1,"a"],"up":{"ok":true}},"ts":1714557600,"n":null,"e":{}})"
        "\n    at frame(x:1)"));
    const QList<RowField> expected{
        {"ts", "1714557600"},   {"msg", "hi"},    {"e", "{}"},
        {"n", "null"},          {"span.id", "7"}, {"span.tags", R"([1,"a"])"},
        {"span.up.ok", "true"}, {"zone", "eu"}};
    EXPECT_EQ(rowFields(json[0]), expected);

    const LogRows plain = oneRow(QStringLiteral("2024-05-01 10:00:00 ERROR boom\n    at f(x:1)"));
    EXPECT_EQ(rowDetailText(plain[0]),
              QStringLiteral("time     2024-05-01 10:00:00\n"
                             "level    ERROR\n"
                             "message  boom  \u27F6  at f(x:1)\n\n"
                             "2024-05-01 10:00:00 ERROR boom\n    at f(x:1)"));
    // A value of several lines stays under its first.
    EXPECT_EQ(rowDetailText(oneRow(QStringLiteral(R"({"msg":"a\nb"})"))[0]),
              QStringLiteral("msg  a\n     b\n\n{\"msg\":\"a\\nb\"}"));
}

TEST(RowExport, RawLinesWholeAndCsvQuotedWhereNeededWithFormulasDisarmed) {
    const LogRows rows =
        LogRows::build(QStringLiteral("2024-05-01 10:00:00 INFO a, \"b\"\n"
                                      "2024-05-01 10:00:01 [x] WARN =SUM(A1)\n    at f(x:1)\n"
                                      "2024-05-01 10:00:02 DEBUG skipped\n"));
    EXPECT_EQ(exportRows(rows, {1, 0}, ExportFormat::rawLines),
              "2024-05-01 10:00:01 [x] WARN =SUM(A1)\n    at f(x:1)\n"
              "2024-05-01 10:00:00 INFO a, \"b\"\n");
    EXPECT_EQ(exportRows(rows, {0, 1}, ExportFormat::csv),
              QStringLiteral("Time,Level,Source,Message\r\n"
                             "2024-05-01 10:00:00,INFO,,\"a, \"\"b\"\"\"\r\n"
                             "2024-05-01 10:00:01,WARN,x,\"'=SUM(A1)  \u27F6  at f(x:1)\"\r\n")
                  .toUtf8());
    // Rows of several logs lead with their log's title.
    const RowLogs logs{{QStringLiteral("Agent \u2014 errors"), QStringLiteral("Proxy, main")},
                       {1, 0, 1}};
    EXPECT_EQ(
        exportRows(rows, {2, 1}, ExportFormat::csv, logs),
        QStringLiteral("Log,Time,Level,Source,Message\r\n"
                       "\"Proxy, main\",2024-05-01 10:00:02,DEBUG,,skipped\r\n"
                       "Agent \u2014 errors,2024-05-01 10:00:01,WARN,x,\"'=SUM(A1)  \u27F6  at "
                       "f(x:1)\"\r\n")
            .toUtf8());
    EXPECT_EQ(exportFormatFor(u"/tmp/rows.CSV"), ExportFormat::csv);
    EXPECT_EQ(exportFormatFor(u"/tmp/csv.log"), ExportFormat::rawLines);
}

}  // namespace
