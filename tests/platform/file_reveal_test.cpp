#include "platform/file_reveal.h"

#include <gtest/gtest.h>

#include "support/sim_suite.h"

using namespace varnel;

// The macOS route, against the simulated `open`, which answers as the real one.
TEST(FileReveal, OpenSelectsTheFileWhereItReallyLives) {
    test::SimSuite& sim = test::SimSuite::instance();
    sim.generate(QStringLiteral("demo"));
    const QString log = QStringLiteral("/Library/Logs/Varnel/agent.stdout.log");
    EXPECT_TRUE(revealWithOpen(log));
    EXPECT_FALSE(revealWithOpen(QStringLiteral("/Library/Logs/Varnel/gone.log")));
    EXPECT_EQ(sim.calls(QStringLiteral("open")),
              QStringList({QStringLiteral("-R ") + sim.hostPath(log),
                           QStringLiteral("-R ") + sim.hostPath("/Library/Logs/Varnel/gone.log")}));
}
