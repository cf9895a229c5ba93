#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>

#include "cli/varnelctl_process.h"
#include "support/sim_suite.h"

using varnel::test::Outcome;
using varnel::test::runProgram;
using varnel::test::SimSuite;
using varnel::test::varnelctl;

namespace {

QJsonObject statusJson(const Outcome& outcome) {
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(outcome.out.toUtf8(), &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError) << outcome.out.toStdString();
    return document.object();
}

// JSON written with single quotes, for legibility here.
QJsonObject object(const char* json) {
    return QJsonDocument::fromJson(QByteArray(json).replace('\'', '"')).object();
}

// The monitoring-plugins convention, strictly: "VARNEL STATE - summary | perfdata"
// with each datum 'label'=value[UOM];[warn];[crit];[min];[max], the state
// matching the exit status, then the long text. The perfdata, by label.
QMap<QString, QString> expectPluginOutput(const Outcome& outcome) {
    static const QRegularExpression first(
        QStringLiteral("^VARNEL (OK|WARNING|CRITICAL|UNKNOWN) - [^|\\n]+ \\| ([^\\n]+)$"));
    static const QRegularExpression datum(
        QStringLiteral("^('[^'=]+'|[^'= ]+)=(-?\\d+(?:\\.\\d+)?)(?:s|ms|us|%|B|KB|MB|TB|c)?"
                       "(;[@~]?[-\\d.:~]*){0,2}(;(-?\\d+(\\.\\d+)?)?){0,2}$"));
    const QStringList states = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};
    const QRegularExpressionMatch line = first.match(outcome.out.section(u'\n', 0, 0));
    EXPECT_TRUE(line.hasMatch()) << outcome.out.toStdString();
    EXPECT_EQ(states.indexOf(line.captured(1)), outcome.code) << outcome.out.toStdString();
    QMap<QString, QString> values;
    for (const QString& text : line.captured(2).split(u' ')) {
        const QRegularExpressionMatch match = datum.match(text);
        EXPECT_TRUE(match.hasMatch()) << text.toStdString();
        values.insert(match.captured(1), match.captured(2));
    }
    return values;
}

class StatusCommandTest : public ::testing::Test {
protected:
    Outcome run(const QStringList& args) { return varnelctl(args, sim.root()); }
    SimSuite& sim = SimSuite::instance();
};

}  // namespace

TEST_F(StatusCommandTest, DemoSuiteAsJson) {
    sim.generate(QStringLiteral("demo"));
    const Outcome outcome = run({"status", "--json"});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_TRUE(outcome.out.startsWith(QStringLiteral("{\"overall\": ")));
    QJsonObject status = statusJson(outcome);
    const QJsonArray services = status.take("services").toArray();
    const QJsonObject preferences = status.take("preferences").toObject();
    EXPECT_EQ(status, object("{'overall': {'health': 'attention', 'label': 'Needs attention'}, "
                             "'tooltip': 'Varnel — Needs attention (6/9 up)', "
                             "'installedVersion': '1.8.2', 'latestVersion': '1.9.0', "
                             "'updateAvailable': true, 'certificates': {'health': 'attention', "
                             "'label': 'Needs attention', "
                             "'detail': '2/3 trusted — check varnel-proxy-ca.pem'}}"));
    ASSERT_EQ(services.size(), 9);
    EXPECT_EQ(preferences, object("{'notifyOnHealthChange': {'value': true, 'managed': false}, "
                                  "'historyEnabled': {'value': true, 'managed': false}}"));
    EXPECT_EQ(services[0].toObject(), object("{'key': 'agent', 'title': 'Agent', 'health': "
                                             "'running', 'label': 'Running', 'extra': 'pid 812'}"));
    EXPECT_EQ(services[7].toObject(),
              object("{'key': 'updater', 'title': 'Auto-Updater', 'health': 'inactive', "
                     "'label': 'Idle', 'extra': 'last run 7m ago'}"));
}

TEST_F(StatusCommandTest, ExitStatusFollowsTheOverallHealth) {
    sim.generate(QStringLiteral("healthy"));
    const Outcome healthy = run({"status", "--format", "nagios"});
    EXPECT_EQ(healthy.out.section(u'|', 0, 0),
              QStringLiteral("VARNEL OK - Running, 8 of 8 services up "));
    QMap<QString, QString> perfData = expectPluginOutput(healthy);
    EXPECT_GT(perfData.take(QStringLiteral("probe_duration")).toDouble(), 0);
    EXPECT_EQ(perfData, (QMap<QString, QString>{{"services_running", "8"},
                                                {"services_expected", "8"},
                                                {"certificates_trusted", "3"},
                                                {"certificates_deployed", "3"}}));
    EXPECT_EQ(run({"status", "--json"}).code, 0);
    // One flip at a time, probing again.
    sim.setExtensionRows({SimSuite::extensionRow(QStringLiteral("activated waiting for user"))});
    EXPECT_EQ(run({"status", "--json"}).code, 1);
    sim.setProcess(QStringLiteral("varnel-proxy"), {});
    const Outcome stopped = run({"status", "--format", "nagios"});
    expectPluginOutput(stopped);
    EXPECT_EQ(stopped.out.section(u'\n', 1),
              QStringLiteral("Proxy: Stopped (not running)\n"
                             "Network Extension: Needs attention (registered)\n"))
        << "catalogue order, one line per service not running";

    sim.generate(QStringLiteral("empty"));
    const Outcome empty = run({"status", "--json"});
    EXPECT_EQ(empty.code, 2);
    QJsonObject status = statusJson(empty);
    status.remove("services");
    status.remove("preferences");
    EXPECT_EQ(status,
              object("{'overall': {'health': 'stopped', 'label': 'Stopped'}, "
                     "'tooltip': 'Varnel — Stopped (0/9 up)', 'installedVersion': '', "
                     "'latestVersion': '', 'updateAvailable': false, 'certificates': "
                     "{'health': 'stopped', 'label': 'Stopped', 'detail': 'Not installed'}}"));
    const Outcome jamf = run({"status", "--format", "jamf"});
    EXPECT_EQ(std::pair(jamf.code, jamf.out),
              std::pair(0, QStringLiteral("<result>stopped: 9 services not running; "
                                          "no CA certificates deployed</result>\n")));
}

