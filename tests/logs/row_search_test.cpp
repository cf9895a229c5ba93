#include "logs/row_search.h"

#include <gtest/gtest.h>

#include <tuple>

#include "logs/log_filter.h"
#include "logs/log_presentation.h"
#include "support/log_corpus.h"

using namespace varnel;

void PrintTo(const MatchRange& r, std::ostream* out) {
    *out << "{" << r.start << "," << r.length << "}";
}

namespace {

// Occurrences in the fields as the filter sees them: each field lower-cased whole.
qsizetype plainCount(const LogRows& rows, const QList<qsizetype>& shown, const QString& search) {
    const QString needle = search.toLower();
    qsizetype count = 0;
    for (const qsizetype i : shown) {
        const LogRow r = rows[i].toRow();
        for (const QString& field : {r.time, r.level, r.source, r.message}) {
            const QString lowered = field.toLower();
            for (qsizetype at = lowered.indexOf(needle); at >= 0;
                 at = lowered.indexOf(needle, at + needle.size()))
                ++count;
        }
    }
    return count;
}

}  // namespace

TEST(RowSearch, RangesCoverWholeCharactersOfTheShownTextIgnoringCase) {
    using R = QList<MatchRange>;
    const std::tuple<QString, QString, R> cases[] = {
        {"Handshake FAILED, failed again", "failed", R{{10, 6}, {18, 6}}},
        // Found again after the last find: the two touch and join; a third
        // "aa" would need the fifth a twice.
        {"aaaaa", "aa", R{{0, 4}}},
        {"abab-ab", "AB", R{{0, 4}, {5, 2}}},
        {"a-a", "a", R{{0, 1}, {2, 1}}},
        {"Caf\u00e9 CAF\u00c9", "caf\u00c9", R{{0, 4}, {5, 4}}},
        // The Kelvin sign lower-cases to an ASCII k.
        {"\u212Aelvin", "kelvin", R{{0, 6}}},
        // U+0130 lower-cases to i and a combining dot: found through its i,
        // the mark covers the whole character.
        {"\u0130x \u0130", "i", R{{0, 1}, {3, 1}}},
        {"\u0130x", "x", R{{1, 1}}},
        // A character beyond the BMP is two units; positions stay the text's.
        {"\U0001F600 Error \U0001F600", "error", R{{3, 5}}},
        {"\U0001F600\U0001F600", "\U0001F600", R{{0, 4}}},
        {"\u65e5\u672c\u8a9e", "\u672c", R{{1, 1}}},
        {"plain ascii", "\u00e9", R{}},
        {"short", "longer than it", R{}},
        {"anything", "", R{}},
    };
    for (const auto& [text, search, expected] : cases)
        EXPECT_EQ(matchRanges(text, search), expected) << text.toStdString();

    // Marks appear exactly where the filter finds the search.
    const LogRows big = LogRows::build(test_support::LogCorpus(11).text(300'000));
    for (const QString& needle : {QStringLiteral("e"), QStringLiteral("PROXY"),
                                  QStringLiteral("caf\u00e9"), QStringLiteral("\u27F6")})
        for (qsizetype i = 0; i < big.size(); i += 5) {
            const QString message = big[i].message.toString();
            ASSERT_EQ(!matchRanges(message, needle).isEmpty(),
                      message.toLower().contains(needle.toLower()))
                << needle.toStdString() << " in " << message.toStdString();
        }
}

TEST(RowSearch, CountsOccurrencesInTheShownRowsAsLowerCasingFindsThem) {
    const LogRows rows = LogRows::build(QStringLiteral(
        "2024-05-01 10:00:00 WARNING: disk nearly full, disk DISK\n"  // 0 WARN
        "[2024-05-01 10:00:01] ERROR proxy: Handshake FAILED\n"       // 1 ERROR
        "{\"level\":\"info\",\"target\":\"Caf\u00c9\",\"msg\":\"caf\u00e9 \u212Aelvin\"}\n"  // 2
        "no level here aaaaa\n"));                                                           // 3
    const QList<qsizetype> all{0, 1, 2, 3};
    const std::tuple<QList<qsizetype>, QString, qsizetype> cases[] = {
        {all, "disk", 3},
        {{1, 2, 3}, "disk", 0},
        // WARNING became the level WARN; the word itself is only in raw.
        {all, "warn", 1},
        {all, "warning", 0},
        {all, "caf\u00e9", 2},
        {all, "kelvin", 1},
        {all, "aa", 2},
        {all, "2024-05-01", 2},
        {all, "", 0},
    };
    for (const auto& [shown, search, expected] : cases)
        EXPECT_EQ(countMatches(rows, shown, search), expected) << search.toStdString();

    const LogRows big = LogRows::build(test_support::LogCorpus(5).text(600'000));
    for (const QString& needle : QStringLiteral("e|handshake failed|PROXY|10:00:0|:4|[2024|"
                                                "caf\u00e9|kelvin|\u65e5\u672c|\u27F6|at ")
                                     .split(u'|')) {
        const QList<qsizetype> shown = filterRows(big, {LevelChoice::all, needle});
        EXPECT_EQ(countMatches(big, shown, needle), plainCount(big, shown, needle))
            << needle.toStdString();
    }
}

TEST(RowSearch, NextMatchingRowGoesRoundAtTheEnds) {
    const LogRows rows =
        LogRows::build(QStringLiteral("10:00:00 INFO alpha\n"
                                      "10:00:01 INFO beta\n"
                                      "10:00:02 WARN ALPHA\n"
                                      "10:00:03 INFO gamma\n"
                                      "10:00:04 INFO alphabet\n"));
    const QList<qsizetype> all{0, 1, 2, 3, 4};
    constexpr auto fwd = RowDirection::forward;
    constexpr auto back = RowDirection::backward;
    const std::tuple<QList<qsizetype>, QString, qsizetype, RowDirection, qsizetype> cases[] = {
        {all, "alpha", -1, fwd, 0},  {all, "alpha", 0, fwd, 2},     {all, "alpha", 2, fwd, 4},
        {all, "alpha", 4, fwd, 0},  // round past the end
        {all, "alpha", 5, fwd, 0},   {all, "alpha", 5, back, 4},    {all, "alpha", 2, back, 0},
        {all, "alpha", 0, back, 4},                              // round past the top
        {all, "alpha", -1, back, 4}, {all, "gamma", 3, fwd, 3},  // the only one: itself, last
        {all, "gamma", 3, back, 3},  {{1, 3}, "alpha", 0, fwd, -1}, {all, "delta", 1, fwd, -1},
        {all, "", 1, fwd, -1},       {{}, "alpha", -1, fwd, -1},
    };
    for (const auto& [shown, search, from, direction, expected] : cases)
        EXPECT_EQ(nextMatchingRow(rows, shown, search, from, direction), expected)
            << search.toStdString() << " from " << from;
}

TEST(RowSearch, StatusLinePutsTheCountBeforeThePath) {
    EXPECT_EQ(statusLine(12, 40, false, "/p/a.log", 17),
              QStringLiteral("12 of 40 lines \u00B7 17 matches \u00B7 /p/a.log"));
    EXPECT_EQ(
        statusLine(1, 40, true, "/p/a.log", 1),
        QStringLiteral("1 of 40 lines \u00B7 showing last 4 MB \u00B7 1 match \u00B7 /p/a.log"));
    EXPECT_EQ(statusLine(0, 3, false, "", 0), QStringLiteral("0 of 3 lines \u00B7 0 matches"));
}
