#pragma once

#include <QList>
#include <QString>
#include <memory>
#include <optional>
#include <vector>

#include "logs/log_filter.h"
#include "logs/log_follow.h"
#include "logs/log_registry.h"
#include "logs/log_rows.h"
#include "logs/row_time.h"

class QThreadPool;

namespace varnel {

// Several logs' rows as one load, with the log each row came from.
struct MergedRows {
    LogRows rows;
    QList<qint32> logOf;      // per row: its log's index in the list merged
    QList<Instant> instants;  // per row, as rowInstants() gives them in its own log
};

// The rows of every log in time order. Each row goes by its instant (see
// rowInstants()), so a line without a time stays right after the row before
// it in its own log, and rows before any time in a log come before that
// log's first timed row. Equal instants keep the logs' order, then the rows'
// order; a log's own rows never change order, even where its times go
// backwards. Logs that would take the whole beyond 2^30 bytes are left out.
// With a lane, the work each log needs alone is done several logs at a time.
MergedRows mergeRows(const QList<LogRows>& logs, QThreadPool* lane = nullptr);

// Where rows of one merge are in the next: `rows` are indices into the merge
// whose logs are `before`; each log then changed as `changes` says (by log,
// as LogFollow::update() tells), and `after` are the logs of the new merge.
// Gives each row's index in the new merge, or -1 when it is gone or its log
// was read afresh.
QList<qsizetype> rowsInNewMerge(const QList<qint32>& before, const QList<qint32>& after,
                                const QList<LogFollowChange>& changes,
                                const QList<qsizetype>& rows);

// Every log of a list followed at once, and their rows merged: what "All
// logs" shows. A log that cannot be read is there as its one error row.
class AllLogs {
public:
    explicit AllLogs(QList<LogSource> sources = {}, quint64 maxBytes = 4'000'000);
    AllLogs(AllLogs&&) noexcept;
    AllLogs& operator=(AllLogs&&) noexcept;
    ~AllLogs();

    // Reads every tail afresh, several at a time, and merges them.
    void load();
    // Brings every log up to date; true when any changed and the rows were
    // merged again.
    bool update();
    // What the last load or update changed, by log.
    const QList<LogFollowChange>& changes() const { return changes_; }

    const QList<LogSource>& sources() const { return sources_; }
    const MergedRows& merged() const { return merged_; }
    // The title of the log a merged row came from.
    QString titleOf(qsizetype row) const;
    // How many logs were longer than their tail.
    qsizetype truncatedCount() const;

private:
    void merge();

    QList<LogSource> sources_;
    std::vector<std::unique_ptr<LogFollow>> follows_;
    // The threads loads and merges share; the caller's thread works too.
    std::unique_ptr<QThreadPool> lane_;
    MergedRows merged_;
    QList<LogFollowChange> changes_;
};

// The status line of "All logs": like a log's, naming the number of logs
// instead of a path ("12 of 40 lines · showing last 4 MB of 2 · 9 logs").
QString allLogsStatusLine(qsizetype shown, qsizetype total, qsizetype truncatedLogs, qsizetype logs,
                          std::optional<qsizetype> matches = std::nullopt);

}  // namespace varnel
