#include "monitor/poller.h"

#include <gtest/gtest.h>

#include <limits>
#include <tuple>

#include "platform/paths.h"
#include "support/sim_suite.h"

using namespace varnel;
using varnel::test::SimSuite;
using Job = SimSuite::Job;

namespace {

const QString watcherLabel = QStringLiteral("com.varnel.endpoint.watcher");
const QString updaterLog = Paths::updaterLogDir + QStringLiteral("/varnel_endpoint.stdout.log");

const ServiceSpec& spec(const char* key) {
    for (const ServiceSpec& s : SERVICES)
        if (s.key == QLatin1String(key)) return s;
    throw std::out_of_range(key);
}

QString description(const char* body) {
    return QStringLiteral("system/com.varnel.endpoint.watcher = {\n\tactive count = 1\n") +
           QString::fromLatin1(body) + QStringLiteral("\tspawn type = daemon (3)\n}\n");
}

std::tuple<bool, bool, std::optional<qint64>> watcherState() {
    const LaunchdState state = Poller::launchdState(watcherLabel);
    return {state.loaded, state.running, state.pid};
}

class PollerTest : public ::testing::Test {
protected:
    void SetUp() override { sim.generate(QStringLiteral("demo")); }

    void expectStatus(const char* key, Health health, const char* extra) {
        const ServiceStatus status = Poller::status(spec(key), QString());
        EXPECT_EQ(status.health, health) << key << " / " << extra;
        EXPECT_EQ(status.extra, QString::fromUtf8(extra)) << key;
    }

    SimSuite& sim = SimSuite::instance();
};

}  // namespace

TEST(PollerPid, FirstPidLineWithAWholeDecimalWins) {
    const struct {
        const char* body;
        std::optional<qint64> pid;
    } cases[] = {
        {"\tstate = running\n\tpid = abc\n\tpid = \n\tpid = 77\n\tpid = 78\n", 77},
        {"  \t pid = \t +15 \t\n", 15},
        {"\tpid = 12\r\n\tpid = 13x\n", std::nullopt},  // a CR is not a blank
        {"\tpid = 9223372036854775808\n\tpid = -9223372036854775808\n",
         std::numeric_limits<qint64>::min()},
        {"\tpid=5\n\tpidx = 6\n", std::nullopt},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Poller::pidFromDescription(description(c.body)), c.pid) << c.body;
}

TEST_F(PollerTest, LaunchdStateReadsPrintThenFallsBackToList) {
    using State = std::tuple<bool, bool, std::optional<qint64>>;
    sim.setJob(watcherLabel, Job::running, 4321);
    EXPECT_EQ(watcherState(), State(true, true, 4321));
    sim.setJob(watcherLabel, Job::stopped);
    EXPECT_EQ(watcherState(), State(true, false, std::nullopt));
    sim.setJob(watcherLabel, Job::listedOnly);
    EXPECT_EQ(watcherState(), State(true, true, std::nullopt));
    // "state = running" counts wherever it stands; the pid comes from the description.
    sim.setJobDescription(watcherLabel, description("\tlast state = running\n\tpid = 5\n"));
    EXPECT_EQ(watcherState(), State(true, true, 5));
    sim.removeJob(watcherLabel);
    EXPECT_EQ(watcherState(), State(false, false, std::nullopt));
}

// Cases build on each other: the "varnel" process stays gone once removed.
TEST_F(PollerTest, DaemonHealthAndTextAreDecidedSeparately) {
    sim.setProcess(QStringLiteral("varnel"), {});
    expectStatus("watcher", Health::attention, "loaded, not running");
    sim.setJob(watcherLabel, Job::running);
    expectStatus("watcher", Health::running, "loaded, not running");
    sim.setJobDescription(watcherLabel, description("\tstate = not running\n\tpid = 77\n"));
    expectStatus("watcher", Health::attention, "pid 77");
    sim.removeJob(QStringLiteral("com.varnel.agent"));
    expectStatus("agent", Health::stopped, "not loaded");
}

