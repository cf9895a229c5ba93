#include "monitor/poller.h"

#include <gtest/gtest.h>

#include <functional>

#include "monitor/paths.h"
#include "support/sim_suite.h"

using namespace varnel;
using varnel::test::SimSuite;

namespace {

const QString agentLabel = QStringLiteral("com.varnel.agent");
const QString watcherLabel = QStringLiteral("com.varnel.endpoint.watcher");
const QString updaterLog = Paths::updaterLogDir + QStringLiteral("/varnel_endpoint.stdout.log");

const ServiceSpec& spec(const QString& key) {
    for (const ServiceSpec& s : SERVICES)
        if (s.key == key) return s;
    throw std::out_of_range("no such service");
}

QString description(const QString& body) {
    return QStringLiteral("system/com.varnel.endpoint.watcher = {\n\tactive count = 1\n") + body +
           QStringLiteral("\tspawn type = daemon (3)\n}\n");
}

struct Case {
    const char* name;
    std::function<void(SimSuite&)> arrange;
};

class PollerTest : public ::testing::Test {
protected:
    void SetUp() override { sim.generate(QStringLiteral("demo")); }
    SimSuite& sim = SimSuite::instance();
};

}  // namespace

TEST_F(PollerTest, LaunchdStateReadsPrintThenFallsBackToList) {
    struct Expect {
        Case c;
        bool loaded, running;
        std::optional<qint64> pid;
    };
    const QList<Expect> cases = {
        {{"running with a pid",
          [](SimSuite& s) { s.setJob(watcherLabel, SimSuite::Job::running, 4321); }},
         true,
         true,
         4321},
        {{"loaded, not running",
          [](SimSuite& s) { s.setJob(watcherLabel, SimSuite::Job::stopped); }},
         true,
         false,
         std::nullopt},
        {{"print fails, list answers",
          [](SimSuite& s) { s.setJob(watcherLabel, SimSuite::Job::listedOnly); }},
         true,
         true,
         std::nullopt},
        {{"unknown to launchd", [](SimSuite& s) { s.removeJob(watcherLabel); }},
         false,
         false,
         std::nullopt},
        {{"launchctl missing", [](SimSuite& s) { s.removeTool(QStringLiteral("/bin/launchctl")); }},
         false,
         false,
         std::nullopt},
        {{"unreadable pid lines are passed over",
          [](SimSuite& s) {
              s.setJobDescription(
                  watcherLabel, description("\tstate = running\n\tpid = abc\n\tpid = \n\tpid = 77\n"
                                            "\tpid = 78\n"));
          }},
         true,
         true,
         77},
        {{"blanks around the value, a sign",
          [](SimSuite& s) {
              s.setJobDescription(watcherLabel, description("  \t pid = \t +15 \t\n"));
          }},
         true,
         false,
         15},
        {{"a carriage return is not a blank",
          [](SimSuite& s) {
              s.setJobDescription(watcherLabel, description("\tpid = 12\r\n\tpid = 13x\n"));
          }},
         true,
         false,
         std::nullopt},
        {{"beyond 64 bits, then a number",
          [](SimSuite& s) {
              s.setJobDescription(
                  watcherLabel,
                  description("\tpid = 9223372036854775808\n\tpid = -9223372036854775808\n"));
          }},
         true,
         false,
         std::numeric_limits<qint64>::min()},
        {{"state = running anywhere counts, pid= without blank does not",
          [](SimSuite& s) {
              s.setJobDescription(watcherLabel,
                                  description("\tlast state = running\n\tpid=5\n\tpidx = 6\n"));
          }},
         true,
         true,
         std::nullopt},
    };
    for (const Expect& e : cases) {
        sim.generate(QStringLiteral("demo"));
        e.c.arrange(sim);
        const LaunchdState state = Poller::launchdState(watcherLabel);
        EXPECT_EQ(state.loaded, e.loaded) << e.c.name;
        EXPECT_EQ(state.running, e.running) << e.c.name;
        EXPECT_EQ(state.pid, e.pid) << e.c.name;
    }
}

