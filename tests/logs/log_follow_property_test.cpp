#include "logs/log_follow.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <random>

#include "logs/log_filter.h"
#include "logs/log_reader.h"
#include "logs/log_stream.h"
#include "logs/log_tail.h"
#include "platform/sandbox.h"
#include "support/log_corpus.h"
#include "support/log_row_printer.h"

using namespace varnel;

namespace {

// sandbox::root() is read once per process: set before anything reads it.
const QTemporaryDir suiteDir;
[[maybe_unused]] const bool rootSet = qputenv("VARNEL_ROOT", suiteDir.path().toUtf8());

const QString kLog = QStringLiteral("/Library/Logs/Varnel/follow.log");

QString host() {
    return sandbox::hostPath(kLog);
}

void writeFile(const QString& path, const QByteArray& bytes, QIODevice::OpenMode mode) {
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | mode));
    ASSERT_EQ(file.write(bytes), bytes.size());
}

QList<LogRow> plain(const LogRows& rows) {
    QList<LogRow> out;
    out.reserve(rows.size());
    for (qsizetype i = 0; i < rows.size(); ++i) out.append(rows[i].toRow());
    return out;
}

// A list kept up to date only through the reported changes, as the viewer's
// table is: it must end up equal to the rows themselves.
void applyChange(QList<LogRow>& list, const LogFollowChange& change, const LogRows& rows) {
    if (change.kind == LogFollowChange::Kind::reloaded) list = plain(rows);
    if (change.kind != LogFollowChange::Kind::grown) return;
    ASSERT_LE(change.dropped, list.size());
    list.remove(0, change.dropped);
    for (qsizetype i = change.rederived - 1; i >= 0; --i) list.prepend(rows[i].toRow());
    if (change.lastChanged) {
        ASSERT_FALSE(list.isEmpty());
        ASSERT_EQ(list.size() - 1, rows.size() - change.added - 1);
        list.last() = rows[list.size() - 1].toRow();
    }
    for (qsizetype i = rows.size() - change.added; i < rows.size(); ++i)
        list.append(rows[i].toRow());
}

// The rows must be what a full reload gives now, row for row.
void expectSameAsReload(const LogFollow& follow, quint64 window) {
    LogTail tail = readLogTail(kLog, window);
    const QList<LogRow> expected =
        plain(tail.error ? LogRows::fromError(*tail.error) : LogRows::build(std::move(tail.text)));
    const QList<LogRow> actual = plain(follow.rows());
    ASSERT_EQ(actual.size(), expected.size());
    for (qsizetype i = 0; i < actual.size(); ++i) ASSERT_EQ(actual[i], expected[i]) << "row " << i;
    ASSERT_EQ(follow.truncated(), tail.truncated);
}

struct Tally {
    int grown = 0;
    int reloaded = 0;
    int nothing = 0;
    int windowMoved = 0;  // grown steps that dropped rows at the front
    int rederived = 0;    // ... and made rows of a dropped row's folded lines
    int folded = 0;       // grown steps that folded lines into the last row
};

