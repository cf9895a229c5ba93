#pragma once

#include <QDateTime>
#include <QList>
#include <QString>
#include <functional>
#include <optional>
#include <vector>

#include "monitor/catalogue.h"
#include "platform/tool_session.h"

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

// Each probe below may be handed the tools to ask through, so that the parts of
// one snapshot share their answers; without, it runs the tools itself.

// The system-extension table, whatever the tool's exit code; empty when it could not start.
QString sysextSnapshot();
QString sysextSnapshot(Tools& tools);

LaunchdState launchdState(const QString& label);
LaunchdState launchdState(const QString& label, Tools& tools);

// "42s ago", "3m ago", "5h ago", "2d ago"; nothing when the file's date cannot be read.
std::optional<QString> fileMtimeAgo(const QString& path);
std::optional<QString> fileMtimeAgo(const QString& path, const QDateTime& now);

// The pid from a `launchctl print` description: the first "pid = N" line whose
// value is a whole decimal number.
std::optional<qint64> pidFromDescription(const QString& description);

ServiceStatus status(const ServiceSpec& spec, const QString& sysext);
ServiceStatus status(const ServiceSpec& spec, const QString& sysext, Tools& tools);

// One status per catalogue entry, in catalogue order. The services are probed
// at once, each on a thread of its own, so a snapshot takes about as long as
// its slowest service rather than all of them together.
QList<ServiceStatus> snapshot();

// A snapshot as parts that can run at once: the first lists the system
// extensions and judges the extension services by that list, each other part
// probes one service. The parts take session part numbers from `firstPart` on,
// in the order a one-at-a-time snapshot would probe them. Read `statuses()`
// once every job has ended.
class SnapshotParts {
public:
    explicit SnapshotParts(ToolSession& session, int firstPart = 0);
    std::vector<std::function<void()>> jobs();
    int partCount() const { return int(SERVICES.size()) + 1; }
    QList<ServiceStatus> statuses() const;

private:
    ToolSession& session_;
    int firstPart_;
    std::vector<ServiceStatus> statuses_;
};

}  // namespace Poller

}  // namespace varnel
