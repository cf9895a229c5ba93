#include "cli/logs_command.h"

#include <poll.h>
#include <signal.h>
#include <sys/select.h>
#include <unistd.h>

#include <QFile>
#include <cerrno>
#include <optional>

#include "cli/log_output.h"
#include "cli/options.h"
#include "cli/terminal_text.h"
#include "logs/log_filter.h"
#include "logs/log_merge.h"
#include "logs/log_parser.h"
#include "logs/log_reader.h"
#include "logs/log_registry.h"
#include "logs/log_rows.h"
#include "logs/log_stream.h"
#include "logs/log_tail.h"
#include "logs/log_text.h"
#include "logs/utf8.h"

namespace varnel::cli {

namespace {

const char* const logsUsage =
    "Usage: varnelctl logs list [--json]\n"
    "       varnelctl logs parse [FILE|-]\n"
    "       varnelctl logs show [--level LEVEL] [--search TEXT] [--json] [--follow]\n"
    "                           [PATH | hint:FRAGMENT]\n"
    "       varnelctl logs show --all [--level LEVEL] [--search TEXT] [--json]\n"
    "\n"
    "The suite's logs, as the log viewer shows them.\n"
    "\n"
    "  list             every log found now: title, a tab and its path per line\n"
    "  parse            each line of FILE (or standard input) taken apart, as JSON lines\n"
    "  show             the rows of one log (the first one found when none is named);\n"
    "                   hint:FRAGMENT names the first log whose file name holds FRAGMENT\n"
    "  show --all       the rows of every log found, merged by time, each with its log's\n"
    "                   title (text: the first column; JSON: \"log\")\n"
    "\n"
    "Options:\n"
    "  --json           JSON instead of text (list: an array; show: one object per row)\n"
    "  --level LEVEL    only rows of this level: ERROR, FATAL, WARN, INFO, DEBUG, TRACE\n"
    "                   or all (the default)\n"
    "  --search TEXT    only rows whose time, level, source or message holds TEXT,\n"
    "                   ignoring case\n"
    "  --follow         keep printing rows as the log grows, across rotations, until\n"
    "                   interrupted; a line is printed once it is whole\n"
    "  -h, --help       show this help\n"
    "\n"
    "The line counts of show go to standard error. Colours only on a terminal without NO_COLOR.\n"
    "Text output shows control characters as pictures (ESC as \u241B) instead of sending them.\n";

constexpr quint64 kTailBytes = 4'000'000;

Options logsOptions() {
    return Options(QStringLiteral("logs"), logsUsage);
}

constexpr const char* kCommand = "logs";

void note(Io& io, const QString& text) {
    io.err << "varnelctl logs: " << terminalSafe(text) << '\n';
    io.err.flush();
}

// ----- list -----

int listLogs(const QStringList& args, Io& io) {
    Options options = logsOptions();
    options.flag(QStringLiteral("json"));
    if (const auto stop = options.parse(args, io)) return *stop;
    if (!options.positional().isEmpty())
        return options.usageError(io, QStringLiteral("list takes no arguments"));
    const bool json = options.isSet(QStringLiteral("json"));
    const QList<LogSource> sources = LogRegistry::discover();
    if (!json) {
        // A tab or a line feed in a name would forge a column or a line.
        for (const LogSource& source : sources)
            io.out << terminalSafe(source.title, Tabs::show) << '\t'
                   << terminalSafe(source.path, Tabs::show) << '\n';
        return flushOut(io, kCommand) ? exitOk : exitFailure;
    }
    io.out << '[';
    for (qsizetype i = 0; i < sources.size(); ++i) {
        io.out << (i == 0 ? "\n  " : ",\n  ") << "{\"title\":" << jsonString(sources[i].title)
               << ",\"path\":" << jsonString(sources[i].path) << '}';
    }
    io.out << (sources.isEmpty() ? "]\n" : "\n]\n");
    return flushOut(io, kCommand) ? exitOk : exitFailure;
}

// ----- parse -----

// One line of `logs parse`: read as the whole input decoded as UTF-8 would
// read it (U+FFFD for bytes that are not UTF-8, U+FEFF kept), then parsed.
class LineParser {
public:
    void parse(QByteArrayView line, TextBuffer& out) {
        const utf8::LineScan scan = utf8::scanLine(line.data(), 0, line.size());
        QUtf8StringView text(line.data(), line.size());
        if (!scan.ascii && !line.isValidUtf8()) {
            repaired_ = utf8::encode(utf8::decodeKeepingMarks(line));
            text = QUtf8StringView(repaired_);
        }
        side_.truncate(0);
        const LogParser::Spans s = parser_.parse(
            text, {scan.ascii && text.data() == line.data(), scan.escape || !scan.ascii, false},
            side_);
        const QUtf8StringView side(side_.data(), side_.size());
        const auto field = [&](const LogParser::Span& span) {
            return LogParser::resolve(span, text, side);
        };
        appendRowJson(
            out, {field(s.time), field(s.level), field(s.source), field(s.message), field(s.raw)});
    }

private:
    LogParser::Parser parser_;
    ByteStore side_{4096};
    QByteArray repaired_;
};

int parseLines(const QStringList& args, Io& io) {
    Options options = logsOptions();
    if (const auto stop = options.parse(args, io)) return *stop;
    const QStringList files = options.positional();
    if (files.size() > 1)
        return options.usageError(io, QStringLiteral("parse takes one FILE at most"));
    const QString name = files.value(0, QStringLiteral("-"));

    // A user's own file, named as on this machine: not looked up in the suite.
    QFile file;
    const bool opened =
        name == QStringLiteral("-")
            ? file.open(STDIN_FILENO, QIODevice::ReadOnly | QIODevice::Unbuffered)
            : (file.setFileName(name), file.open(QIODevice::ReadOnly | QIODevice::Unbuffered));
    if (!opened) {
        note(io, QStringLiteral("cannot read %1: %2").arg(name, file.errorString()));
        return exitFailure;
    }

    // Read and written a piece at a time, so memory stays the same whatever
    // the input's size. A line is held whole up to kMaxLine bytes, as much as
    // a log's tail; a longer one (or input that never ends its line) goes on
    // in pieces of that size, as a followed log's does, and loses no byte.
    constexpr qsizetype kPiece = qsizetype(1) << 20;
    constexpr qsizetype kMaxLine = qsizetype(kTailBytes);
    ByteOutput output(io, kCommand);
    LineParser parser;
    QByteArray pending;  // the start of a line whose end is still to be read
    qsizetype lineStart = 0;
    qsizetype searched = 0;    // no line feed in pending before this
    qsizetype lineNumber = 1;  // of the line that starts at lineStart
    bool inPieces = false;     // that line is already being parsed in pieces
    bool atStart = true;
    // Parses the line at lineStart, which runs to `end` or beyond, a piece of
    // kMaxLine bytes at a time until no more than that is left of it; false
    // when the output failed. A piece ends before a character, never inside one.
    const auto pieces = [&](qsizetype end) {
        for (; end - lineStart > kMaxLine; inPieces = true) {
            if (!inPieces)
                note(io, QStringLiteral("line %1 is longer than %2 bytes; it is parsed in "
                                        "pieces of that size.")
                             .arg(lineNumber)
                             .arg(kMaxLine));
            const char* piece = pending.constData() + lineStart;
            qsizetype size = kMaxLine;
            for (int back = 0; back < 3 && (uchar(piece[size]) & 0xC0) == 0x80; ++back) --size;
            parser.parse(QByteArrayView(piece, size), output.buffer());
            lineStart += size;
            if (!output.pass()) return false;
        }
        return true;
    };
    while (true) {
        const qsizetype kept = pending.size() - lineStart;
        if (lineStart > 0) pending.remove(0, lineStart);
        searched = qMax<qsizetype>(searched - lineStart, 0);
        lineStart = 0;
        pending.resize(kept + kPiece);
        const qint64 got = file.read(pending.data() + kept, kPiece);
        if (got < 0) {
            note(io, QStringLiteral("cannot read %1: %2").arg(name, file.errorString()));
            output.flush();
            return exitFailure;
        }
        pending.truncate(kept + qsizetype(got));
        if (atStart && (pending.size() >= 3 || got == 0)) {
            // A byte-order mark at the very start is no character of the first line.
            if (pending.startsWith("\xEF\xBB\xBF")) lineStart = 3;
            atStart = false;
        }
        if (got == 0) break;
        if (atStart) continue;
        // A long line is searched once, not again with every piece read.
        for (qsizetype lineFeed = pending.indexOf('\n', qMax(lineStart, searched)); lineFeed >= 0;
             lineFeed = pending.indexOf('\n', lineStart)) {
            if (!pieces(lineFeed)) return exitFailure;
            parser.parse(QByteArrayView(pending).sliced(lineStart, lineFeed - lineStart),
                         output.buffer());
            lineStart = lineFeed + 1;
            ++lineNumber;
            inPieces = false;
            if (!output.pass()) return exitFailure;
        }
        searched = pending.size();
        if (!pieces(pending.size())) return exitFailure;
    }
    // A final line feed ends a line; it starts none.
    if (lineStart < pending.size())
        parser.parse(QByteArrayView(pending).sliced(lineStart), output.buffer());
    return output.flush() ? exitOk : exitFailure;
}

// ----- show -----

struct ShowOptions {
    RowFilter filter;
    bool json = false;
    bool follow = false;
    bool all = false;
    std::optional<QString> target;
};

std::optional<LevelChoice> levelChoice(const QString& value) {
    if (value.compare(QStringLiteral("all"), Qt::CaseInsensitive) == 0) return LevelChoice::all;
    for (const LevelChoice choice : levelChoices())
        if (choice != LevelChoice::all &&
            QStringView(value).compare(levelChoiceTitle(choice), Qt::CaseInsensitive) == 0)
            return choice;
    return std::nullopt;
}

class RowPrinter {
public:
    RowPrinter(Io& io, bool json)
        : out_(io, kCommand), json_(json), text_(wantColour(io.outIsTerminal)) {}