// Random writes of the kinds a log sees, each followed by an update that must
// agree with a full reload and with the changes it reported.
void runSequence(unsigned seed, quint64 window, int steps, const QByteArray& start, Tally& tally) {
    std::mt19937 rng(seed);
    auto pick = [&](int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng); };
    test_support::LogCorpus corpus(seed);
    auto lines = [&](qsizetype chars, bool crlf = false) {
        QByteArray out;
        for (const QString& line : corpus.lines(chars))
            out += line.toUtf8() + (crlf ? "\r\n" : "\n");
        return out;
    };
    static const char* const continuations[] = {"    at tls.Handshake(conn:12)\n",
                                                "in loop again\n",
                                                "\tcaused by: reset\n",
                                                "main: in retry\n",
                                                "  \n",
                                                "at net.Dial(dial:7)\n"};
    static const char* const broken[] = {"2024-05-01 10:00:00 WARN bad \xE2\x82\n",
                                         "\xFF\xFE not utf-16 here\n",
                                         "2024-05-01 10:00:01 INFO bom \xEF\xBB\xBF inside\n"};

    writeFile(host(), start, QIODevice::Truncate);
    LogFollow follow(kLog, window);
    follow.load();
    QList<LogRow> mirror = plain(follow.rows());
    expectSameAsReload(follow, window);
    for (int step = 1; step <= steps && !::testing::Test::HasFatalFailure(); ++step) {
        const int roll = pick(100);
        const char* what = "append";
        const qint64 size = QFileInfo(host()).size();
        QByteArray appended;
        if (roll < 44) {
            appended = lines(40 + pick(400), pick(8) == 0);
        } else if (roll < 56) {
            what = "continuation lines";
            for (int n = 1 + pick(4); n > 0; --n) appended += continuations[pick(6)];
        } else if (roll < 60) {
            what = "line without time stamp";
            appended = "no stamp here: just words\n";
        } else if (roll < 66) {
            what = "partial line";
            appended = lines(30 + pick(100)).chopped(1 + pick(10));
        } else if (roll < 72) {
            what = "large chunk";  // a tenth of the window to well past it
            appended = lines(qsizetype(window / 10 + quint64(pick(int(window * 3 / 2)))));
        } else if (roll < 76) {
            what = "undecodable bytes";
            appended = broken[pick(3)];
        } else if (roll < 80 && size > 0) {
            what = "truncation";
            EXPECT_TRUE(QFile::resize(host(), pick(int(size))));
        } else if (roll < 84) {
            what = "replacement";
            QByteArray fresh = pick(5) == 0 ? QByteArray() : lines(pick(3000));
            if (pick(10) == 0) {
                const QString text = QString::fromUtf8(fresh);
                fresh = QByteArray("\xFF\xFE") +
                        QByteArray(reinterpret_cast<const char*>(text.utf16()), text.size() * 2);
            }
            const QString temp = host() + QStringLiteral(".new");
            writeFile(temp, fresh, QIODevice::Truncate);
            EXPECT_EQ(::rename(QFile::encodeName(temp), QFile::encodeName(host())), 0);
        } else if (roll < 86) {
            what = "removal";
            QFile::remove(host());
        } else {
            what = "no change";
        }
        if (!appended.isEmpty()) writeFile(host(), appended, QIODevice::Append);

        const LogFollowChange change = follow.update();
        tally.nothing += change.kind == LogFollowChange::Kind::nothing;
        tally.reloaded += change.kind == LogFollowChange::Kind::reloaded;
        if (change.kind == LogFollowChange::Kind::grown) {
            ++tally.grown;
            tally.windowMoved += change.dropped > 0;
            tally.rederived += change.rederived > 0;
            tally.folded += change.lastChanged;
        }
        SCOPED_TRACE(testing::Message() << "step " << step << " (" << what << ")");
        applyChange(mirror, change, follow.rows());
        expectSameAsReload(follow, window);
        ASSERT_EQ(mirror, plain(follow.rows())) << "the changes reported";
    }
}

}  // namespace

TEST(LogFollowProperty, SmallWindowsEqualAFullReloadAfterEveryStep) {
    Tally total;
    const quint64 windows[] = {1'000, 4'000, 30'000};
    for (unsigned seed = 1; seed <= 6 && !HasFatalFailure(); ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed << ", window " << windows[seed % 3]);
        runSequence(seed, windows[seed % 3], 400, QByteArray(), total);
    }
    // Most steps append whole lines: the check is worth little unless they
    // were followed without reading everything again.
    EXPECT_GT(total.grown, total.reloaded);
    EXPECT_GT(total.nothing, 0);
    EXPECT_GT(total.windowMoved, 0);
    EXPECT_GT(total.rederived, 0);
    EXPECT_GT(total.folded, 0);
}

