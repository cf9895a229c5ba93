#include "logs/log_rows.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "logs/ascii_search.h"
#include "logs/log_filter.h"
#include "logs/log_merge.h"
#include "logs/log_presentation.h"
#include "logs/log_text.h"
#include "platform/text.h"
#include "support/log_corpus.h"
#include "support/log_row_printer.h"

using namespace varnel;

namespace {

const QString kArrow = QStringLiteral("  \u27F6  ");

// Row building done the plain way, one string per field, for comparison.
QList<LogRow> plainRows(const QString& text) {
    QList<LogRow> rows;
    for (QString line : text.split(u'\n')) {
        if (line.endsWith(u'\r')) line.chop(1);
        if (text::isBlankOnly(line)) continue;
        const LogRow row = LogParser::parseReference(line);
        const QString message = text::trimBlanks(row.message).toString();
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

// Rows read the text without its byte-order marks.
void expectPlain(const LogRows& rows, const QString& text) {
    const QList<LogRow> expected = plainRows(QString(text).remove(QChar::ByteOrderMark));
    ASSERT_EQ(rows.size(), expected.size());
    for (qsizetype i = 0; i < rows.size(); ++i) ASSERT_EQ(rows[i].toRow(), expected[i]) << i;
}

// Which of rows [from, to) pass, the plain way.
QList<qsizetype> plainFilter(const LogRows& rows, LevelChoice choice, const QString& search,
                             qsizetype from, qsizetype to) {
    const QStringView level = levelChoiceTitle(choice);
    QList<qsizetype> out;
    for (qsizetype i = from; i < to; ++i) {
        const LogRow r = rows[i].toRow();
        // No needle holds the separator, so none is found across two fields.
        const QString fields = QStringList{r.time, r.level, r.source, r.message}.join(QChar(0));
        if ((choice == LevelChoice::all || r.level == level) &&
            fields.toLower().contains(search.toLower()))
            out.append(i);
    }
    return out;
}

}  // namespace

TEST(LogRows, SplittingAndFoldingMatchRowsBuiltThePlainWay) {
    // The stack trace of the example, a blank and a whitespace line, and a
    // text ending in a line feed.
    const LogRows rows = LogRows::build(
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

    // Large texts are built in two halves; a trace running over the middle
    // must fold as if read in one go, and so must one that must not fold.
    const QString frames = QStringLiteral("    at frame(x:1)\n").repeated(40'000);
    const QString texts[] = {
        // "in " after a component prefix folds; so does a line under a blank
        // line, its raw text then joined from pieces that are not adjacent.
        "2024-05-01 10:00:00 INFO tick  \nmain: in loop\n\n\tdetail\r\n",
        // Continuations at the start, under a row without a time, or carrying
        // their own time stamp are rows of their own.
        "  at start\nplain line\n  at under plain\n2024-05-01 10:00:00 a\n 2024-05-01 10:00:01 "
        "b\r\n",
        // Frames with a level, a prefix or colour after their first word; a bare "at".
        "2024-05-01 10:00:00 a\n\tat ERROR: x\n\v in svc: y \n  in \x1b[2mz\x1b[0m\nat\n",
        "",
        "\n\n \u00a0\n",
        // A byte-order mark between a carriage return and its line feed: the
        // return is the line's end once the mark is gone.
        "2024-05-01 10:00:00 a\r\ufeff\n\r\ufeff\nb\r\ufeff\r\n\r\ufeff",
        "2024-05-01 10:00:00 ERROR boom\n" + frames + "next\n",
        "no time here\n" + frames,
        "2024-05-01 10:00:00 ERROR boom\n" + frames + "2024-05-01 10:00:01 x\n" + frames,
        QStringLiteral("svc: plain line\n").repeated(20'000) + "2024-05-01 10:00:00 a\n" +
            QStringLiteral("main: in loop\n").repeated(20'000),
    };
    for (const QString& text : texts) {
        SCOPED_TRACE(text.left(60).toStdString());
        expectPlain(LogRows::build(text), text);
    }
    EXPECT_EQ(LogRows::build(texts[0])[0].message.toString(),
              QString("tick" + kArrow + "in loop" + kArrow + "detail"));

    // A freshly read tail of every shape: copies share its text, nothing is copied per row.
    QString tail =
        test_support::LogCorpus(3).text(1'500'000) +
        QStringLiteral("\n  at first\r\n\x1b[31m2024-05-01 10:00:00 X\x1b[0m  \n  in y \n");
    tail.squeeze();
    const LogRows read = LogRows::build(tail);
    expectPlain(read, tail);
    const LogRows copy = read;
    EXPECT_EQ(copy[7].message.data(), read[7].message.data());
    EXPECT_LT(read.memoryBytes(), 3 * tail.toUtf8().size());
}

TEST(LogRows, FilterMatchesPlainLowerCasingForEveryLevelChoice) {
    const LogRows rows = LogRows::build(QStringLiteral(
        "2024-05-01 10:00:00 WARNING: disk nearly full\n"                          // 0 WARN
        "[2024-05-01 10:00:01] ERROR proxy: Handshake FAILED\n"                    // 1 ERROR
        "2024-05-01 10:00:02 FATAL core: gone\n"                                   // 2 FATAL
        "{\"level\":\"info\",\"target\":\"Caf\u00c9\",\"msg\":\"\u212Aelvin\"}\n"  // 3 INFO
        "no level here\n"                                                          // 4
        // '[' and '{', '@' and '`' differ only in bit 0x20: near misses stay misses.
        "svc: a {2024 `at` and a longer tail of text\n"
        "{\"msg\":\"say \\\"hi\\\"\"}\n"));  // 6: the message is not the line's text
    // An exact match: WARN hides ERROR and FATAL. Text only raw holds (the
    // word WARNING, a stamp's bracket) is never found. Lower-casing is
    // Unicode's: É and the Kelvin sign K.
    EXPECT_EQ(filterRows(rows, {LevelChoice::warn, ""}), QList<qsizetype>{0});
    EXPECT_TRUE(filterRows(rows, {LevelChoice::all, "warning"}).isEmpty());
    EXPECT_EQ(filterRows(rows, {LevelChoice::all, "kelvin"}), QList<qsizetype>{3});
    EXPECT_EQ(filterRows(rows, {LevelChoice::all, "say \"hi\""}), QList<qsizetype>{6});

    const QString error = QStringLiteral(
        "Cannot read this log (permission denied). Try \u2018Open Logs Folder\u2019.");
    const LogRows errorRow = LogRows::fromError(error);
    ASSERT_EQ(errorRow.size(), 1);
    EXPECT_EQ(errorRow[0].toRow(), (LogRow{"", "WARN", "", error, error}));

    test_support::LogCorpus corpus(5);
    const LogRows big = LogRows::build(corpus.text(600'000));
    const QStringList needles =
        QStringLiteral(
            "|handshake failed|PROXY|10:00:02|fatal|disk|warning|[2024|caf\u00e9|CAF\u00c9"
            "|kelvin|e|@at|{2024 `AT|OF TEXT|retry|AGENT::|:4|\u65e5\u672c|\u27F6|PERMISSION")
            .split(u'|');
    // Two logs merged by time: rows whose text goes back and forth.
    const LogRows merged =
        mergeRows({big, LogRows::build(test_support::LogCorpus(6).text(300'000))}).rows;
    for (const LogRows* r : {&rows, &errorRow, &big, &merged})
        for (const LevelChoice level : levelChoices())
            for (const QString& needle : needles) {
                SCOPED_TRACE(levelChoiceTitle(level).toString().toStdString() + " / " +
                             needle.toStdString());
                EXPECT_EQ(filterRows(*r, {level, needle}),
                          plainFilter(*r, level, needle, 0, r->size()));
                // A part of the rows, as Follow asks for the rows it added.
                const qsizetype from = r->size() / 3, to = r->size() - 1;
                EXPECT_EQ(filterRows(*r, {level, needle}, from, to),
                          plainFilter(*r, level, needle, from, to));
            }

    // Every search path (the portable one is what other processors use)
    // finds exactly what lower-casing finds, wherever a block starts or ends.
    const AsciiFinder::Path paths[] = {AsciiFinder::Path::portable, AsciiFinder::Path::sse2,
                                       AsciiFinder::fastest()};
    for (const QString& needle : needles) {
        const QByteArray lower = needle.toLower().toUtf8();
        if (!QtPrivate::isAscii(QLatin1StringView(lower))) continue;
        for (const AsciiFinder::Path path : paths) {
            const AsciiFinder finder(lower, path);
            for (qsizetype i = 0; i < big.size(); i += 7) {
                const QByteArray message = big[i].message.toString().toUtf8();
                for (const QByteArrayView text :
                     {QByteArrayView(message),
                      QByteArrayView(message).first(qMin(message.size(), 17)),
                      QByteArrayView(message).sliced(1)}) {
                    ASSERT_EQ(finder.foundIn(text),
                              QString::fromUtf8(text).toLower().contains(QLatin1StringView(lower)))
                        << needle.toStdString() << " in " << text.toByteArray().toStdString();
                    // Where: lower-casing ASCII keeps every byte in its place.
                    ASSERT_EQ(finder.indexIn(text), text.toByteArray().toLower().indexOf(lower))
                        << needle.toStdString() << " in " << text.toByteArray().toStdString();
                }
            }
        }
    }
}

// Stretches asked about mostly in order, overlapping, with gaps short and
// long, and now and then far back or ahead: the look ahead answers as a search
// of each stretch alone does, wherever its strides end.
TEST(LogRows, SearchAheadFindsWhatASearchOfEachStretchFinds) {
    std::mt19937 rng(99);
    QByteArray text(300'000, 'a');
    for (char& c : text) c = "abAB "[rng() % 5];
    auto pick = [&](qsizetype n) {
        return qsizetype(std::uniform_int_distribution<qsizetype>(0, n - 1)(rng));
    };
    // From found everywhere to found a few times in the whole text.
    for (const QByteArray needle : {"b", "ab", "abba", "abbab a", "ab abba bab"}) {
        const AsciiFinder finder(needle);
        SearchAhead ahead(finder, text.constData(), text.size());
        qsizetype begin = 0;
        for (int i = 0; i < 40'000; ++i) {
            const qsizetype kind = pick(20);
            if (kind == 0)
                begin = pick(text.size());
            else if (kind == 1)
                begin += 4000 + pick(400);
            else
                begin += pick(60);
            begin = std::min(begin, text.size() - 1);
            const qsizetype end = std::min(text.size(), begin + 1 + pick(kind == 2 ? 3000 : 90));
            const QByteArrayView stretch = QByteArrayView(text).sliced(begin, end - begin);
            ASSERT_EQ(ahead.within(begin, end), finder.indexIn(stretch) >= 0)
                << needle.toStdString() << " in " << begin << ".." << end << " (" << i << ")";
        }
    }
}

TEST(LogRows, SideTextAndBlocksShareTheirRoomWithoutOverlapping) {
    // Side text grows up from the room's start, blocks come down from its end.
    auto room = std::make_shared<TwoEndedRoom>(4096);
    ByteStore side(room, 10'000);
    side.append(QByteArray(1000, 'a'));
    char* block = room->takeUpper(2048);
    ASSERT_NE(block, nullptr);
    std::memset(block, 'b', 2048);
    EXPECT_EQ(room->takeUpper(1100), nullptr);  // would reach into the side text
    EXPECT_EQ(side.capacity(), 2048);
    side.append(QByteArray(1000, 'c'));
    EXPECT_EQ(side.data(), room->data());
    EXPECT_EQ(room->takeUpper(64), nullptr);

    // Text that no longer fits below the blocks moves out whole and leaves them be.
    side.append(QByteArray(100, 'd'));
    EXPECT_NE(side.data(), room->data());
    EXPECT_GE(side.capacity(), 10'000);
    EXPECT_EQ(QByteArrayView(side.data(), side.size()),
              QByteArray(1000, 'a') + QByteArray(1000, 'c') + QByteArray(100, 'd'));
    EXPECT_EQ(QByteArrayView(block, 2048), QByteArray(2048, 'b'));
}

TEST(LogRows, StatusLineSaysWhenOnlyTheEndWasRead) {
    EXPECT_EQ(statusLine(12, 40, true, ""),
              QStringLiteral("12 of 40 lines \u00B7 showing last 4 MB"));
}
