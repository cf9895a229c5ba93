#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

#include "support/sim_suite.h"

using varnel::test::SimSuite;

namespace {

struct Outcome {
    int code = -1;
    QString out;
    QString err;
};

Outcome varnelctl(const QStringList& args, const QString& root) {
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("VARNEL_ROOT"), root);
    process.setProcessEnvironment(env);
    process.start(QStringLiteral(VARNELCTL), args);
    if (!process.waitForFinished(60'000)) return {};
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

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
    EXPECT_EQ(status, object("{'overall': {'health': 'attention', 'label': 'Needs attention'}, "
                             "'tooltip': 'Varnel — Needs attention (6/9 up)', "
                             "'installedVersion': '1.8.2', 'latestVersion': '1.9.0', "
                             "'updateAvailable': true, 'certificates': {'health': 'attention', "
                             "'label': 'Needs attention', "
                             "'detail': '2/3 trusted — check varnel-proxy-ca.pem'}}"));
    ASSERT_EQ(services.size(), 9);
    EXPECT_EQ(services[0].toObject(), object("{'key': 'agent', 'title': 'Agent', 'health': "
                                             "'running', 'label': 'Running', 'extra': 'pid 812'}"));
    EXPECT_EQ(services[7].toObject(),
              object("{'key': 'updater', 'title': 'Auto-Updater', 'health': 'inactive', "
                     "'label': 'Idle', 'extra': 'last run 7m ago'}"));
}

TEST_F(StatusCommandTest, ExitStatusFollowsTheOverallHealth) {
    sim.generate(QStringLiteral("healthy"));
    EXPECT_EQ(run({"status", "--json"}).code, 0);
    // One flip at a time, probing again.
    sim.setExtensionRows({SimSuite::extensionRow(QStringLiteral("activated waiting for user"))});
    EXPECT_EQ(run({"status", "--json"}).code, 1);
    sim.setProcess(QStringLiteral("varnel-proxy"), {});
    EXPECT_EQ(run({"status", "--json"}).code, 2);

    sim.generate(QStringLiteral("empty"));
    const Outcome empty = run({"status", "--json"});
    EXPECT_EQ(empty.code, 2);
    QJsonObject status = statusJson(empty);
    status.remove("services");
    EXPECT_EQ(status,
              object("{'overall': {'health': 'stopped', 'label': 'Stopped'}, "
                     "'tooltip': 'Varnel — Stopped (0/9 up)', 'installedVersion': '', "
                     "'latestVersion': '', 'updateAvailable': false, 'certificates': "
                     "{'health': 'stopped', 'label': 'Stopped', 'detail': 'Not installed'}}"));
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
}

TEST_F(StatusCommandTest, UsageAndRootProblems) {
    sim.generate(QStringLiteral("demo"));
    for (const QStringList& args : {QStringList{"status", "--jsn"}, QStringList{"status", "extra"},
                                    QStringList{"--bogus"}, QStringList{}}) {
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
}