TEST_F(PollerTest, DaemonHealthAndTextAreDecidedSeparately) {
    struct Expect {
        Case c;
        const char* key;
        Health health;
        const char* extra;
    };
    const QList<Expect> cases = {
        {{"agent running, pid 812", [](SimSuite&) {}}, "agent", Health::running, "pid 812"},
        {{"watcher loaded, varnel process exists", [](SimSuite&) {}},
         "watcher",
         Health::running,
         "active"},
        {{"watcher loaded, nothing runs",
          [](SimSuite& s) { s.setProcess(QStringLiteral("varnel"), {}); }},
         "watcher",
         Health::attention,
         "loaded, not running"},
        {{"launchd says running without pid, no varnel process",
          [](SimSuite& s) {
              s.setProcess(QStringLiteral("varnel"), {});
              s.setJob(watcherLabel, SimSuite::Job::running);
          }},
         "watcher",
         Health::running,
         "loaded, not running"},
        {{"launchd says not running but gives a pid",
          [](SimSuite& s) {
              s.setProcess(QStringLiteral("varnel"), {});
              s.setJobDescription(watcherLabel, description("\tstate = not running\n\tpid = 77\n"));
          }},
         "watcher",
         Health::attention,
         "pid 77"},
        {{"agent unknown to launchd", [](SimSuite& s) { s.removeJob(agentLabel); }},
         "agent",
         Health::stopped,
         "not loaded"},
        {{"process found", [](SimSuite&) {}}, "proxy", Health::running, ""},
        {{"process absent", [](SimSuite&) {}}, "monitor", Health::stopped, "not running"},
        {{"only a longer name runs",
          [](SimSuite& s) {
              s.setProcess(QStringLiteral("varnel-proxy"), {});
              s.setProcess(QStringLiteral("varnel-proxy-helper"), {4000});
          }},
         "proxy",
         Health::stopped,
         "not running"},
        {{"updater not loaded",
          [](SimSuite& s) { s.removeJob(QStringLiteral("com.varnel.endpoint.updater")); }},
         "updater",
         Health::stopped,
         "not scheduled"},
        {{"updater loaded, log 7 minutes old", [](SimSuite&) {}},
         "updater",
         Health::inactive,
         "last run 7m ago"},
        {{"updater running still idle",
          [](SimSuite& s) {
              s.setJob(QStringLiteral("com.varnel.endpoint.updater"), SimSuite::Job::running, 3001);
              s.setModified(updaterLog, QDateTime::currentDateTimeUtc().addSecs(-90));
          }},
         "updater",
         Health::inactive,
         "last run 1m ago"},
        {{"updater loaded, no log", [](SimSuite& s) { s.removePath(updaterLog); }},
         "updater",
         Health::inactive,
         "scheduled"},
    };
    for (const Expect& e : cases) {
        sim.generate(QStringLiteral("demo"));
        e.c.arrange(sim);
        const ServiceStatus status = Poller::status(spec(QString::fromLatin1(e.key)), QString());
        EXPECT_EQ(status.spec, spec(QString::fromLatin1(e.key))) << e.c.name;
        EXPECT_EQ(status.health, e.health) << e.c.name;
        EXPECT_EQ(status.extra, QString::fromUtf8(e.extra)) << e.c.name;
    }
}

