#include "status/health_summary.h"

#include <algorithm>

namespace varnel {

namespace {

qsizetype running(const QList<ServiceStatus>& statuses) {
    return std::count_if(statuses.begin(), statuses.end(),
                         [](const ServiceStatus& s) { return s.health == Health::running; });
}

}  // namespace

bool isCoreService(const ServiceSpec& spec) {
    return spec.key == QStringLiteral("agent") || spec.key == QStringLiteral("proxy") ||
           spec.key == QStringLiteral("sysext");
}

Health overallHealth(const QList<ServiceStatus>& statuses) {
    if (statuses.isEmpty()) return Health::unknown;
    QList<Health> core;
    for (const ServiceStatus& status : statuses)
        if (isCoreService(status.spec)) core.append(status.health);
    if (core.contains(Health::stopped)) return Health::stopped;
    if (core.contains(Health::attention)) return Health::attention;
    const bool allRunning =
        std::all_of(core.begin(), core.end(), [](Health h) { return h == Health::running; });
    return allRunning ? Health::running : Health::attention;
}

QString tooltipText(const QList<ServiceStatus>& statuses) {
    return QStringLiteral("Varnel — %1 (%2/%3 up)")
        .arg(label(overallHealth(statuses)))
        .arg(running(statuses))
        .arg(statuses.size());
}

QString accessibleStatus(const QList<ServiceStatus>& statuses) {
    if (statuses.isEmpty()) return QStringLiteral("Varnel, checking services");
    return QStringLiteral("Varnel, %1, %2 of %3 services running")
        .arg(label(overallHealth(statuses)))
        .arg(running(statuses))
        .arg(statuses.size());
}

}  // namespace varnel
