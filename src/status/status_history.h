#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QDateTime>
#include <QList>
#include <QString>
#include <optional>

#include "monitor/catalogue.h"
#include "status/suite_probe.h"

namespace varnel {

// What the status history follows from one probe to the next.
struct WatchedState {
    QList<ServiceStatus> services;
    Health certificates = Health::unknown;
    QString certDetail;
    QString installedVersion;
    QString latestVersion;  // the last one known
};

// What a probe shows. A probe that could not read the latest version keeps the
// one known before: a file read that failed once is not news.
WatchedState watchedState(const SuiteProbe& probe, const std::optional<WatchedState>& before);

// One line of the history.
struct HistoryRecord {
    QDateTime timeUtc;
    QString what;     // "overall", "service", "certificates" or "latestVersion"
    QString service;  // the service's key, when `what` is "service"
    QString from;     // a health's case name, or a version; empty in a starting record
    QString to;
    QString detail;      // what the menu or the tooltip showed for it then
    bool start = false;  // the state found at start-up rather than a change

    bool operator==(const HistoryRecord&) const = default;
};

// What changed from `before` to `now`: the overall health, then each service in
// catalogue order, the certificates and the latest version. With nothing
// before, the starting state instead: a record for each, marked as such.
QList<HistoryRecord> historyChanges(const std::optional<WatchedState>& before,
                                    const WatchedState& now, const QDateTime& atUtc);

// The history file in the user's log folder, and the one it becomes when it
// would grow past maxHistoryBytes.
QString historyPath();
QString previousHistoryPath();
inline constexpr quint64 maxHistoryBytes = quint64{1024} * 1024;

// One JSON object and a line feed: time (UTC, ISO 8601 with milliseconds),
// what, service (for a service), from (null at the start), to, detail, and
// start (true, only in a starting record).
QByteArray historyLine(const HistoryRecord& record);

// The records a history file's text holds, in file order, and how many of its
// lines could not be read (a write cut short, a damaged file).
struct HistoryText {
    QList<HistoryRecord> records;
    qsizetype unreadable = 0;
};
HistoryText parseHistory(QByteArrayView text);

}  // namespace varnel
