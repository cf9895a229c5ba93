#include "app/app_delegate.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <QAction>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>
#include <QTimer>

#include "app/system_palette.h"
#include "monitor/paths.h"
#include "support/sim_suite.h"

using namespace varnel;
using test::SimSuite;

namespace {

class Delegate : public ::testing::Test {
protected:
    void SetUp() override {
        sim.generate(QStringLiteral("demo"));
        ASSERT_TRUE(iconDir.isValid());
        for (const char* name : {"icon.png", "icon@2x.png"})
            QFile::copy(QStringLiteral(VARNEL_ICON_DIR "/") + name, iconDir.filePath(name));
    }
    void TearDown() override { QThreadPool::globalInstance()->waitForDone(20'000); }

    // Lets earlier work deliver its results, then refreshes and waits for this
    // refresh's results to be stored.
    static void settle() {
        QThreadPool::globalInstance()->waitForDone();
        QCoreApplication::processEvents();
    }
    static void refreshAndWait(AppDelegate& delegate) {
        settle();
        QSignalSpy stored(&delegate, &AppDelegate::refreshed);
        delegate.refresh();
        ASSERT_TRUE(stored.wait(20'000));
    }

    static QList<int> pendingRefreshes(const AppDelegate& delegate) {
        QList<int> delays;
        for (const QTimer* timer :
             delegate.findChildren<QTimer*>(QStringLiteral("scheduledRefresh")))
            if (timer->isActive()) delays << timer->interval();
        std::sort(delays.begin(), delays.end());
        return delays;
    }

    static QAction* action(QMenu* menu, const QString& title) {
        for (QAction* item : menu->actions())
            if (item->text() == title) return item;
        ADD_FAILURE() << "no item " << title.toStdString();
        return nullptr;
    }

    SimSuite& sim = SimSuite::instance();
    QTemporaryDir iconDir;
};

}  // namespace

TEST_F(Delegate, StartsWithTheIconTheMenuAndOneRefreshUnderWay) {
    AppDelegate delegate({QStringLiteral("VarnelStatus")}, iconDir.path());
    QSignalSpy stored(&delegate, &AppDelegate::refreshed);
    delegate.applicationDidFinishLaunching();

    ASSERT_NE(delegate.statusItem(), nullptr);
    EXPECT_FALSE(delegate.statusItem()->icon().isNull());
    EXPECT_EQ(delegate.statusItem()->toolTip(), QStringLiteral("Varnel"));
    EXPECT_EQ(delegate.statusItem()->contextMenu(), delegate.menu());
    EXPECT_EQ(delegate.installedVersion(), QStringLiteral("1.8.2"));
    EXPECT_EQ(delegate.certDetail(), QStringLiteral("checking…"));
    EXPECT_NE(action(delegate.menu(), QStringLiteral("Checking services…")), nullptr);
    EXPECT_EQ(delegate.menu()->actions()[1]->text(), QStringLiteral("Status: Unknown"));
    EXPECT_EQ(delegate.logViewer().window(), nullptr);

    ASSERT_TRUE(stored.wait(20'000));
    EXPECT_EQ(delegate.latest().size(), 9);
    EXPECT_EQ(delegate.statusItem()->toolTip(),
              QStringLiteral("Varnel — Needs attention (6/9 up)"));
    EXPECT_EQ(delegate.menu()->actions()[1]->text(), QStringLiteral("Status: Needs attention"));
}

TEST_F(Delegate, StartsWithoutAnIconAndOpensTheLogsOnlyWhenAskedExactly) {
    QTemporaryDir empty;
    AppDelegate plain({QStringLiteral("VarnelStatus"), QStringLiteral("--OPEN-LOGS"),
                       QStringLiteral("--open-logs=1")},
                      empty.path());
    plain.applicationDidFinishLaunching();
    EXPECT_TRUE(plain.statusItem()->icon().isNull());
    EXPECT_EQ(plain.statusItem()->toolTip(), QStringLiteral("Varnel"));
    EXPECT_EQ(plain.logViewer().window(), nullptr);

    AppDelegate asked({QStringLiteral("VarnelStatus"), QStringLiteral("--open-logs")},
                      iconDir.path());
    asked.applicationDidFinishLaunching();
    ASSERT_NE(asked.logViewer().window(), nullptr);
    EXPECT_TRUE(asked.logViewer().window()->isVisible());
}

TEST_F(Delegate, RefreshStoresWhatItReadAndKeepsAnInstalledVersionThatVanished) {
    AppDelegate delegate({QStringLiteral("VarnelStatus")}, iconDir.path());
    delegate.applicationDidFinishLaunching();
    refreshAndWait(delegate);
    EXPECT_EQ(delegate.latestVersion(), QStringLiteral("1.9.0"));
    EXPECT_EQ(delegate.certHealth(), Health::attention);
    EXPECT_EQ(delegate.certDetail(), QStringLiteral("2/3 trusted — check varnel-proxy-ca.pem"));

    sim.removePath(Paths::installedVer);
    sim.removePath(Paths::discoveryState);
    sim.setProcess(QStringLiteral("varnel-proxy"), {});
    refreshAndWait(delegate);
    EXPECT_EQ(delegate.installedVersion(), QStringLiteral("1.8.2"));
    EXPECT_EQ(delegate.latestVersion(), QString());
    EXPECT_EQ(delegate.statusItem()->toolTip(), QStringLiteral("Varnel — Stopped (5/9 up)"));

    sim.setInstalledVersion("1.4.2\n");
    refreshAndWait(delegate);
    EXPECT_EQ(delegate.installedVersion(), QStringLiteral("1.4.2"));
    EXPECT_NE(action(delegate.menu(), QStringLiteral("Installed version 1.4.2")), nullptr);
}

TEST_F(Delegate, OpeningTheMenuProbesAfreshAndDotsKeepTheirColourWhenDisabled) {
    AppDelegate delegate({QStringLiteral("VarnelStatus")}, iconDir.path());
    delegate.applicationDidFinishLaunching();
    refreshAndWait(delegate);
    sim.setProcess(QStringLiteral("varnel-monitor-v2"), {901});

    delegate.menu()->popup(QPoint(0, 0));  // aboutToShow: a synchronous snapshot
    EXPECT_EQ(delegate.latest()[3].health, Health::running);
    EXPECT_EQ(delegate.statusItem()->toolTip(),
              QStringLiteral("Varnel — Needs attention (7/9 up)"));
    delegate.menu()->hide();

    const QAction* status = delegate.menu()->actions()[1];
    EXPECT_FALSE(status->isEnabled());
    const QImage dot = status->icon().pixmap(10, QIcon::Disabled).toImage();
    EXPECT_EQ(dot.pixelColor(5, 5), resolve(SystemColor::yellow));
    const QAction* quit = action(delegate.menu(), QStringLiteral("Quit Varnel Status"));
    EXPECT_EQ(quit->shortcut(), QKeySequence(QStringLiteral("Ctrl+Q")));
}

TEST_F(Delegate, RestartAndUpdateAskForApprovalReportAndScheduleRefreshes) {
    AppDelegate delegate({QStringLiteral("VarnelStatus")}, iconDir.path());
    delegate.applicationDidFinishLaunching();
    refreshAndWait(delegate);
    QSignalSpy reports(&delegate, &AppDelegate::notified);
    const QList<int> none;

    delegate.restartService(std::nullopt);
    settle();
    EXPECT_TRUE(sim.calls(QStringLiteral("osascript")).isEmpty());
    EXPECT_EQ(pendingRefreshes(delegate), none);

    delegate.restartService(QStringLiteral("com.varnel.endpoint.watcher"));
    ASSERT_TRUE(reports.wait(20'000));
    EXPECT_EQ(reports.takeFirst().at(0).toString(),
              QStringLiteral("Varnel: Varnel — com.varnel.endpoint.watcher restart requested."));
    EXPECT_EQ(pendingRefreshes(delegate), QList<int>{1500});
    EXPECT_EQ(sim.calls(QStringLiteral("osascript")).last(),
              QStringLiteral("do shell script \"launchctl kickstart -k "
                             "system/com.varnel.endpoint.watcher\" with administrator privileges "
                             "with prompt \"Varnel needs administrator access to restart the "
                             "com.varnel.endpoint.watcher service.\""));
    EXPECT_TRUE(sim.calls(QStringLiteral("launchctl"))
                    .contains(QStringLiteral("kickstart -k system/com.varnel.endpoint.watcher")));

    sim.setOsascriptAnswer(SimSuite::Answer::cancel);
    delegate.checkForUpdates();
    const QList<int> afterUpdate{1500, 4000, 12'000, 30'000};
    QElapsedTimer clock;
    clock.start();
    while (pendingRefreshes(delegate) != afterUpdate && !clock.hasExpired(20'000)) QTest::qWait(20);
    EXPECT_EQ(pendingRefreshes(delegate), afterUpdate);
    EXPECT_TRUE(reports.isEmpty());  // a cancel is not reported
    EXPECT_TRUE(sim.calls(QStringLiteral("osascript"))
                    .last()
                    .endsWith(QStringLiteral("install the update (1.8.2 → 1.9.0).\"")));

    sim.setOsascriptAnswer(SimSuite::Answer::deny);
    delegate.updateNow();
    ASSERT_TRUE(reports.wait(20'000));
    EXPECT_EQ(reports.takeFirst().at(0).toString(),
              QStringLiteral("Varnel: Varnel — Could not start update. See the updater log."));
}

TEST_F(Delegate, OpensPathsWithTheSystemOpenerAndHintsThroughTheRegistry) {
    AppDelegate delegate({QStringLiteral("VarnelStatus")}, iconDir.path());
    delegate.applicationDidFinishLaunching();
    delegate.openPath(Paths::serviceLogDir);
    delegate.openPath(std::nullopt);
    EXPECT_EQ(sim.calls(QStringLiteral("open")), QStringList{sim.hostPath(Paths::serviceLogDir)});

    delegate.openLog(QStringLiteral("hint:proxy.log"));
    ASSERT_NE(delegate.logViewer().window(), nullptr);
    EXPECT_TRUE(delegate.logViewer().window()->isVisible());
}

TEST_F(Delegate, RemovesItselfAtTheSecondRefreshInARowWithoutItsExecutable) {
    AppDelegate delegate({QStringLiteral("VarnelStatus")}, iconDir.path());
    sim.removePath(Paths::selfBundle);
    refreshAndWait(delegate);  // the first miss still probes
    EXPECT_EQ(delegate.missingBundleStreak(), 1);

    sim.writeFile(Paths::selfBundle, "#!/bin/sh\n");
    refreshAndWait(delegate);
    EXPECT_EQ(delegate.missingBundleStreak(), 0);

    sim.removePath(Paths::selfBundle);
    refreshAndWait(delegate);
    EXPECT_TRUE(sim.calls(QStringLiteral("launchctl")).filter(QStringLiteral("bootout")).isEmpty());

    QSignalSpy stored(&delegate, &AppDelegate::refreshed);
    QTimer::singleShot(0, &delegate, &AppDelegate::refresh);
    QTimer::singleShot(10'000, [] { QCoreApplication::exit(99); });
    EXPECT_EQ(QCoreApplication::exec(), 0);  // 99: it never asked to quit
    EXPECT_EQ(sim.calls(QStringLiteral("launchctl")).filter(QStringLiteral("bootout")),
              QStringList{QStringLiteral("bootout gui/%1/com.varnel.tray").arg(::getuid())});
    settle();
    EXPECT_EQ(stored.count(), 0);  // nothing was probed
}

TEST(VarnelStatusProgram, RunsOffscreenOnASuiteAndQuitsWhenUninstalled) {
    QTemporaryDir root;
    ASSERT_TRUE(test::makeSuite(root.path(), QStringLiteral("demo")));
    ASSERT_TRUE(QFile::remove(root.path() + Paths::selfBundle));

    QProcess app;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("VARNEL_ROOT"), root.path());
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    app.setProcessEnvironment(env);
    app.start(QStringLiteral(VARNEL_STATUS_BIN), {QStringLiteral("--open-logs")});
    ASSERT_TRUE(app.waitForStarted());
    // Missing at the launch refresh and at the first tick ten seconds later.
    ASSERT_TRUE(app.waitForFinished(25'000)) << "still running";
    EXPECT_EQ(app.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(app.exitCode(), 0);
    QFile calls(root.path() + QStringLiteral("/.sim/calls/launchctl"));
    ASSERT_TRUE(calls.open(QIODevice::ReadOnly));
    EXPECT_EQ(QString::fromUtf8(calls.readAll()).count(QStringLiteral("bootout gui/")), 1);
    EXPECT_TRUE(app.readAllStandardError().contains("no system tray"));
}

TEST_F(Delegate, OverlappingRefreshesEachStoreTheirResults) {
    AppDelegate delegate({QStringLiteral("VarnelStatus")}, iconDir.path());
    delegate.applicationDidFinishLaunching();
    settle();
    QSignalSpy stored(&delegate, &AppDelegate::refreshed);
    for (int i = 0; i < 6; ++i) delegate.refresh();
    delegate.refreshNow();
    settle();
    EXPECT_EQ(stored.count(), 7);
    EXPECT_EQ(delegate.latest().size(), 9);
    EXPECT_EQ(delegate.statusItem()->toolTip(),
              QStringLiteral("Varnel — Needs attention (6/9 up)"));
}

TEST_F(Delegate, ResultsArrivingAfterTheDelegateIsGoneAreDropped) {
    sim.setOsascriptAnswer(SimSuite::Answer::approve);
    for (int round = 0; round < 5; ++round) {
        auto* delegate = new AppDelegate({QStringLiteral("VarnelStatus")}, iconDir.path());
        delegate->refresh();
        delegate->restartService(QStringLiteral("com.varnel.agent"));
        delegate->updateNow();
        delete delegate;
    }
    settle();  // the work finishes and its deliveries find nobody: no crash, no report
    EXPECT_EQ(sim.calls(QStringLiteral("osascript")).size(), 10);
}
