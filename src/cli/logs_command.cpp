#include "cli/logs_command.h"

#include <signal.h>
#include <sys/select.h>

#include <QFile>
#include <cerrno>
#include <optional>

#include "cli/log_follower.h"
#include "cli/log_output.h"
#include "cli/options.h"
#include "logs/log_parser.h"
#include "logs/log_registry.h"
#include "logs/log_rows.h"
#include "logs/log_tail.h"
#include "platform/file_system.h"
#include "platform/sandbox.h"

namespace varnel::cli {

namespace {

const char* const usage =
    "Usage: varnelctl logs list [--json]\n"
    "       varnelctl logs parse [FILE|-]\n"
    "       varnelctl logs show [--level LEVEL] [--search TEXT] [--json] [--follow]\n"
    "                           [PATH | hint:FRAGMENT]\n"
    "\n"
    "The suite's logs, as the log viewer shows them.\n"
    "\n"
    "  list             every log found now: title, a tab and its path per line\n"
    "  parse            each line of FILE (or standard input) taken apart, as JSON lines\n"
    "  show             the rows of one log (the first one found when none is named);\n"
    "                   hint:FRAGMENT names the first log whose file name holds FRAGMENT\n"
    "\n"
    "Options:\n"
    "  --json           JSON instead of text (list: an array; show: one object per row)\n"
    "  --level LEVEL    only rows of this level: ERROR, FATAL, WARN, INFO, DEBUG, TRACE\n"
    "                   or all (the default)\n"
    "  --search TEXT    only rows whose time, level, source or message holds TEXT,\n"
    "                   ignoring case\n"
    "  --follow         keep printing rows as the log grows, until interrupted\n"
    "  -h, --help       show this help\n"
    "\n"
    "The line counts of show go to standard error. Colours only on a terminal without NO_COLOR.\n";

Options logsOptions() {
    return Options(QStringLiteral("logs"), usage);
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
        for (const LogSource& source : sources)
            io.out << source.title << '\t' << source.path << '\n';
        return exitOk;
    }
    io.out << '[';
    for (qsizetype i = 0; i < sources.size(); ++i) {
        io.out << (i == 0 ? "\n  " : ",\n  ") << "{\"title\":" << jsonString(sources[i].title)
               << ",\"path\":" << jsonString(sources[i].path) << '}';
    }
    io.out << (sources.isEmpty() ? "]\n" : "\n]\n");
    return exitOk;
}

// ----- parse -----

int parseLines(const QStringList& args, Io& io) {
    Options options = logsOptions();
    if (const auto stop = options.parse(args, io)) return *stop;
    const QStringList files = options.positional();
    if (files.size() > 1)
        return options.usageError(io, QStringLiteral("parse takes one FILE at most"));
    const QString name = files.value(0, QStringLiteral("-"));

    // A user's own file, named as on this machine: not looked up in the suite.
    QFile file;
    const bool opened = name == QStringLiteral("-")
                            ? file.open(stdin, QIODevice::ReadOnly)
                            : (file.setFileName(name), file.open(QIODevice::ReadOnly));
    if (!opened) {
        io.err << "varnelctl logs: cannot read " << name << ": " << file.errorString() << '\n';
        return exitFailure;
    }
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        io.err << "varnelctl logs: cannot read " << name << ": " << file.errorString() << '\n';
        return exitFailure;
    }
    const QString text = QString::fromUtf8(bytes);

    QStringView rest(text);
    if (rest.endsWith(u'\n')) rest.chop(1);  // a final line feed ends a line, it starts none
    if (text.isEmpty()) return exitOk;
    for (QStringView line : rest.split(u'\n')) io.out << rowJson(LogParser::parse(line)) << '\n';
    return exitOk;
}

// ----- show -----

struct ShowOptions {
    QString level = levelChoices().first();
    QString search;
    bool json = false;
    bool follow = false;
    std::optional<QString> target;
};

std::optional<QString> levelChoice(const QString& value) {
    if (value.compare(QStringLiteral("all"), Qt::CaseInsensitive) == 0)
        return levelChoices().first();
    for (const QString& choice : levelChoices())
        if (value.compare(choice, Qt::CaseInsensitive) == 0) return choice;
    return std::nullopt;
}

class RowPrinter {
public:
    RowPrinter(Io& io, bool json) : io_(io), json_(json), text_(wantColour(io.outIsTerminal)) {}

    void print(const QList<FollowItem>& items) {
        for (const FollowItem& item : items) text_.fit(item.row);
        for (const FollowItem& item : items) {
            if (json_)
                io_.out << rowJson(item.row) << '\n';
            else if (item.kind == FollowItem::Kind::continuation)
                io_.out << text_.continuation(QStringLiteral("\u27F6  ") + item.row.message);
            else
                io_.out << text_.row(item.row);
        }
        io_.out.flush();
    }

private:
    Io& io_;
    bool json_;
    RowFormatter text_;
};