TEST_F(PollerTest, ExtensionStateComesFromTheFirstLineNamingIt) {
    const QString old = QStringLiteral(
        "com.apple.system_extension.network_extension|*|*|7QX4PL2M9A|ai.ostrel.agent.sentinel "
        "(1.2/1.2)|Varnel Filter|%1");
    struct Expect {
        const char* name;
        QStringList rows;
        Health health;
        const char* extra;
    };
    const QList<Expect> cases = {
        {"enabled", {SimSuite::extensionRow("activated enabled")}, Health::running, "activated"},
        {"letter case of the state is ignored",
         {SimSuite::extensionRow("Activated Enabled")},
         Health::running,
         "activated"},
        {"terminated copy listed first",
         {SimSuite::extensionRow("terminated waiting to uninstall on reboot"),
          SimSuite::extensionRow("activated enabled", "1.8.2")},
         Health::attention,
         "terminated"},
        {"waiting for the user",
         {SimSuite::extensionRow("activated waiting for user")},
         Health::attention,
         "registered"},
        {"an older id of the family", {old.arg("activated enabled")}, Health::running, "activated"},
        {"nothing installed", {}, Health::stopped, "not registered"},
    };
    for (const Expect& e : cases) {
        sim.setExtensionRows(e.rows);
        const ServiceStatus status =
            Poller::status(spec(QStringLiteral("sysext")), Poller::sysextSnapshot());
        EXPECT_EQ(status.health, e.health) << e.name;
        EXPECT_EQ(status.extra, QString::fromUtf8(e.extra)) << e.name;
    }
    sim.removeTool(QStringLiteral("/usr/bin/systemextensionsctl"));
    EXPECT_EQ(Poller::sysextSnapshot(), QString());
}

TEST_F(PollerTest, FileAgeInWholeUnitsTruncated) {
    const QDateTime modified = QDateTime::fromSecsSinceEpoch(1'700'000'000, Qt::UTC);
    sim.setModified(updaterLog, modified);
    const QList<std::pair<qint64, const char*>> cases = {
        {0, "0s ago"},      {59, "59s ago"},   {60, "1m ago"},
        {90, "1m ago"},     {3599, "59m ago"}, {3600, "1h ago"},
        {86399, "23h ago"}, {86400, "1d ago"}, {-42, "-42s ago"},
    };
    for (const auto& [age, text] : cases) {
        EXPECT_EQ(Poller::fileMtimeAgo(updaterLog, modified.addSecs(age)),
                  QString::fromLatin1(text))
            << age;
    }
    // Part of a second does not round up.
    EXPECT_EQ(Poller::fileMtimeAgo(updaterLog, modified.addMSecs(59'999)),
              QStringLiteral("59s ago"));
    EXPECT_EQ(Poller::fileMtimeAgo(updaterLog, modified.addMSecs(-42'900)),
              QStringLiteral("-42s ago"));
    EXPECT_EQ(Poller::fileMtimeAgo(QStringLiteral("/no/such/file"), modified), std::nullopt);
}

TEST_F(PollerTest, SnapshotFollowsTheCatalogue) {
    const QList<ServiceStatus> demo = Poller::snapshot();
    ASSERT_EQ(demo.size(), qsizetype(SERVICES.size()));
    const QList<std::pair<Health, const char*>> expected = {
        {Health::running, "pid 812"},
        {Health::running, ""},
        {Health::attention, "registered"},
        {Health::stopped, "not running"},
        {Health::running, ""},
        {Health::running, ""},
        {Health::running, ""},
        {Health::inactive, "last run 7m ago"},
        {Health::running, "active"},
    };
    for (qsizetype i = 0; i < demo.size(); ++i) {
        EXPECT_EQ(demo[i].spec, SERVICES[size_t(i)]);
        EXPECT_EQ(demo[i].health, expected[i].first) << demo[i].spec.key.toStdString();
        EXPECT_EQ(demo[i].extra, QString::fromUtf8(expected[i].second))
            << demo[i].spec.key.toStdString();
    }

    for (const char* tool : {"/bin/launchctl", "/usr/bin/pgrep", "/usr/bin/systemextensionsctl"})
        sim.removeTool(QString::fromLatin1(tool));
    const QList<ServiceStatus> bare = Poller::snapshot();
    ASSERT_EQ(bare.size(), qsizetype(SERVICES.size()));
    for (const ServiceStatus& status : bare) EXPECT_EQ(status.health, Health::stopped);
}
