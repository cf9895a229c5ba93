#pragma once

#include <QDateTime>
#include <QList>
#include <QString>
#include <optional>

#include "monitor/catalogue.h"

namespace varnel {

// What launchd says about one job in the system domain.
struct LaunchdState {
    bool loaded = false;
    bool running = false;
    std::optional<qint64> pid;
};

// Turns the catalogue into health values by asking the system's own tools.
// Nothing is cached and nothing fails outward: a tool that is missing, refuses
// or times out reads as a service that is not there.
namespace Poller {

// The system-extension table, whatever the tool's exit code; empty when it could not start.
QString sysextSnapshot();

LaunchdState launchdState(const QString& label);

// "42s ago", "3m ago", "5h ago", "2d ago"; nothing when the file's date cannot be read.
std::optional<QString> fileMtimeAgo(const QString& path);
std::optional<QString> fileMtimeAgo(const QString& path, const QDateTime& now);

// The pid from a `launchctl print` description: the first "pid = N" line whose
// value is a whole decimal number.
std::optional<qint64> pidFromDescription(const QString& description);

ServiceStatus status(const ServiceSpec& spec, const QString& sysext);

// One status per catalogue entry, in catalogue order.
QList<ServiceStatus> snapshot();

}  // namespace Poller

}  // namespace varnel