TEST_F(StatusCommandTest, TextReportLinesUpForPeople) {
    sim.generate(QStringLiteral("demo"));
    const Outcome outcome = run({"status"});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.out.split(u'\n').mid(0, 7),
              QStringList(
                  {"Status        Needs attention (6/9 up)",
                   "Version       1.8.2, update available → 1.9.0",
                   "Certificates  Needs attention · 2/3 trusted — check varnel-proxy-ca.pem", "",
                   "  Agent              Running          pid 812", "  Proxy              Running",
                   "  Network Extension  Needs attention  registered"}));
    sim.setLatestVersion(QStringLiteral("1.8.2"));
    EXPECT_EQ(run({"status"}).out.split(u'\n')[1],
              QStringLiteral("Version       1.8.2, up to date (latest 1.8.2)"));

    // A version that tries to forge a line, or to talk to the terminal, is shown.
    // (JSON escapes: the discovery state is JSON.)
    sim.setLatestVersion(QStringLiteral("9.9\\nStatus        Running\\u001b]0;x\\u0007"));
    const QStringList lines = run({"status"}).out.split(u'\n');
    EXPECT_EQ(lines.count(QStringLiteral("Status        Running")), 0);
    EXPECT_EQ(lines[1], QStringLiteral("Version       1.8.2, update available \u2192 9.9\u240A"
                                       "Status        Running\u241B]0;x\u2407"));

    // Nor does it break a plugin line or an inventory value.
    sim.setLatestVersion(QStringLiteral("9.9\\n| x=1 </result>"));
    const Outcome plugin = run({"status", "--format", "nagios"});
    EXPECT_EQ(expectPluginOutput(plugin).size(), 5);
    EXPECT_EQ(plugin.out.count(u'\n'), 3) << "the state line and the two services down";
    EXPECT_EQ(run({"status", "--format", "jamf"}).out,
              QStringLiteral("<result>attention: Network Extension, Monitor not running; 1 of 3 "
                             "CA certificates untrusted; update 9.9 | x=1 _/result_ "
                             "waiting</result>\n"));
}

TEST_F(StatusCommandTest, UsageAndRootProblems) {
    sim.generate(QStringLiteral("demo"));
    for (const QStringList& args :
         {QStringList{"status", "--jsn"}, QStringList{"status", "extra"}, QStringList{"--bogus"},
          QStringList{}, QStringList{"status", "--format", "xml"},
          QStringList{"status", "--json", "--format", "jamf"}}) {
        const Outcome outcome = run(args);
        EXPECT_EQ(std::pair(outcome.code, outcome.out), std::pair(64, QString()))
            << args.join(u' ').toStdString();
        EXPECT_TRUE(outcome.err.contains(QStringLiteral("Usage: varnelctl")))
            << outcome.err.toStdString();
    }
    const Outcome help = run({"status", "--help"});
    EXPECT_EQ(help.code, 0);
    EXPECT_TRUE(help.out.contains(QStringLiteral("--json")));
    EXPECT_TRUE(run({"--help"}).out.contains(QStringLiteral("status")));
    EXPECT_TRUE(sim.calls(QStringLiteral("security")).isEmpty()) << "help must not probe";

    const Outcome missing = varnelctl({QStringLiteral("status")}, QStringLiteral("/nonexistent"));
    EXPECT_EQ(std::pair(missing.code, missing.out), std::pair(2, QString()));
    EXPECT_TRUE(missing.err.contains(QStringLiteral("/nonexistent")));

    // A plugin's every problem is UNKNOWN, on the line the monitoring system reads.
    for (const auto& [args, root] :
         {std::pair(QStringList{"status", "--format", "nagios", "--bogus"}, sim.root()),
          std::pair(QStringList{"status", "--format=nagios", "extra"}, sim.root()),
          std::pair(QStringList{"status", "--format", "nagios"}, QStringLiteral("/nonexistent"))}) {
        const Outcome plugin = varnelctl(args, root);
        EXPECT_EQ(plugin.code, 3) << args.join(u' ').toStdString();
        EXPECT_TRUE(plugin.out.startsWith(QStringLiteral("VARNEL UNKNOWN - ")) &&
                    plugin.out.count(u'\n') == 1)
            << plugin.out.toStdString();
    }
}

