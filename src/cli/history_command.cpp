#include "cli/history_command.h"

#include <QRegularExpression>
#include <algorithm>
#include <array>

#include "cli/options.h"
#include "cli/terminal_text.h"
#include "platform/file_system.h"
#include "platform/sandbox.h"
#include "status/status_history.h"

namespace varnel::cli {

namespace {

const char* const historyUsage =
    "Usage: varnelctl history [--json] [--since DURATION] [--service KEY]\n"
    "\n"
    "Prints the status history that Varnel Status keeps while it runs: each change\n"
    "it saw in the overall health, a service's health, the certificates and the\n"
    "latest version, and the state it found at each start, oldest first.\n"
    "\n"
    "Options:\n"
    "  --json              one JSON object a line, as the history file holds them\n"
    "  --since DURATION    only the last DURATION: a number with s, m, h or d, or\n"
    "                      several of them (90m, 1h30m, 2d)\n"
    "  --service KEY       only that service (agent, proxy, sysext, monitor, ...)\n"
    "  -h, --help          show this help\n"
    "\n"
    "The table shows local times, JSON the recorded UTC ones. Lines that cannot be\n"
    "read are skipped and counted on standard error.\n"
    "\n"
    "Exit status: 0 printed (also when there is no history yet), 64 bad usage.\n";

// Far more than a rotated pair of files holds; a file planted larger is read
// from its end, where the newest lines are.
constexpr qsizetype kMaxRead = qsizetype{4} * 1024 * 1024;

std::optional<qint64> durationSeconds(const QString& text) {
    static const QRegularExpression whole(QStringLiteral("^(?:[0-9]{1,6}[smhd])+$"));
    static const QRegularExpression part(QStringLiteral("([0-9]+)([smhd])"));
    if (!whole.match(text).hasMatch()) return std::nullopt;
    qint64 seconds = 0;
    for (const QRegularExpressionMatch& m : part.globalMatch(text)) {
        static const QString units = QStringLiteral("smhd");
        static const std::array<qint64, 4> unitSeconds{1, 60, 3600, 86400};
        seconds += m.captured(1).toLongLong() * unitSeconds[size_t(units.indexOf(m.captured(2)))];
    }
    return seconds;
}

QString healthLabel(const QString& name) {
    for (const Health h :
         {Health::running, Health::stopped, Health::inactive, Health::attention, Health::unknown})
        if (caseName(h) == name) return label(h);
    return name;
}

QString subject(const HistoryRecord& record) {
    if (record.what == u"service") {
        for (const ServiceSpec& spec : SERVICES)
            if (spec.key == record.service) return spec.title;
        return record.service;
    }
    if (record.what == u"overall") return QStringLiteral("Overall");
    if (record.what == u"certificates") return QStringLiteral("Certificates");
    return QStringLiteral("Latest version");
}

QString change(const HistoryRecord& record) {
    const bool version = record.what == u"latestVersion";
    const QString to = version ? record.to : healthLabel(record.to);
    if (record.start) return QStringLiteral("at start: ") + to;
    return (version ? record.from : healthLabel(record.from)) + QStringLiteral(" → ") + to;
}

QString table(const QList<HistoryRecord>& records) {
    QList<std::array<QString, 4>> rows;
    std::array<qsizetype, 3> widths{};
    for (const HistoryRecord& r : records) {
        rows.append({r.timeUtc.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")),
                     terminalSafe(subject(r), Tabs::show), terminalSafe(change(r), Tabs::show),
                     terminalSafe(r.detail, Tabs::show)});
        for (size_t i = 0; i < widths.size(); ++i)
            widths[i] = std::max(widths[i], rows.last()[i].size());
    }
    QString out;
    for (const auto& row : rows) {
        QString line;
        for (size_t i = 0; i < widths.size(); ++i) line += row[i].leftJustified(widths[i] + 2);
        out += (line + row[3]).trimmed() + u'\n';
    }
    return out;
}

}  // namespace

std::optional<QByteArray> readHistoryTail(const QString& path, qsizetype maxBytes, bool& cut) {
    const fs::ReadOnlyFile file(path);
    const fs::FileStamp stamp = file.stamp();
    if (!stamp.present) return std::nullopt;
    cut = stamp.size > quint64(maxBytes);
    const quint64 from = cut ? stamp.size - quint64(maxBytes) : 0;
    QByteArray bytes(cut ? maxBytes : qsizetype(stamp.size), Qt::Uninitialized);
    const qsizetype got = file.readAt(from, bytes.data(), bytes.size());
    if (got < 0) return std::nullopt;
    bytes.truncate(got);
    // Reading from the middle of a line would count it as damaged.
    if (cut) bytes.remove(0, bytes.indexOf('\n') + 1);
    return bytes;
}

int historyCommand(const QStringList& args, Io& io) {
    Options options(QStringLiteral("history"), historyUsage);
    options.flag(QStringLiteral("json"));
    options.valued(QStringLiteral("since"), QStringLiteral("DURATION"));
    options.valued(QStringLiteral("service"), QStringLiteral("KEY"));
    if (const auto stop = options.parse(args, io)) return *stop;
    if (!options.positional().isEmpty())
        return options.usageError(io, QStringLiteral("history takes no arguments"));

    std::optional<qint64> since;
    if (options.isSet(QStringLiteral("since"))) {
        since = durationSeconds(options.value(QStringLiteral("since")));
        if (!since)
            return options.usageError(
                io, QStringLiteral("\"%1\" is not a duration such as 30m, 1h30m or 2d")
                        .arg(terminalSafe(options.value(QStringLiteral("since")))));
    }
    const QString service = options.value(QStringLiteral("service"));
    if (options.isSet(QStringLiteral("service"))) {
        QStringList keys;
        for (const ServiceSpec& spec : SERVICES) keys << spec.key;
        if (!keys.contains(service))
            return options.usageError(io, QStringLiteral("unknown service \"%1\" (%2)")
                                              .arg(terminalSafe(service), keys.join(u", ")));
    }

    const QDateTime now = QDateTime::currentDateTimeUtc();
    QList<HistoryRecord> records;
    bool anyFile = false;
    for (const QString& path : {previousHistoryPath(), historyPath()}) {
        bool cut = false;
        const auto bytes = readHistoryTail(path, kMaxRead, cut);
        if (!bytes) continue;
        anyFile = true;
        const QString shown = terminalSafe(sandbox::hostPath(path));
        if (cut) io.err << "varnelctl history: " << shown << " is large; only its end was read\n";
        const HistoryText text = parseHistory(*bytes);
        if (text.unreadable > 0)
            io.err << "varnelctl history: skipped " << text.unreadable << " unreadable line"
                   << (text.unreadable == 1 ? "" : "s") << " of " << shown << '\n';
        for (const HistoryRecord& record : text.records) {
            if (since && record.timeUtc.secsTo(now) > *since) continue;
            if (!service.isEmpty() && record.service != service) continue;
            records.append(record);
        }
    }
    if (!anyFile)
        io.err << "varnelctl history: no history yet at "
               << terminalSafe(sandbox::hostPath(historyPath())) << '\n';

    if (options.isSet(QStringLiteral("json"))) {
        for (const HistoryRecord& record : records)
            io.out << QString::fromUtf8(historyLine(record));
    } else {
        io.out << table(records);
    }
    return flushOut(io, "history") ? exitOk : exitFailure;
}

}  // namespace varnel::cli
