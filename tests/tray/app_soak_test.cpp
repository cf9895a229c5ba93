// The tray app runs all day: thousands of refreshes must leave nothing behind.
// Only what a leak would grow is counted (descriptors, children, memory), never
// what a busy machine changes on its own, such as how many pool threads are idle.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTest>
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

// Until no refresh of the delegate's is under way and what it handed back is
// delivered. Delivering runs events, and the delegate's own ten-second timer may
// start another refresh among them, so quiet is checked again after each round.
bool settle(const AppDelegate& delegate) {
    const QDeadlineTimer deadline(120'000);
    do {
        while (delegate.isRefreshing() && !deadline.hasExpired()) QTest::qWait(10);
        QCoreApplication::processEvents();
    } while (delegate.isRefreshing() && !deadline.hasExpired());
    return !delegate.isRefreshing();
}

bool refreshAndWait(AppDelegate& delegate, int timeoutMs = 120'000) {
    if (!settle(delegate)) return false;
    QSignalSpy stored(&delegate, &AppDelegate::refreshed);
    delegate.refresh();
    return stored.wait(timeoutMs);
}

}  // namespace

TEST(Soak, FiveThousandRefreshesLeaveNothingBehind) {
    SimSuite& sim = SimSuite::instance();
    sim.generate("demo");
    AppDelegate delegate({"VarnelStatus"}, QDir::tempPath());
    delegate.applicationDidFinishLaunching();
    for (int i = 0; i < 50; ++i) ASSERT_TRUE(refreshAndWait(delegate));  // warm caches and pools
    ASSERT_TRUE(settle(delegate));

    const qsizetype fds = entries("/proc/self/fd");
    const qint64 rss = residentKiB();
    for (int i = 0; i < 5000; ++i) ASSERT_TRUE(refreshAndWait(delegate)) << "refresh " << i;
    ASSERT_TRUE(settle(delegate));

    // Fewer is fine: a lane's thread that retires when idle takes its own wake-up descriptor.
    EXPECT_LE(entries("/proc/self/fd"), fds);
    EXPECT_FALSE(childrenLeft());
    EXPECT_LT(residentKiB() - rss, 2048)
        << "resident memory grew by " << residentKiB() - rss << " KiB";
    EXPECT_EQ(delegate.latest().size(), 9);
}