TEST(LogFollowProperty, TheRealWindowMovesAsTheLogPassesFourMegabytes) {
    const QByteArray start = test_support::LogCorpus(99).text(3'980'000).toUtf8();
    Tally total;
    for (unsigned seed = 11; seed <= 12 && !HasFatalFailure(); ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        runSequence(seed, 4'000'000, 14, start, total);
    }
    EXPECT_GT(total.windowMoved, 0);
}

TEST(LogFollow, AnUnchangedFileIsOnlyLookedAtAndEarlierRowsStayAsTheyWere) {
    writeFile(host(), "2024-05-01 10:00:00 ERROR boom\n", QIODevice::Truncate);
    LogFollow follow(kLog);
    follow.load();
    const LogRows before = follow.rows();
    const LogRow first = before[0].toRow();
    EXPECT_EQ(follow.update().kind, LogFollowChange::Kind::nothing);
    EXPECT_EQ(follow.rows()[0].raw.data(), before[0].raw.data()) << "rows were rebuilt";

    // Folding into the last row must not reach into the rows a table still shows.
    writeFile(host(), "    at tls.Handshake(conn:12)\n2024-05-01 10:00:01 INFO next\n",
              QIODevice::Append);
    const LogFollowChange change = follow.update();
    ASSERT_EQ(change.kind, LogFollowChange::Kind::grown);
    EXPECT_TRUE(change.lastChanged);
    EXPECT_EQ(before.size(), 1);
    EXPECT_EQ(before[0].toRow(), first);
}

namespace {

// The rows a stream handed on, folded back into rows: a continuation
// completes the row before it.
void collect(QList<LogRow>& rows, const LogStream::Items& items) {
    for (const LogStream::Item& item : items.list) {
        if (item.kind == LogStream::Item::Kind::row) {
            rows.append(item.row.toRow());
        } else {
            ASSERT_FALSE(rows.isEmpty());
            rows.last().message += item.row.message.toString();
            rows.last().raw += u'\n' + item.row.raw.toString();
        }
    }
}

QList<LogRow> expectedRows(const QStringList& files, const RowFilter& filter) {
    QList<LogRow> out;
    for (const QString& text : files) {
        const LogRows rows = LogRows::build(text);
        for (qsizetype i : filterRows(rows, filter)) out.append(rows[i].toRow());
    }
    return out;
}

}  // namespace

