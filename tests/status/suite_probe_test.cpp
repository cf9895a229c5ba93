#include "status/suite_probe.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <QDir>
#include <QFile>

#include "support/sim_suite.h"

using namespace varnel;
using test::SimSuite;

namespace {

const QString support = QStringLiteral("/Library/Application Support/Varnel/");

// What a probe made of the suite's files, and of a service or the certificates.
auto readings(const SuiteProbe& p) {
    return std::tuple(p.installedVersion, p.latestVersion, p.certificates.detail);
}

QString reading(const SuiteProbe& probe, const char* key) {
    for (const ServiceStatus& status : probe.services)
        if (status.spec.key == QLatin1String(key)) return status.extra;
    return probe.certificates.detail;
}

class SuiteProbeTest : public ::testing::Test {
protected:
    // Once: under ThreadSanitizer a process may not fork (as the generator's
    // QProcess does) once probes have run threads. Each test puts back what it changes.
    static void SetUpTestSuite() { SimSuite::instance().generate(QStringLiteral("demo")); }

    // A named pipe would block a reader for good, a device would feed it without
    // end; an oversized file holds what was there, padded past the reader's limit.
    bool putHostile(int kind, const QString& path, const QByteArray& padded) {
        const QString host = sim.hostPath(path);
        switch (kind) {
            case 0:
                return ::mkfifo(QFile::encodeName(host).constData(), 0644) == 0;
            case 1:
                return QFile::link(QStringLiteral("/dev/zero"), host);
            case 2:
                return QDir().mkpath(host + QStringLiteral("/x"));
            default:
                sim.writeFile(path, padded);
                return true;
        }
    }

    SimSuite& sim = SimSuite::instance();
};

}  // namespace

TEST_F(SuiteProbeTest, AnythingButASmallRegularFileReadsAsMissing) {
    const char* const kinds[] = {"named pipe", "link to /dev/zero", "folder", "oversized file"};
    const std::pair<const char*, qsizetype> files[] = {
        {".installed_version", 64 * 1024},
        {".discovery-state.json", 1024 * 1024},
        {"varnel-root-ca.pem", 1024 * 1024},
    };
    for (const auto& [name, limit] : files) {
        const QString path = support + QLatin1String(name);
        QFile original(sim.hostPath(path));
        ASSERT_TRUE(original.open(QIODevice::ReadOnly));
        const QByteArray content = original.readAll();
        sim.removePath(path);
        const auto missing = readings(probeSuite());
        for (int kind = 0; kind < 4; ++kind) {
            ASSERT_TRUE(putHostile(kind, path, content + QByteArray(limit, '\n')));
            EXPECT_EQ(readings(probeSuite()), missing) << name << " as " << kinds[kind];
            sim.removePath(path);
        }
        sim.writeFile(path, content);
    }
}

// Whatever a tool does, the probe ends within the tools' time-outs, reads it as
// a tool that failed, and leaves no child behind.
TEST_F(SuiteProbeTest, HostileToolsReadAsFailedTools) {
    const std::tuple<const char*, QByteArray, const char*, const char*> cases[] = {
        // Hangs past its time-out, deaf to SIGTERM, and so is what it started.
        {"/usr/bin/pgrep", "trap '' TERM\n(trap '' TERM; sleep 600) &\nsleep 600\n", "proxy",
         "not running"},
        {"/usr/bin/systemextensionsctl", "exec cat /dev/zero\n", "sysext", "not registered"},
        {"/bin/launchctl", "printf 'state = running\\npid = 5\\n\\377\\376'\nexit 1\n", "agent",
         "not loaded"},
        {"/usr/bin/security", "printf '\\001\\002{]garbage'\nexit 97\n", "certificates",
         "Deployed, NOT trusted (3)"},
    };
    for (const auto& [tool, script, key, said] : cases) {
        QFile original(sim.hostPath(QLatin1String(tool)));
        ASSERT_TRUE(original.open(QIODevice::ReadOnly));
        const QByteArray kept = original.readAll();
        sim.replaceTool(QLatin1String(tool), "#!/bin/sh\n" + script);
        EXPECT_EQ(reading(probeSuite(), key), QString::fromUtf8(said)) << tool;
        sim.replaceTool(QLatin1String(tool), kept);
    }
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
}

TEST_F(SuiteProbeTest, TranscriptListsEachCallOnceInOneToolAtATimeOrder) {
    EXPECT_TRUE(probeSuite().transcript.isEmpty());
    const QString verify = QStringLiteral("/usr/bin/security verify-cert -c ") +
                           sim.hostPath(support) + QStringLiteral("varnel-%1-ca.pem -p ssl");
    const QStringList expected = {
        "/usr/bin/systemextensionsctl list",
        "/bin/launchctl print system/com.varnel.agent",
        "/usr/bin/pgrep -x varnel",  // asked again by the watcher, run once
        "/usr/bin/pgrep -x varnel-proxy",
        "/usr/bin/pgrep -x varnel-monitor-v2",
        "/usr/bin/pgrep -x template-engine",
        "/usr/bin/pgrep -x ipc-light-broker",
        "/usr/bin/pgrep -x varnel-diagnostics",
        "/bin/launchctl print system/com.varnel.endpoint.updater",
        "/bin/launchctl print system/com.varnel.endpoint.watcher",
        verify.arg("intermediate"),
        verify.arg("proxy"),
        verify.arg("root"),
    };
    for (int round = 0; round < 5; ++round) {
        const SuiteProbe probe = probeSuite({.keepTranscript = true});
        QStringList calls;
        for (const ToolCall& call : probe.transcript)
            calls << (QStringList{call.executable} + call.arguments).join(u' ');
        ASSERT_EQ(calls, expected) << "round " << round;
        EXPECT_EQ(probe.transcript[2].out, QStringLiteral("812\n"));
        EXPECT_EQ(probe.transcript[4].code, 1);   // the demo's monitor is down
        EXPECT_EQ(probe.transcript[11].code, 1);  // and its proxy CA not trusted
        EXPECT_GT(probe.transcript[0].seconds, 0);
    }
}
