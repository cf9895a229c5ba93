#include "logs/log_follow.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <iostream>
#include <memory>
#include <random>

#include "logs/log_tail.h"
#include "monitor/sandbox.h"
#include "support/log_corpus.h"
#include "support/log_row_printer.h"

using namespace varnel;

namespace {

class SuiteRoot : public ::testing::Environment {
public:
    void SetUp() override {
        dir_ = std::make_unique<QTemporaryDir>();
        qputenv("VARNEL_ROOT", dir_->path().toUtf8());
    }
    void TearDown() override { dir_.reset(); }

private:
    std::unique_ptr<QTemporaryDir> dir_;
};

const auto* const kSuiteRoot = ::testing::AddGlobalTestEnvironment(new SuiteRoot);

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

// What a full reload gives now.
struct Reload {
    QList<LogRow> rows;
    bool truncated;
};

Reload fullReload(quint64 window) {
    LogTail tail = readLogTail(kLog, window);
    const LogRows rows =
        tail.error ? LogRows::fromError(*tail.error) : LogRows::build(std::move(tail.text));
    return {plain(rows), tail.truncated};
}

// A list kept up to date only through the reported changes, as the viewer's
// table is: it must end up equal to the rows themselves.
void applyChange(QList<LogRow>& list, const LogFollowChange& change, const LogRows& rows) {
    switch (change.kind) {
        case LogFollowChange::Kind::nothing:
            return;
        case LogFollowChange::Kind::reloaded:
            list = plain(rows);
            return;
        case LogFollowChange::Kind::grown:
            break;
    }
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

// Random writes of the kinds a log sees, in bytes.
class Writer {
public:
    Writer(unsigned seed, quint64 window) : rng_(seed), corpus_(seed), window_(window) {}

    int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng_); }

    QByteArray lines(qsizetype chars, bool crlf = false) {
        QByteArray out;
        for (const QString& line : corpus_.lines(chars)) {
            out += line.toUtf8();
            out += crlf ? "\r\n" : "\n";
        }
        return out;
    }

    QByteArray continuation() {
        static const char* const shapes[] = {"    at tls.Handshake(conn:12)\n",
                                             "in loop again\n",
                                             "\tcaused by: reset\n",
                                             "main: in retry\n",
                                             "  \n",
                                             "at net.Dial(dial:7)\n"};
        QByteArray out;
        for (int n = 1 + pick(4); n > 0; --n) out += shapes[pick(6)];
        return out;
    }

    QByteArray unstamped() { return QByteArrayLiteral("no stamp here: just words\n"); }

    QByteArray broken() {
        static const char* const shapes[] = {"2024-05-01 10:00:00 WARN bad \xE2\x82\n",
                                             "\xFF\xFE not utf-16 here\n",
                                             "2024-05-01 10:00:01 INFO bom \xEF\xBB\xBF inside\n"};
        return shapes[pick(3)];
    }

    // Anywhere from a tenth of the window to well past it.
    QByteArray bigChunk() {
        const qsizetype chars = qsizetype(window_ / 10 + quint64(pick(int(window_ * 3 / 2))));
        return lines(chars);
    }

private:
    std::mt19937 rng_;
    test_support::LogCorpus corpus_;
    quint64 window_;
};

struct Tally {
    int grown = 0;
    int reloaded = 0;
    int nothing = 0;
    int windowMoved = 0;  // grown steps that dropped rows at the front
    int rederived = 0;    // ... and made rows of a dropped row's folded lines
    int folded = 0;       // grown steps that folded lines into the last row

    void add(const Tally& t) {
        grown += t.grown;
        reloaded += t.reloaded;
        nothing += t.nothing;
        windowMoved += t.windowMoved;
        rederived += t.rederived;
        folded += t.folded;
    }
};

void expectSame(const LogFollow& follow, const QList<LogRow>& mirror, quint64 window, int step,
                const char* what) {
    const Reload expected = fullReload(window);
    const QList<LogRow> actual = plain(follow.rows());
    ASSERT_EQ(actual.size(), expected.rows.size()) << "step " << step << " (" << what << ")";
    for (qsizetype i = 0; i < actual.size(); ++i)
        ASSERT_EQ(actual[i], expected.rows[i]) << "step " << step << " (" << what << "), row " << i;
    ASSERT_EQ(follow.truncated(), expected.truncated) << "step " << step << " (" << what << ")";
    ASSERT_EQ(mirror, actual) << "step " << step << " (" << what << "): the changes reported";
}