    // False when the output could not be written.
    bool print(const LogStream::Items& items) {
        if (items.isEmpty()) return true;
        if (!json_)
            for (const LogStream::Item& item : items.list) text_.fit(item.row);
        for (const LogStream::Item& item : items.list) {
            if (json_)
                appendRowJson(out_.buffer(), item.row);
            else if (item.kind == LogStream::Item::Kind::continuation)
                text_.continuation(out_.buffer(), utf8::trimBlanks(item.row.message));
            else
                text_.row(out_.buffer(), item.row);
            if (!out_.pass()) return false;
        }
        return out_.flush();
    }

    // The rows of a whole load at once: those `shown` lists from its position
    // `from` up to `to`, or, without a list, rows from..to themselves. Rows of
    // several logs with the title of each one's log (`titles` by log, `logOf`
    // by row).
    bool print(const LogRows& rows, const QList<qsizetype>* shown, qsizetype from, qsizetype to,
               const QList<QByteArray>* titles = nullptr, const QList<qint32>* logOf = nullptr) {
        const auto index = [&](qsizetype at) { return shown ? shown->at(at) : at; };
        const auto log = [&](qsizetype i) {
            return titles ? QByteArrayView(titles->at(logOf->at(i))) : QByteArrayView();
        };
        if (!json_)
            for (qsizetype at = from; at < to; ++at) {
                const qsizetype i = index(at);
                text_.fit(rows[i], log(i));
            }
        for (qsizetype at = from; at < to; ++at) {
            const qsizetype i = index(at);
            if (json_)
                appendRowJson(out_.buffer(), rows[i], log(i));
            else
                text_.row(out_.buffer(), rows[i], log(i));
            if (!out_.pass()) return false;
        }
        return out_.flush();
    }

private:
    ByteOutput out_;
    bool json_;
    RowFormatter text_;
};

// What the reader found, said on standard error.
void noteEvent(Io& io, LogReader::Event event, const QString& path) {
    switch (event) {
        case LogReader::Event::none:
            break;
        case LogReader::Event::gone:
            note(io, path + QStringLiteral(" was removed; reading on what it held until a new "
                                           "file takes its place."));
            break;
        case LogReader::Event::replaced:
            note(io, path + QStringLiteral(" was replaced; reading the new file from its start."));
            break;
        case LogReader::Event::truncated:
            note(io, path + QStringLiteral(" was cut short; the lines before the cut came from ") +
                         path + QStringLiteral(".1. Reading it from its start."));
            break;
        case LogReader::Event::truncatedWithLoss:
            note(io, path + QStringLiteral(" was cut short; lines written just before may be "
                                           "missing. Reading it from its start."));
            break;
    }
}

// Blocks SIGINT and SIGTERM except while waiting, so that one that arrives
// while printing ends the next wait at once, and nothing global is needed to
// notice it.
class StopSignals {
public:
    StopSignals() {
        sigset_t stop;
        sigemptyset(&stop);
        sigaddset(&stop, SIGINT);
        sigaddset(&stop, SIGTERM);
        sigprocmask(SIG_BLOCK, &stop, &previousMask_);
        struct sigaction wake {};
        wake.sa_handler = [](int) {};
        sigemptyset(&wake.sa_mask);
        sigaction(SIGINT, &wake, &previousInt_);
        sigaction(SIGTERM, &wake, &previousTerm_);
        waitMask_ = previousMask_;
        sigdelset(&waitMask_, SIGINT);
        sigdelset(&waitMask_, SIGTERM);
    }
    ~StopSignals() {
        sigaction(SIGINT, &previousInt_, nullptr);
        sigaction(SIGTERM, &previousTerm_, nullptr);
        sigprocmask(SIG_SETMASK, &previousMask_, nullptr);
    }
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    // False when asked to stop.
    bool wait(const timespec& interval) const {
        return !(::pselect(0, nullptr, nullptr, nullptr, &interval, &waitMask_) < 0 &&
                 errno == EINTR);
    }

private:
    sigset_t previousMask_{};
    sigset_t waitMask_{};
    struct sigaction previousInt_ {};
    struct sigaction previousTerm_ {};
};

// The reader of a pipe on standard output went away: whatever is written
// from now on is lost, and a quiet log would keep the follower waiting for
// nothing. Closed terminals and descriptors count too.
bool outputGone() {
    pollfd out{STDOUT_FILENO, 0, 0};
    return ::poll(&out, 1, 0) > 0 && (out.revents & (POLLERR | POLLHUP | POLLNVAL)) != 0;
}

// Reads on from where the first rows ended, every second, until SIGINT or
// SIGTERM; however much arrives, it goes through in bounded pieces.
int follow(LogReader& reader, LogStream& stream, RowPrinter& printer, Io& io) {
    constexpr qsizetype kPiece = qsizetype(256) * 1024;
    const StopSignals stop;
    while (stop.wait(timespec{1, 0})) {
        if (outputGone()) {
            reportLostOutput(io, kCommand, QStringLiteral("its reader is gone"));
            return exitFailure;
        }
        bool quiet = true;
        LogReader::Chunk chunk;
        do {
            chunk = reader.next(kPiece);
            if (chunk.event != LogReader::Event::none) {
                quiet = false;
                // Rows of another file, or of the file from its start, never
                // fold into the rows before.
                if (chunk.event != LogReader::Event::gone && !printer.print(stream.end()))
                    return exitFailure;
                noteEvent(io, chunk.event, reader.path());
            }
            if (!chunk.text.isEmpty()) {
                quiet = false;
                if (!printer.print(stream.add(chunk.text))) return exitFailure;
            }
        } while (chunk.more);
        if (quiet && !printer.print(stream.quiet())) return exitFailure;
    }
    return printer.print(stream.end()) ? exitOk : exitFailure;
}

// Every log's rows, merged by time, as the log window's "All logs" shows them.
int showAllLogs(const ShowOptions& options, Io& io) {
    const QList<LogSource> sources = LogRegistry::discover();
    if (sources.isEmpty()) {
        io.err << "No Varnel logs found yet.\n";
        return exitFailure;
    }
    AllLogs all(sources, kTailBytes);
    all.load();
    const MergedRows& merged = all.merged();
    QList<QByteArray> titles;
    for (const LogSource& source : sources) titles.append(utf8::encode(source.title));

    RowPrinter printer(io, options.json);
    const QList<qsizetype> shown = filterRows(merged.rows, options.filter);
    const qsizetype total = shown.size();
    // As for one log, JSON readers get the last row after the status line.
    const qsizetype before =
        options.json && total > 0 && shown.last() == merged.rows.size() - 1 ? total - 1 : total;
    if (!printer.print(merged.rows, &shown, 0, before, &titles, &merged.logOf)) return exitFailure;
    io.err << terminalSafe(allLogsStatusLine(total, merged.rows.size(), all.truncatedCount(),
                                             sources.size()))
           << '\n';
    io.err.flush();
    return printer.print(merged.rows, &shown, before, total, &titles, &merged.logOf) ? exitOk
                                                                                     : exitFailure;
}

int showLog(const QStringList& args, Io& io) {
    Options parsed = logsOptions();
    for (const char* flag : {"json", "follow", "all"}) parsed.flag(QLatin1String(flag));
    parsed.valued(QStringLiteral("level"), QStringLiteral("LEVEL"));
    parsed.valued(QStringLiteral("search"), QStringLiteral("TEXT"));
    if (const auto stop = parsed.parse(args, io)) return *stop;

    ShowOptions options;
    options.json = parsed.isSet(QStringLiteral("json"));
    options.follow = parsed.isSet(QStringLiteral("follow"));
    options.filter.search = parsed.value(QStringLiteral("search"));
    if (parsed.isSet(QStringLiteral("level"))) {
        const auto choice = levelChoice(parsed.value(QStringLiteral("level")));
        if (!choice)
            return parsed.usageError(io, QStringLiteral("--level takes one of ERROR, FATAL, WARN, "
                                                        "INFO, DEBUG, TRACE or all"));
        options.filter.level = *choice;
    }
    const QStringList targets = parsed.positional();
    if (targets.size() > 1)
        return parsed.usageError(io, QStringLiteral("show takes one log at most"));
    if (!targets.isEmpty()) options.target = targets.first();
    options.all = parsed.isSet(QStringLiteral("all"));
    if (options.all && options.target)
        return parsed.usageError(io, QStringLiteral("--all takes no log: it shows every one"));
    if (options.all && options.follow)
        return parsed.usageError(io, QStringLiteral("--all cannot be followed; follow one log"));
    if (options.all) return showAllLogs(options, io);

    std::optional<QString> path =
        options.target ? LogRegistry::resolve(*options.target) : std::nullopt;
    if (!path) {
        const QList<LogSource> sources = LogRegistry::discover();
        if (sources.isEmpty()) {
            io.err << "No Varnel logs found yet.\n";
            return exitFailure;
        }
        if (const auto fragment =
                options.target ? LogRegistry::hintFragment(*options.target) : std::nullopt)
            note(io, QStringLiteral("no log's file name holds \"%1\"; showing %2.")
                         .arg(*fragment, sources.first().path));
        path = sources.first().path;
    }

    RowPrinter printer(io, options.json);
    const auto status = [&](qsizetype shown, qsizetype total, const LogTail& tail) {
        io.err << terminalSafe(statusLine(shown, total, tail.truncated && !tail.error, *path))
               << '\n';
        io.err.flush();
    };
    if (!options.follow) {
        // The rows a stream would hand on, without one. JSON readers get each
        // row once it is whole, so the last row follows the status line, as
        // it does when following.
        const LogTail tail = readLogTail(*path);
        const LogRows rows =
            tail.error ? LogRows::fromError(*tail.error) : LogRows::build(tail.text);
        // Without a filter every row is shown: counted rather than listed.
        const bool everyRow =
            options.filter.search.isEmpty() && options.filter.level == LevelChoice::all;
        const QList<qsizetype> filtered =
            everyRow ? QList<qsizetype>() : filterRows(rows, options.filter);
        const QList<qsizetype>* shown = everyRow ? nullptr : &filtered;
        const qsizetype total = everyRow ? rows.size() : filtered.size();
        const bool holdLast =
            options.json && total > 0 && (everyRow || filtered.last() == rows.size() - 1);
        const qsizetype before = holdLast ? total - 1 : total;
        if (!printer.print(rows, shown, 0, before)) return exitFailure;
        status(total, rows.size(), tail);
        const bool printed = printer.print(rows, shown, before, total);
        return printed && !tail.error ? exitOk : exitFailure;
    }

    // Followed, only whole lines are shown: an unfinished last line waits for its line feed.
    LogReader reader(*path);
    const LogTail tail = reader.start(kTailBytes);
    const LogRows rows =
        tail.error ? LogRows::fromError(*tail.error)
                   : LogRows::build(tail.text.left(tail.text.bytes().lastIndexOf('\n') + 1));

    // JSON readers get each row once, whole; people see rows at once.
    LogStream stream(options.filter,
                     options.json ? LogStream::Rows::whole : LogStream::Rows::atOnce);
    const LogStream::Batch first = stream.start(rows);
    if (!printer.print(first.items)) return exitFailure;
    status(first.shown, first.total, tail);
    if (tail.error) {
        printer.print(stream.end());
        return exitFailure;
    }
    return follow(reader, stream, printer, io);
}

}  // namespace

int logsCommand(const QStringList& args, Io& io) {
    const QString sub = args.value(0);
    const QStringList rest = args.mid(1);
    if (sub == QStringLiteral("list")) return listLogs(rest, io);
    if (sub == QStringLiteral("parse")) return parseLines(rest, io);
    if (sub == QStringLiteral("show")) return showLog(rest, io);
    Options options = logsOptions();
    if (const auto stop = options.parse(args, io)) return *stop;
    if (sub.isEmpty())
        return options.usageError(io, QStringLiteral("which one: list, parse or show?"));
    return options.usageError(io, QStringLiteral("unknown subcommand \"%1\"").arg(sub));
}

}  // namespace varnel::cli
