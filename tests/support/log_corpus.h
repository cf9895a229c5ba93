#pragma once

// Deterministic log text of the shapes the suite writes: JSON lines of several
// layouts, plain text with and without colour, stack traces, long lines and a
// little non-ASCII. Shared by the differential test and the benchmark.
#include <QString>
#include <QStringList>
#include <random>

namespace varnel::test_support {

class LogCorpus {
public:
    explicit LogCorpus(unsigned seed) : rng_(seed) {}

    // Lines (each without its line feed) until about `chars` characters.
    QStringList lines(qsizetype chars) {
        QStringList out;
        qsizetype total = 0;
        while (total < chars) {
            for (const QString& line : entry()) {
                total += line.size() + 1;
                out.append(line);
            }
        }
        return out;
    }

    QString text(qsizetype chars) { return lines(chars).join(u'\n') + u'\n'; }

    // One log entry: usually one line, a stack trace gives several.
    QStringList entry() {
        const int roll = pick(100);
        if (roll < 22) return {tracingJson()};
        if (roll < 40) return {compactJson()};
        if (roll < 48) return {escapedJson()};
        if (roll < 68) return {colouredPlain()};
        if (roll < 78) return {bracketedPlain()};
        if (roll < 88) return {componentPlain()};
        if (roll < 93) return stackTrace();
        if (roll < 94) return {longLine()};
        if (roll < 97) return {unicodeLine()};
        return {QString()};
    }

private:
    int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng_); }

    template <size_t N>
    QString any(const char* const (&options)[N]) {
        return QString::fromUtf8(options[pick(int(N))]);
    }

    QString stamp(bool t = true) {
        return QStringLiteral("2024-05-%1%2%3:%4:%5.%6Z")
            .arg(1 + pick(28), 2, 10, QChar(u'0'))
            .arg(QChar(t ? u'T' : u' '))
            .arg(pick(24), 2, 10, QChar(u'0'))
            .arg(pick(60), 2, 10, QChar(u'0'))
            .arg(pick(60), 2, 10, QChar(u'0'))
            .arg(pick(1000000), 6, 10, QChar(u'0'));
    }

    QString level() {
        return any({"INFO", "info", "DEBUG", "debug", "WARN", "warning", "ERROR", "err", "TRACE",
                    "critical", "notice"});
    }

    QString target() {
        return any({"agent::proxy", "agent::ws", "tls::handshake", "watcher", "scheduler",
                    "ipc.broker", "sysmon", "discovery::watch", "updater"});
    }

    QString words(int count) {
        static const char* const vocabulary[] = {
            "connection", "accepted",  "from",   "10.0.4.17:443", "closed",      "request",
            "failed",     "retrying",  "in",     "250ms",         "certificate", "rotated",
            "queue",      "depth",     "peer",   "handshake",     "timeout",     "after",
            "3",          "attempts",  "socket", "reset",         "by",          "upstream",
            "worker",     "restarted", "cache",  "miss",          "for",         "key",
            "session",    "resumed",   "ok"};
        QString out;
        for (int i = 0; i < count; ++i) {
            if (i) out += u' ';
            out += any(vocabulary);
        }
        return out;
    }

    QString tracingJson() {
        return QStringLiteral(
                   R"j({"timestamp":"%1","level":"%2","fields":{"message":"%3","peer":"10.0.0.%4"},"target":"%5","span":{"name":"conn","id":%6},"threadId":"ThreadId(%7)"})j")
            .arg(stamp(), level().toUpper(), words(4 + pick(10)))
            .arg(pick(255))
            .arg(target())
            .arg(pick(100000))
            .arg(pick(16));
    }

    QString compactJson() {
        return QStringLiteral(
                   R"j({"ts": %1, "lvl": "%2", "msg": "%3", "caller": "proxy/conn.go:%4", "latency_ms": %5.%6, "ok": %7})j")
            .arg(1714557600 + pick(100000))
            .arg(level(), words(3 + pick(8)))
            .arg(pick(900))
            .arg(pick(1000))
            .arg(pick(100))
            .arg(pick(2) ? QStringLiteral("true") : QStringLiteral("false"));
    }

    QString escapedJson() {
        return QStringLiteral(
                   R"j({"time":"%1","severity":"%2","logger":"%3","message":"%4 \"%5\" at C:\\suite\\%6\n\tcontinued","pid":%7})j")
            .arg(stamp(false), level(), target(), words(3 + pick(6)), words(1), words(1))
            .arg(100 + pick(30000));
    }

    QString colouredPlain() {
        static const char* const colours[] = {"\x1b[32m", "\x1b[33m", "\x1b[31m", "\x1b[2m",
                                              "\x1b[1;34m"};
        return QStringLiteral("\x1b[2m%1\x1b[0m %2%3\x1b[0m %4: %5")
            .arg(stamp(), any(colours), level().toUpper().leftJustified(5), target(),
                 words(5 + pick(12)));
    }

    QString bracketedPlain() {
        return QStringLiteral("[%1] [%2] %3: %4")
            .arg(stamp(false).left(19), any({"watcher", "sysmon", "tray", "ipc"}), level(),
                 words(4 + pick(10)));
    }

    QString componentPlain() {
        return QStringLiteral("%1 %2 %3")
            .arg(stamp().left(19),
                 any({"main: in loop", "scheduler: tick", "request failed with error 42",
                      "pool: worker 3 idle"}),
                 words(pick(6)));
    }

    QStringList stackTrace() {
        QStringList out{QStringLiteral("%1 ERROR %2").arg(stamp(false).left(19), words(4))};
        const int frames = 2 + pick(12);
        for (int i = 0; i < frames; ++i)
            out.append(QStringLiteral("    at %1.%2(%3:%4)")
                           .arg(any({"tls", "net", "proxy", "runtime"}),
                                any({"Handshake", "Dial", "serve", "goexit"}),
                                any({"conn", "dial", "server", "asm_amd64"}))
                           .arg(1 + pick(900)));
        if (pick(3) == 0) out.append(QStringLiteral("main: in loop"));
        return out;
    }

    QString longLine() {
        return QStringLiteral("%1 DEBUG payload: %2").arg(stamp(), words(150 + pick(400)));
    }

    QString unicodeLine() {
        return QStringLiteral("%1 INFO ui: %2 caf\u00e9 \u65e5\u672c\u8a9e \U0001F512 %3")
            .arg(stamp(), words(3), words(3));
    }

    std::mt19937 rng_;
};

}  // namespace varnel::test_support
