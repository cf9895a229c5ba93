#include "status/health_summary.h"

#include <gtest/gtest.h>

#include "support/health_letters.h"

using namespace varnel;
using namespace varnel::letters;

namespace {

// One status per catalogue entry, healths given in catalogue order.
QList<ServiceStatus> statuses(std::initializer_list<Health> healths) {
    QList<ServiceStatus> list;
    auto spec = SERVICES.begin();
    for (const Health health : healths) list.append({*spec++, health, QString()});
    return list;
}

}  // namespace

TEST(HealthSummary, CoreServicesDecideTheOverallHealth) {
    struct Case {
        QList<ServiceStatus> list;
        Health overall;
        const char* tooltip;
    };
    const Case cases[] = {
        {{}, U, "Varnel — Unknown (0/0 up)"},
        {statuses({R, R, R, S, R, R, R, I, S}), R, "Varnel — Running (6/9 up)"},
        {statuses({R, R, R, R, R, R, R, I, R}), R, "Varnel — Running (8/9 up)"},
        {statuses({R, R, A, S, R, R, R, I, R}), A, "Varnel — Needs attention (6/9 up)"},
        {statuses({A, S, R, R, R, R, R, R, R}), S, "Varnel — Stopped (7/9 up)"},
        {statuses({R, I, R}), A, "Varnel — Needs attention (2/3 up)"},
        {statuses({U, R, R}), A, "Varnel — Needs attention (2/3 up)"},
        {statuses({S, S, S, S, S, S, S, S, S}), S, "Varnel — Stopped (0/9 up)"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(overallHealth(c.list), c.overall) << c.tooltip;
        EXPECT_EQ(tooltipText(c.list), QString::fromUtf8(c.tooltip));
    }
    // Read aloud: words, not the tooltip's dash and fraction.
    EXPECT_EQ(accessibleStatus(cases[0].list), "Varnel, checking services");
    EXPECT_EQ(accessibleStatus(cases[3].list), "Varnel, Needs attention, 6 of 9 services running");

    // Without any core entry the list counts as running, whatever the others say.
    QList<ServiceStatus> others = statuses({R, R, R, S, S, I, A});
    others.remove(0, 3);
    EXPECT_EQ(overallHealth(others), R);
    EXPECT_EQ(tooltipText(others), QStringLiteral("Varnel — Running (0/4 up)"));
}