TEST_F(StatusCommandTest, MetricsPassPromtoolAndTheClientParser) {
    if (runProgram(QStringLiteral(PROMTOOL), {"--version"}).code != 0 ||
        runProgram(QStringLiteral(PYTHON3), {"-c", "import prometheus_client"}).code != 0) {
        if (CONSUMERS_REQUIRED)
            FAIL() << "promtool or prometheus_client missing: scripts/deps.sh test";
        GTEST_SKIP() << "no promtool or prometheus_client here";
    }
    sim.generate(QStringLiteral("demo"));
    // A version that needs every escape of the format.
    sim.setLatestVersion(QStringLiteral("1.9\\\"\\\\x\\ny"));
    const Outcome metrics = run({"status", "--format", "prometheus"});
    EXPECT_EQ(metrics.code, 0) << "the state is in the metrics, not the exit status";
    const Outcome lint =
        runProgram(QStringLiteral(PROMTOOL), {"check", "metrics"}, {}, metrics.out.toUtf8());
    EXPECT_EQ(lint.code, 0) << lint.out.toStdString() << lint.err.toStdString();

    // Every family a gauge with help; each sample as name + sorted labels -> value.
    const char* script = R"(import json, sys
from prometheus_client.parser import text_string_to_metric_families
out = {}
for f in text_string_to_metric_families(sys.stdin.read()):
    assert f.type == "gauge" and f.documentation, f.name
    for s in f.samples:
        out[s.name + json.dumps(s.labels, sort_keys=True)] = s.value
print(json.dumps(out)))";
    const Outcome parsed =
        runProgram(QStringLiteral(PYTHON3), {"-c", script}, {}, metrics.out.toUtf8());
    ASSERT_EQ(parsed.code, 0) << parsed.err.toStdString();
    const QJsonObject samples = QJsonDocument::fromJson(parsed.out.toUtf8()).object();
    EXPECT_EQ(samples.size(), 9 + 9 * 5 + 5 + 6);
    const auto value = [&](const char* key) {
        return samples.value(QLatin1String(key)).toDouble(-1);
    };
    EXPECT_EQ(value(R"(varnel_service_up{"label": "Monitor", "service": "monitor"})"), 0);
    EXPECT_EQ(value(R"(varnel_service_health{"health": "attention", "service": "sysext"})"), 1);
    EXPECT_EQ(value(R"(varnel_service_health{"health": "running", "service": "sysext"})"), 0);
    EXPECT_EQ(value(R"(varnel_overall_health{"health": "attention"})"), 1);
    EXPECT_EQ(value("varnel_certificates_trusted{}"), 2);
    EXPECT_EQ(value("varnel_certificates_deployed{}"), 3);
    EXPECT_EQ(value("varnel_update_available{}"), 1);
    EXPECT_EQ(value(R"(varnel_build_info{"installed": "1.8.2", "latest": "1.9\"\\x\ny"})"), 1);
    EXPECT_GT(value("varnel_last_probe_timestamp_seconds{}"), 1.7e9);
}

TEST_F(StatusCommandTest, OutputReplacesTheFileWholeOrLeavesItAlone) {
    sim.generate(QStringLiteral("demo"));
    QTemporaryDir dir;
    const QString target = dir.filePath(QStringLiteral("varnel.prom"));
    QFile old(target);
    ASSERT_TRUE(old.open(QIODevice::WriteOnly) && old.write("old\n") == 4);
    old.close();
    old.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    const Outcome written = run({"status", "--format", "prometheus", "--output", target});
    EXPECT_EQ(std::pair(written.code, written.out), std::pair(0, QString()));
    ASSERT_TRUE(old.open(QIODevice::ReadOnly));
    const QByteArray content = old.readAll();
    EXPECT_TRUE(content.startsWith("# HELP varnel_service_up ") &&
                content.contains("\nvarnel_certificates_deployed 3\n"));
    EXPECT_EQ(int(old.permissions() & 0x777), 0x644) << "mode 0644, as Qt spells it";

    // A folder in the target's place, a missing folder: each fails, touches nothing, leaves no
    // temporary file.
    QDir(dir.path()).mkpath(QStringLiteral("taken/inside"));
    for (const auto& [path, format, code] :
         {std::tuple(dir.filePath("taken"), "json", 74),
          std::tuple(dir.filePath("missing/varnel.prom"), "nagios", 3)}) {
        const Outcome failed = run({"status", "--format", format, "--output", path});
        EXPECT_EQ(failed.code, code) << format;
        EXPECT_TRUE(failed.err.contains(QStringLiteral("cannot write the output: ") + path))
            << failed.err.toStdString();
    }
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
              QStringList({"taken", "varnel.prom"}));
    EXPECT_TRUE(QDir(dir.filePath("taken/inside")).exists());
}