TEST_F(PollerTest, ProcessAndUpdaterServices) {
    sim.setProcess(QStringLiteral("varnel-proxy"), {});
    sim.setProcess(QStringLiteral("varnel-proxy-helper"), {4000});
    expectStatus("proxy", Health::stopped, "not running");

    // Loaded means idle, even while launchd runs it.
    sim.setJob(Paths::updaterLabel, Job::running, 3001);
    sim.setModified(updaterLog, QDateTime::currentDateTimeUtc().addSecs(-90));
    expectStatus("updater", Health::inactive, "last run 1m ago");
    sim.removePath(updaterLog);
    expectStatus("updater", Health::inactive, "scheduled");
    sim.removeJob(Paths::updaterLabel);
    expectStatus("updater", Health::stopped, "not scheduled");
}

TEST_F(PollerTest, ExtensionStateComesFromTheFirstLineNamingIt) {
    const QString old = QStringLiteral(
        "com.apple.system_extension.network_extension|*|*|7QX4PL2M9A|ai.ostrel.agent.sentinel "
        "(1.2/1.2)|Varnel Filter|activated enabled");
    const struct {
        QStringList rows;
        Health health;
        const char* extra;
    } cases[] = {
        {{SimSuite::extensionRow("Activated Enabled")}, Health::running, "activated"},
        {{SimSuite::extensionRow("terminated waiting to uninstall on reboot"),
          SimSuite::extensionRow("activated enabled", "1.8.2")},
         Health::attention,
         "terminated"},
        {{SimSuite::extensionRow("activated waiting for user")}, Health::attention, "registered"},
        {{old}, Health::running, "activated"},
        {{}, Health::stopped, "not registered"},
    };
    for (const auto& c : cases) {
        sim.setExtensionRows(c.rows);
        const ServiceStatus status = Poller::status(spec("sysext"), Poller::sysextSnapshot());
        EXPECT_EQ(status.health, c.health) << c.rows.join(u'\n').toStdString();
        EXPECT_EQ(status.extra, QString::fromUtf8(c.extra)) << c.rows.join(u'\n').toStdString();
    }
}

TEST_F(PollerTest, FileAgeInWholeUnitsTruncatedTowardZero) {
    const QDateTime modified = QDateTime::fromSecsSinceEpoch(1'700'000'000, Qt::UTC);
    sim.setModified(updaterLog, modified);
    const QList<std::pair<qint64, const char*>> cases = {
        {0, "0s ago"},          {59'999, "59s ago"},   {60'000, "1m ago"},
        {3'599'000, "59m ago"}, {3'600'000, "1h ago"}, {86'399'000, "23h ago"},
        {86'400'000, "1d ago"}, {-42'900, "-42s ago"},
    };
    for (const auto& [ms, text] : cases)
        EXPECT_EQ(Poller::fileMtimeAgo(updaterLog, modified.addMSecs(ms)), QLatin1String(text))
            << ms;
    EXPECT_EQ(Poller::fileMtimeAgo(QStringLiteral("/no/such/file"), modified), std::nullopt);
}

TEST_F(PollerTest, SnapshotFollowsTheCatalogue) {
    using enum Health;
    const Health health[] = {running, running, attention, stopped, running,
                             running, running, inactive,  running};
    const char* extra[] = {"pid 812", "", "registered",      "not running", "",
                           "",        "", "last run 7m ago", "active"};
    const QList<ServiceStatus> demo = Poller::snapshot();
    ASSERT_EQ(demo.size(), qsizetype(std::size(health)));
    for (qsizetype i = 0; i < demo.size(); ++i) {
        EXPECT_EQ(demo[i].spec, SERVICES[size_t(i)]);
        EXPECT_EQ(demo[i].health, health[i]) << demo[i].spec.key.toStdString();
        EXPECT_EQ(demo[i].extra, QString::fromUtf8(extra[i])) << demo[i].spec.key.toStdString();
    }

    for (const char* tool : {"/bin/launchctl", "/usr/bin/pgrep", "/usr/bin/systemextensionsctl"})
        sim.removeTool(QString::fromLatin1(tool));
    const QList<ServiceStatus> bare = Poller::snapshot();
    ASSERT_EQ(bare.size(), qsizetype(SERVICES.size()));
    for (const ServiceStatus& status : bare) EXPECT_EQ(status.health, stopped);
}