// A writer that rotates by rename and create or by copy and truncate, bursts
// past the read limit and leaves lines half-written, polled at random: every
// line comes out once, and each file's rows are what a fresh read of that
// file gives, whether rows are handed on at once or only whole.
TEST(LogStreamProperty, EveryLineOnceThroughRotationsCutsAndBursts) {
    const QString rotated = host() + QStringLiteral(".1");
    const RowFilter filters[] = {{}, {LevelChoice::error, {}}, {LevelChoice::all, "at "}};
    for (unsigned seed = 1; seed <= 6 && !HasFatalFailure(); ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 rng(seed);
        auto pick = [&](int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng); };
        test_support::LogCorpus corpus(seed);
        const RowFilter& filter = filters[seed % 3];

        QFile::remove(rotated);
        writeFile(host(), "2024-05-01 10:00:00 INFO first\n", QIODevice::Truncate);
        QStringList files{"2024-05-01 10:00:00 INFO first\n"};  // what each file held
        LogReader reader(kLog);
        const LogTail tail = reader.start(4'000'000);
        ASSERT_EQ(tail.text.toString(), files.first());
        LogStream streams[] = {{filter, LogStream::Rows::atOnce}, {filter, LogStream::Rows::whole}};
        QList<LogRow> shown[2];
        for (int s : {0, 1}) collect(shown[s], streams[s].start(LogRows::build(tail.text)).items);

        QString streamed = tail.text.toString();
        QString half;  // the start of a line not yet finished
        bool rotatedSincePoll = false;
        bool paused = false;
        auto poll = [&] {
            LogReader::Chunk chunk;
            bool quiet = true;
            do {
                chunk = reader.next(16 * 1024);
                if (chunk.event == LogReader::Event::replaced ||
                    chunk.event == LogReader::Event::truncated) {
                    for (int s : {0, 1}) collect(shown[s], streams[s].end());
                    streamed += u'|';
                } else {
                    ASSERT_EQ(chunk.event, LogReader::Event::none);
                }
                quiet = quiet && chunk.text.isEmpty() && chunk.event == LogReader::Event::none;
                streamed += QString::fromUtf8(chunk.text);
                for (int s : {0, 1}) collect(shown[s], streams[s].add(chunk.text));
            } while (chunk.more);
            for (int s : {0, 1})
                if (quiet) collect(shown[s], streams[s].quiet());
            paused = paused || quiet;
            rotatedSincePoll = false;
        };
        auto write = [&](const QString& path, QString text) {
            // A held row goes out when the log pauses, so a writer that
            // pauses starts again with a row: nothing can fold into it later.
            if (half.isEmpty() && std::exchange(paused, false))
                text.prepend(QStringLiteral("2024-05-01 10:00:03 INFO resumed\n"));
            text.prepend(std::exchange(half, QString()));
            files.last() += text;
            writeFile(path, text.toUtf8(), QIODevice::Append);
        };

        for (int step = 0; step < 120 && !HasFatalFailure(); ++step) {
            const int roll = pick(100);
            if (roll < 40) {
                write(host(), corpus.lines(40 + pick(600)).join(u'\n') + u'\n');
            } else if (roll < 50) {
                write(host(), QStringLiteral("    at frame.Next(x:%1)\n").arg(step));
            } else if (roll < 58 && half.isEmpty()) {
                const QString line =
                    pick(2) == 0
                        ? QStringLiteral("{\"level\":\"error\",\"msg\":\"half %1\"}\n").arg(step)
                        : QStringLiteral("2024-05-01 10:00:02 ERROR half %1\n").arg(step);
                const qsizetype cut = 1 + pick(int(line.size()) - 1);
                write(host(), line.left(cut));
                half = line.mid(cut);  // finished by the next write
            } else if (roll < 64) {
                write(host(), corpus.lines(40'000 + pick(60'000)).join(u'\n') + u'\n');
            } else if (roll < 80 && !rotatedSincePoll && half.isEmpty() &&
                       (roll < 72 || reader.offset() > 0)) {
                // (A file empty at the last look and cut before the next one
                // cannot be told from one that was never written.)
                // Lines written after the last poll, then rotated away: they
                // must come from the old file or the copy.
                write(host(),
                      QStringLiteral("2024-05-01 10:00:01 WARN before rotation %1\n").arg(step));
                if (roll < 72) {
                    QFile::remove(rotated);
                    ASSERT_TRUE(QFile::rename(host(), rotated));
                    // The writer has not reopened yet.
                    write(rotated, QStringLiteral("    at still.Old(x:%1)\n").arg(step));
                    files.append(QString());
                    writeFile(host(), QByteArray(), QIODevice::Append);
                } else {
                    QFile::remove(rotated);
                    ASSERT_TRUE(QFile::copy(host(), rotated));
                    ASSERT_TRUE(QFile::resize(host(), 0));
                    files.append(QString());
                }
                rotatedSincePoll = true;
            } else {
                poll();
            }
        }
        if (!half.isEmpty()) write(host(), QString());
        poll();
        for (int s : {0, 1}) collect(shown[s], streams[s].end());

        ASSERT_EQ(QString(streamed).remove(u'|'), files.join(QString()));
        ASSERT_EQ(streamed.count(u'|'), files.size() - 1) << "one restart per rotation";
        const QList<LogRow> expected = expectedRows(files, filter);
        ASSERT_EQ(shown[0], expected) << "at once";
        ASSERT_EQ(shown[1], expected) << "whole";
    }
}
