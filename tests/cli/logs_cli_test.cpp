#include <gtest/gtest.h>

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <cstdio>

namespace {

const QString agentLog = QStringLiteral("/Library/Logs/Varnel/agent.stdout.log");
const QString proxyLog = QStringLiteral("/Library/Logs/Varnel/proxy.log");

const QByteArray line0 = "2024-05-01 10:00:00 INFO zero\n";

const QByteArray sample =
    "2024-05-01 10:00:00 INFO agent::proxy: connection accepted\n"
    "2024-05-01 10:00:01 WARNING watcher: socket closed\n"
    "2024-05-01 10:00:02 ERROR tls: handshake failed\n"
    "    at tls.Handshake(conn:12)\n"
    "2024-05-01 10:00:03 DEBUG poll done\n";

struct Result {
    int code = -1;
    QString out;
    QString err;

    bool operator==(const Result&) const = default;
    friend void PrintTo(const Result& r, std::ostream* os) {
        *os << r.code << " | " << r.out.toStdString() << " | " << r.err.toStdString();
    }
};

class LogsCli : public ::testing::Test {
protected:
    QString host(const QString& suitePath) const { return root_.path() + suitePath; }

    void write(const QString& suitePath, const QByteArray& bytes,
               QIODevice::OpenMode mode = QIODevice::WriteOnly) {
        QDir().mkpath(QFileInfo(host(suitePath)).path());
        QFile f(host(suitePath));
        ASSERT_TRUE(f.open(mode) && f.write(bytes) == bytes.size());
    }

    void start(QProcess& process, const QStringList& args) const {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("VARNEL_ROOT"), root_.path());
        env.remove(QStringLiteral("NO_COLOR"));
        process.setProcessEnvironment(env);
        process.start(QStringLiteral(VARNELCTL_PATH), args);
    }

