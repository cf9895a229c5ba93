#include "logs/log_merge.h"

#include <QHash>
#include <QSet>
#include <QThread>
#include <QThreadPool>
#include <functional>

#include "logs/row_search.h"
#include "logs/row_time.h"
#include "platform/background.h"

namespace varnel {

namespace {

// What one log may hold so that every log's bytes still fit the merged rows'
// offsets, with room to spare for the records' own accounting.
constexpr qsizetype kMergedBytes = (qsizetype(1) << 30) - (qsizetype(1) << 20);

QString logCount(qsizetype n) {
    return n == 1 ? QStringLiteral("1 log") : QStringLiteral("%1 logs").arg(n);
}

}  // namespace

MergedRows mergeRows(const QList<LogRows>& logs, QThreadPool* lane) {
    QList<LogRows> kept;
    QList<qint32> keptIndex;
    qsizetype bytes = 0;
    for (qsizetype i = 0; i < logs.size(); ++i) {
        bytes += logs[i].memoryBytes();
        if (bytes > kMergedBytes) break;
        kept.append(logs[i]);
        keptIndex.append(qint32(i));
    }

    struct Head {
        QList<Instant> instants;
        qint32 next = 0;
    };
    std::vector<Head> heads(size_t(kept.size()));
    std::vector<std::function<void()>> reads;
    qsizetype total = 0;
    for (qsizetype i = 0; i < kept.size(); ++i) {
        reads.push_back([&, i] { heads[size_t(i)].instants = rowInstants(kept[i]); });
        total += kept[i].size();
    }
    if (lane)
        allAtOnce(*lane, reads);
    else
        for (const auto& read : reads) read();

    std::vector<LogRows::Pick> picks;
    picks.reserve(size_t(total));
    MergedRows merged;
    merged.logOf.reserve(total);
    merged.instants.reserve(total);
    // The logs are few, so looking at every head costs less than keeping them
    // in a heap; the strict comparison lets the earlier log win a tie.
    while (qsizetype(picks.size()) < total) {
        qint32 best = -1;
        Instant bestInstant = 0;
        for (qint32 i = 0; i < qint32(heads.size()); ++i) {
            const Head& head = heads[size_t(i)];
            if (head.next >= head.instants.size()) continue;
            const Instant at = head.instants[head.next];
            if (best < 0 || at < bestInstant) {
                best = i;
                bestInstant = at;
            }
        }
        Head& head = heads[size_t(best)];
        // Rows of one log with one instant go on together: a line without a
        // time never gets parted from the row it was written after.
        do {
            picks.push_back({best, head.next});
            merged.logOf.append(keptIndex[best]);
            merged.instants.append(bestInstant);
            ++head.next;
        } while (head.next < head.instants.size() && head.instants[head.next] == bestInstant);
    }
    merged.rows = LogRows::gathered(kept, picks, lane);
    return merged;
}

QList<qsizetype> rowsInNewMerge(const QList<qint32>& before, const QList<qint32>& after,
                                const QList<LogFollowChange>& changes,
                                const QList<qsizetype>& rows) {
    // A row is the k-th of its log in either merge; only its log's own
    // change moves k.
    const auto countIn = [](const QList<qint32>& logOf) {
        qint32 logs = 0;
        for (const qint32 log : logOf) logs = std::max(logs, log + 1);
        return logs;
    };
    std::vector<qsizetype> seen(size_t(countIn(before)), 0);
    QHash<qsizetype, std::pair<qint32, qsizetype>> wanted;  // old row -> (log, k)
    QSet<qsizetype> asked(rows.cbegin(), rows.cend());
    for (qsizetype i = 0; i < before.size(); ++i) {
        const qint32 log = before[i];
        if (asked.contains(i)) wanted.insert(i, {log, seen[size_t(log)]});
        ++seen[size_t(log)];
    }

    QHash<std::pair<qint32, qsizetype>, qsizetype> found;  // (log, new k) -> new row
    for (const auto& [log, k] : std::as_const(wanted)) {
        const LogFollowChange change = changes.value(log);
        if (change.kind == LogFollowChange::Kind::reloaded || k < change.dropped) continue;
        found.insert({log, k - change.dropped + change.rederived}, -1);
    }
    std::vector<qsizetype> seenAfter(size_t(countIn(after)), 0);
    for (qsizetype i = 0; i < after.size() && !found.isEmpty(); ++i) {
        const qint32 log = after[i];
        if (const auto at = found.find({log, seenAfter[size_t(log)]}); at != found.end()) *at = i;
        ++seenAfter[size_t(log)];
    }

    QList<qsizetype> out;
    out.reserve(rows.size());
    for (const qsizetype row : rows) {
        const auto where = wanted.constFind(row);
        if (where == wanted.cend()) {
            out.append(-1);
            continue;
        }
        const auto [log, k] = *where;
        const LogFollowChange change = changes.value(log);
        out.append(change.kind == LogFollowChange::Kind::reloaded || k < change.dropped
                       ? -1
                       : found.value({log, k - change.dropped + change.rederived}, -1));
    }
    return out;
}

AllLogs::AllLogs(QList<LogSource> sources, quint64 maxBytes)
    : sources_(std::move(sources)), lane_(std::make_unique<QThreadPool>()) {
    lane_->setMaxThreadCount(std::max(1, QThread::idealThreadCount() - 1));
    for (const LogSource& source : sources_)
        follows_.push_back(std::make_unique<LogFollow>(source.path, maxBytes));
}

AllLogs::AllLogs(AllLogs&&) noexcept = default;
AllLogs& AllLogs::operator=(AllLogs&&) noexcept = default;
AllLogs::~AllLogs() = default;

void AllLogs::load() {
    // Reading and parsing is most of the cost, and each log is its own work.
    std::vector<std::function<void()>> jobs;
    for (auto& follow : follows_) jobs.push_back([f = follow.get()] { f->load(); });
    allAtOnce(*lane_, jobs);
    changes_ =
        QList<LogFollowChange>(qsizetype(follows_.size()), {LogFollowChange::Kind::reloaded});
    merge();
}

bool AllLogs::update() {
    bool changed = false;
    changes_.clear();
    for (auto& follow : follows_) {
        changes_.append(follow->update());
        if (changes_.last().kind != LogFollowChange::Kind::nothing) changed = true;
    }
    if (changed) merge();
    return changed;
}

QString AllLogs::titleOf(qsizetype row) const {
    const qint32 log = merged_.logOf.value(row, -1);
    return log >= 0 && log < sources_.size() ? sources_[log].title : QString();
}

qsizetype AllLogs::truncatedCount() const {
    qsizetype n = 0;
    for (const auto& follow : follows_)
        if (follow->truncated()) ++n;
    return n;
}

void AllLogs::merge() {
    QList<LogRows> rows;
    rows.reserve(qsizetype(follows_.size()));
    for (const auto& follow : follows_) rows.append(follow->rows());
    merged_ = mergeRows(rows, lane_.get());
}

QString allLogsStatusLine(qsizetype shown, qsizetype total, qsizetype truncatedLogs, qsizetype logs,
                          std::optional<qsizetype> matches) {
    QString line = QStringLiteral("%1 of %2 lines").arg(shown).arg(total);
    if (truncatedLogs > 0)
        line += QStringLiteral(" \u00B7 showing last 4 MB of %1").arg(logCount(truncatedLogs));
    if (matches) line += QStringLiteral(" \u00B7 ") + matchCountText(*matches);
    return line + QStringLiteral(" \u00B7 ") + logCount(logs);
}

}  // namespace varnel
