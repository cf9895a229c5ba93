#pragma once

#include <QList>
#include <QString>

#include "monitor/catalogue.h"
#include "monitor/health.h"

namespace varnel {

// The three services whose health is the suite's: agent, proxy, network extension.
bool isCoreService(const ServiceSpec& spec);

// The suite's one health, from its three core services (agent, proxy, network
// extension): `unknown` for an empty list, otherwise never `inactive`, and a
// stopped core service outweighs one that needs attention.
Health overallHealth(const QList<ServiceStatus>& statuses);

// "Varnel — Running (7/9 up)": the overall health and how many services run.
QString tooltipText(const QList<ServiceStatus>& statuses);

// The same for a screen reader, in words rather than figures and signs:
// "Varnel, Running, 7 of 9 services running"; for an empty list (nothing probed
// yet) "Varnel, checking services".
QString accessibleStatus(const QList<ServiceStatus>& statuses);

}  // namespace varnel