    Result run(const QStringList& args, const QByteArray& input = {}) const {
        QProcess process;
        start(process, args);
        process.write(input);
        process.closeWriteChannel();
        EXPECT_TRUE(process.waitForFinished(20'000));
        return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
                QString::fromUtf8(process.readAllStandardError())};
    }

    // One field of every JSON line.
    static QStringList field(const QString& jsonLines, const char* key) {
        QStringList out;
        for (const QString& line : jsonLines.split(u'\n', Qt::SkipEmptyParts)) {
            const QJsonObject row = QJsonDocument::fromJson(line.toUtf8()).object();
            EXPECT_EQ(row.keys(), QStringList({"level", "message", "raw", "source", "time"}));
            out << row.value(QLatin1String(key)).toString();
        }
        return out;
    }

    QTemporaryDir root_;
};

TEST_F(LogsCli, ParseGivesOneObjectPerInputLine) {
    // No folding, no skipping; a final line feed adds no line; bad UTF-8 is replaced.
    const Result r = run({"logs", "parse"},
                         "2024-05-01 10:00:00 ERROR: disk full\n    at x\n\n"
                         "{\"lvl\":\"err\",\"msg\":\"j\"}\nbad \xff byte\n");
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(field(r.out, "time"), QStringList({"2024-05-01 10:00:00", "", "", "", ""}));
    EXPECT_EQ(field(r.out, "level"), QStringList({"ERROR", "", "", "ERROR", ""}));
    EXPECT_EQ(field(r.out, "message"),
              QStringList({": disk full", "at x", "", "j", QStringLiteral("bad \uFFFD byte")}));

    write(QStringLiteral("/lines.txt"), "one\ntwo");
    EXPECT_EQ(field(run({"logs", "parse", host("/lines.txt")}).out, "raw"),
              QStringList({"one", "two"}));
    EXPECT_EQ(run({"logs", "parse", "-"}, "\n").out.count(u'\n'), 1);
    // Read in pieces of a megabyte: a mark only at the very start goes, and a
    // line across two pieces is one line.
    const QByteArray longLine = "\xEF\xBB\xBF" + QByteArray((1 << 20) - 5, 'x') + "\n";
    const QString pieces = run({"logs", "parse"}, longLine +
                                                      "\xEF\xBB\xBF"
                                                      "ab\n" +
                                                      line0)
                               .out;
    EXPECT_EQ(field(pieces, "time"), QStringList({"", "", "2024-05-01 10:00:00"}));
    EXPECT_TRUE(
        pieces.startsWith("{\"time\":\"\",\"level\":\"\",\"source\":\"\",\"message\":\"xxx"));
    EXPECT_TRUE(pieces.contains(QStringLiteral("\"raw\":\"\uFEFFab\"}")));
    EXPECT_EQ(run({"logs", "parse"}, "").out, QString());
    EXPECT_EQ(run({"logs", "parse", host("/missing")}).code, 1);

    // A line longer than a log's tail is parsed in pieces of that size, each
    // ending before a character, however the input arrives; none is lost.
    const QByteArray x(3'999'999, 'x');
    const Result cut = run({"logs", "parse"}, line0 + x + "\xC3\xA9yz\n" + line0);
    EXPECT_EQ(cut.code, 0);
    EXPECT_EQ(field(cut.out, "raw"),
              QStringList({"2024-05-01 10:00:00 INFO zero", x, QStringLiteral("\u00E9yz"),
                           "2024-05-01 10:00:00 INFO zero"}));
    EXPECT_EQ(cut.err,
              "varnelctl logs: line 2 is longer than 4000000 bytes; it is parsed in "
              "pieces of that size.\n");
}

TEST_F(LogsCli, ShowPrintsTheViewersRowsWithTheStatusLineOnStderr) {
    write(agentLog, sample);
    // Aligned columns; no colour, since the output is not a terminal.
    EXPECT_EQ(run({"logs", "show"}),
              (Result{0,
                      "2024-05-01 10:00:00  INFO   agent::proxy  connection accepted\n"
                      "2024-05-01 10:00:01  WARN   watcher       socket closed\n"
                      "2024-05-01 10:00:02  ERROR  tls           handshake failed  \u27F6  "
                      "at tls.Handshake(conn:12)\n"
                      "2024-05-01 10:00:03  DEBUG                poll done\n",
                      "4 of 4 lines \u00B7 " + agentLog + "\n"}));

    // An exact level; a search of time, level, source and message that ignores case.
    const Result warn = run({"logs", "show", "--level", "warn", "--json", agentLog});
    EXPECT_EQ(field(warn.out, "message"), QStringList{"socket closed"});
    EXPECT_EQ(warn.err, "1 of 4 lines \u00B7 " + agentLog + "\n");
    EXPECT_EQ(field(run({"logs", "show", "--search=HANDSHAKE(", "--json"}).out, "raw"),
              QStringList{"2024-05-01 10:00:02 ERROR tls: handshake failed\n"
                          "    at tls.Handshake(conn:12)"});
}

TEST_F(LogsCli, ListsTheLogsAndShowResolvesHints) {
    EXPECT_EQ(run({"logs", "list", "--json"}), (Result{0, "[]\n", ""}));
    EXPECT_EQ(run({"logs", "show"}), (Result{1, "", "No Varnel logs found yet.\n"}));
    write(proxyLog, "2024-05-01 11:00:00 INFO proxy up\n");
    write(agentLog, sample);
    const QString agent = QStringLiteral("Agent \u2014 output");
    EXPECT_EQ(run({"logs", "list"}).out,
              agent + "\t" + agentLog + "\nproxy.log\t" + proxyLog + "\n");
    EXPECT_EQ(QJsonDocument::fromJson(run({"logs", "list", "--json"}).out.toUtf8()).array(),
              QJsonArray({QJsonObject{{"title", agent}, {"path", agentLog}},
                          QJsonObject{{"title", "proxy.log"}, {"path", proxyLog}}}));
    EXPECT_EQ(field(run({"logs", "show", "--json", "hint:proxy"}).out, "message"),
              QStringList{"proxy up"});

    // The viewer's warning row, and status 1.
    const QString missing = QStringLiteral("/Library/Logs/Varnel/none.log");
    EXPECT_EQ(run({"logs", "show", missing}), (Result{1, "WARN  Log file does not exist yet.\n",
                                                      "1 of 1 lines \u00B7 " + missing + "\n"}));

    const Result usage = run({"logs", "show", "--level", "NOTICE"});
    EXPECT_EQ(usage.code, 64);
    EXPECT_TRUE(usage.err.contains(QStringLiteral("Usage: varnelctl logs")));
    EXPECT_TRUE(run({"logs", "--help"}).out.contains(QStringLiteral("varnelctl logs show")));
}

TEST_F(LogsCli, ShowAllMergesEveryLogByTimeWithItsTitle) {
    write(agentLog, sample);
    write(proxyLog, "2024-05-01 10:00:01 INFO proxy: up\n2024-05-01 10:00:05 ERROR proxy: down\n");
    // A log that cannot be read is still there, as its warning.
    ASSERT_TRUE(QDir().mkpath(host(QStringLiteral("/Library/Logs/Varnel/agent.stderr.log"))));
    const QString out = QStringLiteral("Agent \u2014 output");
    const QString err = QStringLiteral("Agent \u2014 errors");

    const Result text = run({"logs", "show", "--all", "--level", "ERROR"});
    EXPECT_EQ(text, (Result{0,
                            out + "  2024-05-01 10:00:02  ERROR  tls    handshake failed  \u27F6  "
                                  "at tls.Handshake(conn:12)\n"
                                  "proxy.log       2024-05-01 10:00:05  ERROR  proxy  down\n",
                            "2 of 7 lines \u00B7 3 logs\n"}));

    QStringList order;
    const Result json = run({"logs", "show", "--all", "--json", "--search", "o"});
    for (const QString& line : json.out.split(u'\n', Qt::SkipEmptyParts)) {
        const QJsonObject row = QJsonDocument::fromJson(line.toUtf8()).object();
        EXPECT_EQ(row.keys(), QStringList({"level", "log", "message", "raw", "source", "time"}));
        order << row.value("log").toString() + u'|' + row.value("time").toString();
    }
    EXPECT_EQ(order,
              QStringList({err + "|", out + "|2024-05-01 10:00:00", out + "|2024-05-01 10:00:01",
                           "proxy.log|2024-05-01 10:00:01", out + "|2024-05-01 10:00:02",
                           out + "|2024-05-01 10:00:03", "proxy.log|2024-05-01 10:00:05"}));

    EXPECT_EQ(run({"logs", "show", "--all", agentLog}).code, 64);
    EXPECT_EQ(run({"logs", "show", "--all", "--follow"}).code, 64);
}

TEST_F(LogsCli, FollowPrintsEveryLineOnceThroughHalfLinesRotationAndCuts) {
    write(agentLog, sample);
    QProcess process;
    start(process, {"logs", "show", "--follow", "--json"});
    QString out;
    const auto waitFor = [&](qsizetype lines) {
        QDeadlineTimer deadline(10'000);
        while (out.count(u'\n') < lines && !deadline.hasExpired()) {
            process.waitForReadyRead(200);
            out += QString::fromUtf8(process.readAllStandardOutput());
        }
        return out.count(u'\n');
    };
    const auto line = [](const char* message) {
        return QByteArray("2024-05-01 10:00:05 INFO ") + message + '\n';
    };
    // The last row waits until nothing follows that could fold into it.
    ASSERT_EQ(waitFor(4), 4);

    // A JSON line caught half-written is one row once finished.
    write(agentLog, line("late") + "{\"level\":\"info\",\"msg\":\"ha", QIODevice::Append);
    ASSERT_EQ(waitFor(5), 5);
    write(agentLog, "lf\"}\n", QIODevice::Append);
    ASSERT_EQ(waitFor(6), 6);

    // Rename and create: what the old file got until then is read first.
    const QString rotated = agentLog + ".1";
    write(agentLog, line("rotated away"), QIODevice::Append);
    ASSERT_TRUE(QFile::rename(host(agentLog), host(rotated)));
    write(rotated, line("still old"), QIODevice::Append);
    write(agentLog, line("fresh"));
    ASSERT_EQ(waitFor(9), 9);

    // Copy and truncate: what was written before the cut comes from the copy.
    write(agentLog, line("before cut"), QIODevice::Append);
    ASSERT_TRUE(QFile::remove(host(rotated)) && QFile::copy(host(agentLog), host(rotated)));
    ASSERT_TRUE(QFile::resize(host(agentLog), 0));
    write(agentLog, line("after cut"), QIODevice::Append);
    ASSERT_EQ(waitFor(11), 11);

    process.terminate();
    ASSERT_TRUE(process.waitForFinished(5'000));
    EXPECT_EQ(std::pair(process.exitStatus(), process.exitCode()),
              std::pair(QProcess::NormalExit, 0));
    out += QString::fromUtf8(process.readAllStandardOutput());
    EXPECT_EQ(
        field(out, "message"),
        QStringList({"connection accepted", "socket closed",
                     "handshake failed  \u27F6  at tls.Handshake(conn:12)", "poll done", "late",
                     "half", "rotated away", "still old", "fresh", "before cut", "after cut"}));
    const QString err = QString::fromUtf8(process.readAllStandardError());
    EXPECT_EQ(err, "4 of 4 lines \u00B7 " + agentLog + "\nvarnelctl logs: " + agentLog +
                       " was replaced; reading the new file from its start.\nvarnelctl logs: " +
                       agentLog + " was cut short; the lines before the cut came from " + rotated +
                       ". Reading it from its start.\n");
}

TEST_F(LogsCli, TextOutputShowsControlsInsteadOfObeyingThem) {
    // An OSC title, a bare CR, C1 CSI and DEL in a line, an ESC from a JSON
    // escape (each control's picture is the escapers' own test).
    write(agentLog,
          "2024-05-01 10:00:00 INFO \x1b]0;pwned\x07title bare\rforged \xc2\x9b"
          "31m del\x7f\n{\"level\":\"info\",\"msg\":\"json \\u001b[2J cleared\\ttab\"}\n");
    EXPECT_EQ(run({"logs", "show"}).out,
              QStringLiteral("2024-05-01 10:00:00  INFO  \u241B]0;pwned\u2407title "
                             "bare\u240Dforged \u241B[31m del\u2421\n"
                             "                     INFO  json \u241B[2J cleared\ttab\n"));
    // JSON stays JSON, escaped as it always was.
    EXPECT_TRUE(run({"logs", "show", "--json"}).out.contains(QStringLiteral("json \\u001b[2J")));

    // A tab or a line feed in a file name cannot forge a column or a line of the list.
    write(QStringLiteral("/Library/Logs/Varnel/a\tb\nc.log"), line0);
    EXPECT_EQ(run({"logs", "list"}).out.split(u'\n').filter(QStringLiteral("c.log")),
              QStringList{
                  QStringLiteral("a\u2409b\u240Ac.log\t/Library/Logs/Varnel/a\u2409b\u240Ac.log")});
}

TEST_F(LogsCli, OutputThatCannotBeWrittenEndsWithStatusOne) {
    write(agentLog, sample);
    if (!QFileInfo::exists(QStringLiteral("/dev/full"))) GTEST_SKIP() << "no /dev/full here";
    const struct {
        const char* shell;
    } cases[] = {
        // A reader that went away, with SIGPIPE ignored as some parents leave it.
        {"trap '' PIPE; { \"$0\" logs show --follow; echo \"status $?\" >&2; } | head -1"},
        {"\"$0\" logs parse \"$1\" >/dev/full; echo \"status $?\" >&2"},
        {"\"$0\" logs show >/dev/full; echo \"status $?\" >&2"},
        {"\"$0\" logs list >/dev/full; echo \"status $?\" >&2"},
    };
    for (const auto& c : cases) {
        QProcess shell;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("VARNEL_ROOT"), root_.path());
        shell.setProcessEnvironment(env);
        shell.start(QStringLiteral("/bin/sh"), {"-c", QString::fromUtf8(c.shell),
                                                QStringLiteral(VARNELCTL_PATH), host(agentLog)});
        ASSERT_TRUE(shell.waitForFinished(20'000)) << c.shell;
        const QString err = QString::fromUtf8(shell.readAllStandardError());
        EXPECT_TRUE(err.contains(QStringLiteral("cannot write the output")) &&
                    err.endsWith(QStringLiteral("status 1\n")))
            << c.shell << ": " << err.toStdString();
    }
}

}  // namespace
