#include "monitor/catalogue.h"

#include <gtest/gtest.h>

#include <QSet>

#include "monitor/health.h"

using namespace varnel;

TEST(Catalogue, HoldsTheNineServicesInOrderWithDistinctKeys) {
    QStringList keys;
    for (const ServiceSpec& spec : SERVICES) keys.append(spec.key);
    EXPECT_EQ(keys, (QStringList{"agent", "proxy", "sysext", "monitor", "templates", "ipc",
                                 "diagnostics", "updater", "watcher"}));
    EXPECT_EQ(QSet<QString>(keys.begin(), keys.end()).size(), 9);
}

TEST(Catalogue, RestartLabelsAreTheDetectorLabelsAndHintsAreNeverPaths) {
    for (const ServiceSpec& spec : SERVICES) {
        if (spec.restartLabel) {
            EXPECT_EQ(*spec.restartLabel, spec.detector.value);
        }
        for (const LogFile& log : spec.logs)
            EXPECT_TRUE(log.path.startsWith(u'/') || log.path.startsWith(QStringLiteral("hint:")));
    }
    EXPECT_EQ(SERVICES[1].logs[0].path, QStringLiteral("hint:proxy.log"));
    EXPECT_EQ(SERVICES[1].logs[1], SERVICES[0].logs[0]);  // the proxy offers the agent's output
    EXPECT_EQ(SERVICES[8].logs.size(), 4);
    EXPECT_EQ(SERVICES[7].detector, Detector::updater("com.varnel.endpoint.updater"));
}

TEST(Health, LabelsAndColours) {
    EXPECT_EQ(label(Health::inactive), QStringLiteral("Idle"));
    EXPECT_EQ(label(Health::attention), QStringLiteral("Needs attention"));
    EXPECT_EQ(caseName(Health::inactive), QStringLiteral("inactive"));
    EXPECT_EQ(color(Health::inactive), color(Health::unknown));
    const QSet<SystemColor> distinct{color(Health::running), color(Health::stopped),
                                     color(Health::attention), color(Health::unknown)};
    EXPECT_EQ(distinct.size(), 4);
}
