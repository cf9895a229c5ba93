// The tray app runs all day: thousands of refreshes must leave nothing behind,
// and system tools that hang, flood, lie or vanish must cost no more than their
// time-outs and read as tools that failed.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QAction>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QSignalSpy>
#include <QThreadPool>
#include <cerrno>

#include "support/sim_suite.h"
#include "tray/app_delegate.h"

using namespace varnel;
using test::SimSuite;

namespace {

qsizetype entries(const char* procDir) {
    return QDir(QString::fromLatin1(procDir)).count();
}

qint64 residentKiB() {
    QFile statm("/proc/self/statm");
    if (!statm.open(QIODevice::ReadOnly)) return -1;
    const QList<QByteArray> fields = statm.readAll().split(' ');
    return fields.size() > 1 ? fields[1].toLongLong() * (::sysconf(_SC_PAGESIZE) / 1024) : -1;
}

bool childrenLeft() {
    int status = 0;
    return !(::waitpid(-1, &status, WNOHANG) == -1 && errno == ECHILD);
}

void settle() {
    QThreadPool::globalInstance()->waitForDone();
    QCoreApplication::processEvents();
}

bool refreshAndWait(AppDelegate& delegate, int timeoutMs = 120'000) {
    settle();
    QSignalSpy stored(&delegate, &AppDelegate::refreshed);
    delegate.refresh();
    return stored.wait(timeoutMs);
}

const ServiceStatus& service(const AppDelegate& delegate, const QString& key) {
    for (const ServiceStatus& status : delegate.latest())
        if (status.spec.key == key) return status;
    static const ServiceStatus none{};
    ADD_FAILURE() << "no service " << key.toStdString();
    return none;
}

}  // namespace

TEST(Soak, FiveThousandRefreshesLeaveNothingBehind) {
    SimSuite& sim = SimSuite::instance();
    sim.generate("demo");
    AppDelegate delegate({"VarnelStatus"}, QDir::tempPath());
    delegate.applicationDidFinishLaunching();
    for (int i = 0; i < 50; ++i) ASSERT_TRUE(refreshAndWait(delegate));  // warm caches and pools
    settle();

    const qsizetype fds = entries("/proc/self/fd");
    const qsizetype threads = entries("/proc/self/task");
    const qint64 rss = residentKiB();
    for (int i = 0; i < 5000; ++i) ASSERT_TRUE(refreshAndWait(delegate)) << "refresh " << i;
    settle();

    EXPECT_EQ(entries("/proc/self/fd"), fds);
    EXPECT_EQ(entries("/proc/self/task"), threads);
    EXPECT_FALSE(childrenLeft());
    EXPECT_LT(residentKiB() - rss, 2048)
        << "resident memory grew by " << residentKiB() - rss << " KiB";
    EXPECT_EQ(delegate.latest().size(), 9);
}

namespace {

struct Hostile {
    const char* name;
    QByteArray script;
};

// Every one ends non-zero, so each reads as a tool that failed.
const Hostile hostileTools[] = {
    {"hangs", "#!/bin/sh\ntrap '' TERM\n(trap '' TERM; sleep 600) &\nsleep 600\n"},
    {"floods", "#!/bin/sh\nhead -c 52428800 /dev/zero | tr '\\000' y\nexit 1\n"},
    {"liesInBadUtf8", "#!/bin/sh\nprintf 'state = running\\npid = 5\\n\\377\\376'\nexit 1\n"},
    {"exitsWithGarbage", "#!/bin/sh\nprintf '\\001\\002{]garbage'\nexit 97\n"},
    {"isMissing", {}},
};

struct Victim {
    const char* tool;
    int calls;            // the calls one refresh makes to it
    double worstSeconds;  // and their time-outs together
};

const Victim victims[] = {
    {"/usr/bin/pgrep", 7, 7 * 4.0},          // five processes, two "varnel" checks
    {"/bin/launchctl", 6, 3 * (6.0 + 4.0)},  // print then list, three jobs
    {"/usr/bin/systemextensionsctl", 1, 6.0},
    {"/usr/bin/security", 3, 3 * 8.0},  // three deployed certificates
};

class HostileTool : public ::testing::TestWithParam<std::tuple<int, int>> {};

}  // namespace

TEST_P(HostileTool, RefreshEndsInTimeAndReadsAFailedTool) {
    const Hostile& hostile = hostileTools[std::get<0>(GetParam())];
    const Victim& victim = victims[std::get<1>(GetParam())];
    SimSuite& sim = SimSuite::instance();
    sim.generate("demo");
    if (hostile.script.isEmpty())
        sim.removeTool(QString::fromLatin1(victim.tool));
    else
        sim.replaceTool(QString::fromLatin1(victim.tool), hostile.script);

    AppDelegate delegate({"VarnelStatus"}, QDir::tempPath());
    QElapsedTimer clock;
    clock.start();
    ASSERT_TRUE(refreshAndWait(delegate, 180'000));
    // Each call may take its time-out plus the runner's half-second grace.
    EXPECT_LT(clock.elapsed(), qint64((victim.worstSeconds + victim.calls * 0.6 + 3) * 1000));
    ASSERT_EQ(delegate.latest().size(), 9);

    switch (std::get<1>(GetParam())) {
        case 0:
            for (const char* key : {"proxy", "monitor", "templates", "ipc", "diagnostics"})
                EXPECT_EQ(service(delegate, key).extra, "not running") << key;
            EXPECT_EQ(service(delegate, "agent").health, Health::running);  // launchd says so
            EXPECT_EQ(service(delegate, "watcher").extra, "loaded, not running");
            break;
        case 1:
            EXPECT_EQ(service(delegate, "agent").extra, "not loaded");
            EXPECT_EQ(service(delegate, "watcher").extra, "not loaded");
            EXPECT_EQ(service(delegate, "updater").extra, "not scheduled");
            break;
        case 2:
            EXPECT_EQ(service(delegate, "sysext").health, Health::stopped);
            EXPECT_EQ(service(delegate, "sysext").extra, "not registered");
            break;
        default:
            EXPECT_EQ(delegate.certHealth(), Health::attention);
            EXPECT_EQ(delegate.certDetail(), "Deployed, NOT trusted (3)");
    }

    // The menu opens (after its own probe) and shows what was found.
    const bool slowToOpen = std::get<0>(GetParam()) == 0 && std::get<1>(GetParam()) != 3;
    if (!slowToOpen) {
        delegate.menu()->popup(QPoint(0, 0));
        EXPECT_TRUE(delegate.menu()->isVisible());
        delegate.menu()->hide();
    }
    EXPECT_GT(delegate.menu()->actions().size(), 15);
    settle();
    EXPECT_FALSE(childrenLeft());
}

INSTANTIATE_TEST_SUITE_P(
    EachToolInTurn, HostileTool,
    ::testing::Combine(::testing::Range(0, int(std::size(hostileTools))),
                       ::testing::Range(0, int(std::size(victims)))),
    [](const ::testing::TestParamInfo<std::tuple<int, int>>& param) {
        QString tool =
            QString::fromLatin1(victims[std::get<1>(param.param)].tool).section(u'/', -1);
        return (tool + u'_' + QLatin1String(hostileTools[std::get<0>(param.param)].name))
            .toStdString();
    });