Tally runSequence(unsigned seed, quint64 window, int steps, QByteArray start) {
    Tally tally;
    Writer writer(seed, window);
    writeFile(host(), start, QIODevice::Truncate);
    LogFollow follow(kLog, window);
    follow.load();
    QList<LogRow> mirror = plain(follow.rows());
    expectSame(follow, mirror, window, 0, "load");
    if (::testing::Test::HasFatalFailure()) return tally;

    for (int step = 1; step <= steps; ++step) {
        const int roll = writer.pick(100);
        const char* what = "append";
        const qint64 size = QFileInfo(host()).size();
        if (roll < 44) {
            writeFile(host(), writer.lines(40 + writer.pick(400), writer.pick(8) == 0),
                      QIODevice::Append);
        } else if (roll < 56) {
            what = "continuation lines";
            writeFile(host(), writer.continuation(), QIODevice::Append);
        } else if (roll < 60) {
            what = "line without time stamp";
            writeFile(host(), writer.unstamped(), QIODevice::Append);
        } else if (roll < 66) {
            what = "partial line";
            writeFile(host(), writer.lines(30 + writer.pick(100)).chopped(1 + writer.pick(10)),
                      QIODevice::Append);
        } else if (roll < 72) {
            what = "large chunk";
            writeFile(host(), writer.bigChunk(), QIODevice::Append);
        } else if (roll < 76) {
            what = "undecodable bytes";
            writeFile(host(), writer.broken(), QIODevice::Append);
        } else if (roll < 80 && size > 0) {
            what = "truncation";
            EXPECT_TRUE(QFile::resize(host(), writer.pick(int(size))));
        } else if (roll < 84) {
            what = "replacement";
            const QString temp = host() + QStringLiteral(".new");
            QByteArray fresh = writer.pick(5) == 0 ? QByteArray() : writer.lines(writer.pick(3000));
            if (writer.pick(10) == 0) {
                const QString text = QString::fromUtf8(fresh);
                fresh = QByteArray("\xFF\xFE") +
                        QByteArray(reinterpret_cast<const char*>(text.utf16()), text.size() * 2);
            }
            writeFile(temp, fresh, QIODevice::Truncate);
            EXPECT_EQ(::rename(QFile::encodeName(temp).constData(),
                               QFile::encodeName(host()).constData()),
                      0);
        } else if (roll < 86) {
            what = "removal";
            QFile::remove(host());
        } else {
            what = "no change";
        }
        const LogFollowChange change = follow.update();
        switch (change.kind) {
            case LogFollowChange::Kind::grown:
                ++tally.grown;
                tally.windowMoved += change.dropped > 0;
                tally.rederived += change.rederived > 0;
                tally.folded += change.lastChanged;
                break;
            case LogFollowChange::Kind::reloaded:
                ++tally.reloaded;
                break;
            case LogFollowChange::Kind::nothing:
                ++tally.nothing;
                break;
        }
        applyChange(mirror, change, follow.rows());
        expectSame(follow, mirror, window, step, what);
        if (::testing::Test::HasFatalFailure()) return tally;
    }
    return tally;
}

}  // namespace

TEST(LogFollowProperty, SmallWindowsEqualAFullReloadAfterEveryStep) {
    QElapsedTimer timer;
    timer.start();
    Tally total;
    const quint64 windows[] = {1'000, 4'000, 30'000};
    for (unsigned seed = 1; seed <= 6; ++seed) {
        const quint64 window = windows[seed % 3];
        SCOPED_TRACE(testing::Message() << "seed " << seed << ", window " << window);
        const Tally t = runSequence(seed, window, 400, QByteArray());
        if (HasFatalFailure()) return;
        total.add(t);
    }
    // Most steps append whole lines: the check is worth little unless they
    // were followed without reading everything again.
    EXPECT_GT(total.grown, total.reloaded);
    EXPECT_GT(total.nothing, 0);
    EXPECT_GT(total.windowMoved, 0);
    EXPECT_GT(total.rederived, 0);
    EXPECT_GT(total.folded, 0);
    std::cout << "grown " << total.grown << ", reloaded " << total.reloaded << ", unchanged "
              << total.nothing << "; window moved " << total.windowMoved << ", rows re-derived "
              << total.rederived << ", last row folded " << total.folded << '\n';
    RecordProperty("seconds", int(timer.elapsed() / 1000));
}

TEST(LogFollowProperty, TheRealWindowMovesAsTheLogPassesFourMegabytes) {
    test_support::LogCorpus corpus(99);
    const QByteArray start = corpus.text(3'980'000).toUtf8();
    for (unsigned seed = 11; seed <= 12; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        const Tally t = runSequence(seed, 4'000'000, 14, start);
        if (HasFatalFailure()) return;
        EXPECT_GT(t.grown, 0);
    }
}

TEST(LogFollow, AnUnchangedFileIsOnlyLookedAt) {
    writeFile(host(), "2024-05-01 10:00:00 INFO one\n", QIODevice::Truncate);
    LogFollow follow(kLog);
    follow.load();
    const LogRows before = follow.rows();
    EXPECT_EQ(follow.update().kind, LogFollowChange::Kind::nothing);
    EXPECT_EQ(follow.rows()[0].raw.data(), before[0].raw.data()) << "rows were rebuilt";
}

TEST(LogFollow, EarlierVersionsOfTheRowsStayAsTheyWere) {
    writeFile(host(), "2024-05-01 10:00:00 ERROR boom\n", QIODevice::Truncate);
    LogFollow follow(kLog);
    follow.load();
    const LogRows before = follow.rows();
    const LogRow first = before[0].toRow();
    writeFile(host(), "    at tls.Handshake(conn:12)\n2024-05-01 10:00:01 INFO next\n",
              QIODevice::Append);
    const LogFollowChange change = follow.update();
    ASSERT_EQ(change.kind, LogFollowChange::Kind::grown);
    EXPECT_TRUE(change.lastChanged);
    EXPECT_EQ(change.added, 1);
    EXPECT_EQ(before.size(), 1);
    EXPECT_EQ(before[0].toRow(), first);
    EXPECT_EQ(follow.rows()[0].message.toString(),
              QStringLiteral("boom  \u27F6  at tls.Handshake(conn:12)"));
}
