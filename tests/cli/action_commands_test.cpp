// varnelctl restart and update, run for real against a simulated suite whose
// osascript records every script it is handed and answers as told.
#include <gtest/gtest.h>

#include <QProcess>

#include "support/sim_suite.h"

using varnel::test::SimSuite;
using Answer = SimSuite::Answer;

namespace {

struct Outcome {
    int code = -1;
    QString out;
    QString err;
};

Outcome varnelctl(const QStringList& args) {
    QProcess process;  // inherits VARNEL_ROOT, set by the simulated suite
    process.start(QStringLiteral(VARNELCTL), args);
    if (!process.waitForFinished(60'000)) return {};
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

QString script(const QString& command, const QString& prompt) {
    return QStringLiteral("do shell script \"%1\" with administrator privileges with prompt \"%2\"")
        .arg(command, prompt);
}

class ActionCommandTest : public ::testing::Test {
protected:
    void SetUp() override { sim.generate(QStringLiteral("demo")); }
    SimSuite& sim = SimSuite::instance();
};

}  // namespace

TEST_F(ActionCommandTest, RestartTakesALabelOrAKeyAndReportsTheAnswer) {
    const struct {
        const char* word;
        const char* label;
        const char* name;
    } targets[] = {
        {"com.varnel.agent", "com.varnel.agent", "Agent"},
        {"proxy", "com.varnel.agent", "Agent"},  // no job of its own: the agent runs it
        {"updater", "com.varnel.endpoint.updater", "com.varnel.endpoint.updater"},
    };
    for (const auto& t : targets) {
        const Outcome done = varnelctl({"restart", t.word});
        EXPECT_EQ(done.code, 0) << t.word << done.err.toStdString();
        EXPECT_EQ(done.out, QLatin1String(t.name) + " restart requested.\n");
        EXPECT_EQ(sim.calls("osascript").last(),
                  script(QStringLiteral("launchctl kickstart -k system/") + t.label,
                         QStringLiteral("Varnel needs administrator access to restart the ") +
                             t.name + " service."));
        EXPECT_EQ(sim.calls("launchctl").last(),
                  QStringLiteral("kickstart -k system/") + t.label);  // approved, so it ran
    }

    const std::tuple<Answer, int, const char*> answers[] = {
        {Answer::cancel, 2, "Cancelled.\n"},
        {Answer::fail, 1, "Restart failed. See Console for details.\n"},
        {Answer::deny, 1, "Restart failed. See Console for details.\n"},
    };
    for (const auto& [answer, code, said] : answers) {
        sim.setOsascriptAnswer(answer);
        const Outcome outcome = varnelctl({"restart", "agent"});
        EXPECT_EQ(std::tuple(outcome.code, outcome.out, outcome.err),
                  std::tuple(code, QString(), QString::fromUtf8(said)));
    }

    const qsizetype asked = sim.calls("osascript").size();
    for (const QStringList& args : {QStringList{"restart"}, QStringList{"restart", "nginx"},
                                    QStringList{"restart", "agent", "proxy"}})
        EXPECT_EQ(varnelctl(args).code, 64) << args.join(u' ').toStdString();
    EXPECT_EQ(sim.calls("osascript").size(), asked) << "bad usage must not ask for approval";
}

TEST_F(ActionCommandTest, UpdateWordsItsPromptFromTheVersions) {
    const QString command =
        QStringLiteral("launchctl kickstart -k system/com.varnel.endpoint.updater");
    const Outcome started = varnelctl({"update"});
    EXPECT_EQ(std::pair(started.code, started.out),
              std::pair(0, QStringLiteral("Update started — installing in the background.\n")));
    EXPECT_EQ(sim.calls("osascript").last(),
              script(command,
                     "Varnel needs administrator access to install the update (1.8.2 → "
                     "1.9.0)."));

    // Quotes and backslashes travel escaped, and macOS (like the sim) accepts them.
    sim.writeFile("/Library/Application Support/Varnel/.discovery-state.json",
                  R"({"last_resolved": {"agent_version_mac": "2.0\" \\ \u0007"}})");
    EXPECT_EQ(varnelctl({"update"}).code, 0);
    EXPECT_EQ(sim.calls("osascript").last(),
              script(command, R"(Varnel needs administrator access to install the update (1.8.2 → )"
                              R"(2.0\" \\ ).)"));

    sim.setOsascriptAnswer(Answer::fail);
    const Outcome failed = varnelctl({"update"});
    EXPECT_EQ(std::pair(failed.code, failed.err),
              std::pair(1, QStringLiteral("Could not start update. See the updater log.\n")));
    EXPECT_EQ(varnelctl({"update", "now"}).code, 64);
}
