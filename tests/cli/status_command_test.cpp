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

QJsonObject health(const char* name, const char* label) {
    return {{"health", QString::fromLatin1(name)}, {"label", QString::fromLatin1(label)}};
}

class StatusCommandTest : public ::testing::Test {
protected:
    Outcome json() {
        return varnelctl({QStringLiteral("status"), QStringLiteral("--json")}, sim.root());
    }
    SimSuite& sim = SimSuite::instance();
};

}  // namespace

TEST_F(StatusCommandTest, DemoSuiteAsJson) {
    sim.generate(QStringLiteral("demo"));
    const Outcome outcome = json();
    EXPECT_EQ(outcome.code, 1);
    EXPECT_TRUE(outcome.out.startsWith(QStringLiteral("{\"overall\": ")));
    const QJsonObject status = statusJson(outcome);
    EXPECT_EQ(status.keys(), QStringList({"certificates", "installedVersion", "latestVersion",
                                          "overall", "services", "tooltip", "updateAvailable"}));
    EXPECT_EQ(status["overall"].toObject(), health("attention", "Needs attention"));
    EXPECT_EQ(status["tooltip"].toString(), QStringLiteral("Varnel — Needs attention (6/9 up)"));
    EXPECT_EQ(status["installedVersion"].toString(), QStringLiteral("1.8.2"));
    EXPECT_EQ(status["latestVersion"].toString(), QStringLiteral("1.9.0"));
    EXPECT_EQ(status["updateAvailable"], QJsonValue(true));
    QJsonObject certificates = health("attention", "Needs attention");
    certificates["detail"] = QStringLiteral("2/3 trusted — check varnel-proxy-ca.pem");
    EXPECT_EQ(status["certificates"].toObject(), certificates);

    const QJsonArray services = status["services"].toArray();
    ASSERT_EQ(services.size(), 9);
    QJsonObject agent = health("running", "Running");
    agent["key"] = QStringLiteral("agent");
    agent["title"] = QStringLiteral("Agent");
    agent["extra"] = QStringLiteral("pid 812");
    EXPECT_EQ(services[0].toObject(), agent);
    QJsonObject updater = health("inactive", "Idle");
    updater["key"] = QStringLiteral("updater");
    updater["title"] = QStringLiteral("Auto-Updater");
    updater["extra"] = QStringLiteral("last run 7m ago");
    EXPECT_EQ(services[7].toObject(), updater);
}

TEST_F(StatusCommandTest, ExitStatusFollowsTheOverallHealth) {
    sim.generate(QStringLiteral("healthy"));
    Outcome outcome = json();
    EXPECT_EQ(outcome.code, 0);
    QJsonObject status = statusJson(outcome);
    EXPECT_EQ(status["tooltip"].toString(), QStringLiteral("Varnel — Running (8/9 up)"));
    EXPECT_EQ(status["updateAvailable"], QJsonValue(false));
    EXPECT_EQ(status["certificates"].toObject()["detail"].toString(),
              QStringLiteral("Trusted — 3 CA cert(s)"));

    // One flip at a time, probing again.
    sim.setExtensionRows({SimSuite::extensionRow(QStringLiteral("activated waiting for user"))});
    EXPECT_EQ(json().code, 1);
    sim.setProcess(QStringLiteral("varnel-proxy"), {});
    EXPECT_EQ(json().code, 2);

    sim.generate(QStringLiteral("empty"));
    outcome = json();
    EXPECT_EQ(outcome.code, 2);
    status = statusJson(outcome);
    EXPECT_EQ(status["tooltip"].toString(), QStringLiteral("Varnel — Stopped (0/9 up)"));
    EXPECT_EQ(status["installedVersion"].toString(), QString());
    EXPECT_EQ(status["latestVersion"].toString(), QString());
    EXPECT_EQ(status["updateAvailable"], QJsonValue(false));
    EXPECT_EQ(status["certificates"].toObject()["detail"].toString(),
              QStringLiteral("Not installed"));
}

TEST_F(StatusCommandTest, TextReportLinesUpForPeople) {
    sim.generate(QStringLiteral("demo"));
    const Outcome outcome = varnelctl({QStringLiteral("status")}, sim.root());
    EXPECT_EQ(outcome.code, 1);
    const QStringList lines = outcome.out.split(u'\n');
    ASSERT_GE(lines.size(), 13);
    EXPECT_EQ(lines[0], QStringLiteral("Status        Needs attention (6/9 up)"));
    EXPECT_EQ(lines[1], QStringLiteral("Version       1.8.2, update available → 1.9.0"));
    EXPECT_EQ(
        lines[2],
        QStringLiteral("Certificates  Needs attention · 2/3 trusted — check varnel-proxy-ca.pem"));
    EXPECT_EQ(lines[4], QStringLiteral("  Agent              Running          pid 812"));
    EXPECT_EQ(lines[5], QStringLiteral("  Proxy              Running"));
    EXPECT_EQ(lines[6], QStringLiteral("  Network Extension  Needs attention  registered"));

    sim.setLatestVersion(QStringLiteral("1.8.2"));
    EXPECT_EQ(varnelctl({QStringLiteral("status")}, sim.root()).out.split(u'\n')[1],
              QStringLiteral("Version       1.8.2, up to date (latest 1.8.2)"));
}

TEST_F(StatusCommandTest, UsageAndRootProblems) {
    sim.generate(QStringLiteral("demo"));
    for (const QStringList& args : {QStringList{"status", "--jsn"}, QStringList{"status", "extra"},
                                    QStringList{"--bogus"}, QStringList{}}) {
        const Outcome outcome = varnelctl(args, sim.root());
        EXPECT_EQ(outcome.code, 64) << args.join(u' ').toStdString();
        EXPECT_TRUE(outcome.out.isEmpty());
        EXPECT_TRUE(outcome.err.contains(QStringLiteral("Usage: varnelctl")))
            << outcome.err.toStdString();
    }
    const Outcome help =
        varnelctl({QStringLiteral("status"), QStringLiteral("--help")}, sim.root());
    EXPECT_EQ(help.code, 0);
    EXPECT_TRUE(help.out.contains(QStringLiteral("--json")));
    const Outcome topHelp = varnelctl({QStringLiteral("--help")}, sim.root());
    EXPECT_EQ(topHelp.code, 0);
    EXPECT_TRUE(topHelp.out.contains(QStringLiteral("status")));
    EXPECT_TRUE(sim.calls(QStringLiteral("security")).isEmpty()) << "help must not probe";

    const Outcome missing = varnelctl({QStringLiteral("status")}, QStringLiteral("/nonexistent"));
    EXPECT_EQ(missing.code, 2);
    EXPECT_TRUE(missing.out.isEmpty());
    EXPECT_TRUE(missing.err.contains(QStringLiteral("/nonexistent")));
}