void printStatus(Io& io, const FollowStep& step, const QString& path) {
    io.err << statusLine(step.shown, step.total, step.truncated, path) << '\n';
    io.err.flush();
}

// Polls the log until SIGINT or SIGTERM. The two signals stay blocked except while waiting,
// so one that arrives while printing ends the next wait at once, and nothing global is needed
// to notice it.
void follow(const QString& path, fs::FileStamp last, LogFollower& follower, RowPrinter& printer,
            Io& io) {
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    sigset_t previousMask;
    sigprocmask(SIG_BLOCK, &stopSignals, &previousMask);
    struct sigaction wake {};
    wake.sa_handler = [](int) {};
    sigemptyset(&wake.sa_mask);
    struct sigaction previousInt {
    }, previousTerm{};
    sigaction(SIGINT, &wake, &previousInt);
    sigaction(SIGTERM, &wake, &previousTerm);
    sigset_t waitMask = previousMask;
    sigdelset(&waitMask, SIGINT);
    sigdelset(&waitMask, SIGTERM);

    for (;;) {
        const timespec interval{1, 0};
        if (::pselect(0, nullptr, nullptr, nullptr, &interval, &waitMask) < 0 && errno == EINTR)
            break;
        const fs::FileStamp now = fs::stamp(path);
        if (now == last) continue;
        const bool replaced =
            last.present && now.present &&
            (now.device != last.device || now.inode != last.inode || now.size < last.size);
        last = now;

        const FollowStep step = follower.update(readLogTail(path), replaced);
        if (step.kind == FollowStep::Kind::restart) {
            io.err << "varnelctl logs: " << path
                   << " was replaced or cut short; reading it again.\n";
            printStatus(io, step, path);
        }
        printer.print(step.items);
    }

    sigaction(SIGINT, &previousInt, nullptr);
    sigaction(SIGTERM, &previousTerm, nullptr);
    sigprocmask(SIG_SETMASK, &previousMask, nullptr);
}

int showLog(const QStringList& args, Io& io) {
    Options parsed = logsOptions();
    for (const char* flag : {"json", "follow"}) parsed.flag(QLatin1String(flag));
    parsed.valued(QStringLiteral("level"), QStringLiteral("LEVEL"));
    parsed.valued(QStringLiteral("search"), QStringLiteral("TEXT"));
    if (const auto stop = parsed.parse(args, io)) return *stop;

    ShowOptions options;
    options.json = parsed.isSet(QStringLiteral("json"));
    options.follow = parsed.isSet(QStringLiteral("follow"));
    options.search = parsed.value(QStringLiteral("search"));
    if (parsed.isSet(QStringLiteral("level"))) {
        const auto choice = levelChoice(parsed.value(QStringLiteral("level")));
        if (!choice)
            return parsed.usageError(io, QStringLiteral("--level takes one of ERROR, FATAL, WARN, "
                                                        "INFO, DEBUG, TRACE or all"));
        options.level = *choice;
    }
    const QStringList targets = parsed.positional();
    if (targets.size() > 1)
        return parsed.usageError(io, QStringLiteral("show takes one log at most"));
    if (!targets.isEmpty()) options.target = targets.first();

    const QString hintPrefix = QStringLiteral("hint:");
    std::optional<QString> path;
    if (options.target && !options.target->startsWith(hintPrefix)) {
        path = options.target;
    } else {
        if (options.target) path = LogRegistry::newest(options.target->mid(hintPrefix.size()));
        if (!path) {
            const QList<LogSource> sources = LogRegistry::discover();
            if (sources.isEmpty()) {
                io.err << "No Varnel logs found yet.\n";
                return exitFailure;
            }
            if (options.target)
                io.err << "varnelctl logs: no log's file name holds \""
                       << options.target->mid(hintPrefix.size()) << "\"; showing "
                       << sources.first().path << ".\n";
            path = sources.first().path;
        }
    }

    LogFollower follower(options.level, options.search);
    RowPrinter printer(io, options.json);
    // Taken before the read, so that whatever is written meanwhile shows up at the first poll.
    const fs::FileStamp before = fs::stamp(*path);
    const FollowStep first = follower.start(readLogTail(*path));
    printer.print(first.items);
    printStatus(io, first, *path);
    if (first.kind == FollowStep::Kind::failed) return exitFailure;
    if (options.follow) follow(*path, before, follower, printer, io);
    return exitOk;
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
