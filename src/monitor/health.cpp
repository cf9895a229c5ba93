#include "monitor/health.h"

namespace varnel {

QString label(Health health) {
    switch (health) {
        case Health::running:
            return QStringLiteral("Running");
        case Health::stopped:
            return QStringLiteral("Stopped");
        case Health::inactive:
            return QStringLiteral("Idle");
        case Health::attention:
            return QStringLiteral("Needs attention");
        case Health::unknown:
            break;
    }
    return QStringLiteral("Unknown");
}

QString caseName(Health health) {
    switch (health) {
        case Health::running:
            return QStringLiteral("running");
        case Health::stopped:
            return QStringLiteral("stopped");
        case Health::inactive:
            return QStringLiteral("inactive");
        case Health::attention:
            return QStringLiteral("attention");
        case Health::unknown:
            break;
    }
    return QStringLiteral("unknown");
}

SystemColor color(Health health) {
    switch (health) {
        case Health::running:
            return SystemColor::green;
        case Health::stopped:
            return SystemColor::red;
        case Health::attention:
            return SystemColor::yellow;
        case Health::inactive:
        case Health::unknown:
            break;
    }
    return SystemColor::gray;
}

}  // namespace varnel
