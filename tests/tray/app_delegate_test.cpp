#include "tray/app_delegate.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <QAction>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>

#include "platform/paths.h"
#include "support/sim_suite.h"
#include "ui/system_palette.h"

using namespace varnel;
using test::SimSuite;

namespace {

// Lets earlier work deliver its results.
void settle() {
    QThreadPool::globalInstance()->waitForDone();
    QCoreApplication::processEvents();
}

class Delegate : public ::testing::Test {
protected:
    void SetUp() override {
        sim.generate("demo");
        for (const char* name : {"icon.png", "icon@2x.png"})
            QFile::copy(QString(VARNEL_ICON_DIR "/") + name, iconDir.filePath(name));
    }
    void TearDown() override { settle(); }

    std::unique_ptr<AppDelegate> launch(QStringList arguments = {}) {
        auto delegate =
            std::make_unique<AppDelegate>(QStringList{"VarnelStatus"} + arguments, iconDir.path());
        delegate->applicationDidFinishLaunching();
        return delegate;
    }

    static void refreshAndWait(AppDelegate& delegate) {
        settle();
        QSignalSpy stored(&delegate, &AppDelegate::refreshed);
        delegate.refresh();
        ASSERT_TRUE(stored.wait(20'000));
    }

    static QList<int> pendingRefreshes(const AppDelegate& delegate) {
        QList<int> delays;
        for (const QTimer* timer : delegate.findChildren<QTimer*>("scheduledRefresh"))
            if (timer->isActive()) delays << timer->interval();
        std::sort(delays.begin(), delays.end());
        return delays;
    }

    static QStringList titles(QMenu* menu) {
        QStringList out;
        for (const QAction* item : menu->actions()) out << item->text();
        return out;
    }

    SimSuite& sim = SimSuite::instance();
    QTemporaryDir iconDir;
};

}  // namespace

TEST_F(Delegate, StartsWithTheIconTheMenuAndOneRefreshUnderWay) {
    auto delegate = std::make_unique<AppDelegate>(QStringList{"VarnelStatus"}, iconDir.path());
    QSignalSpy stored(delegate.get(), &AppDelegate::refreshed);
    delegate->applicationDidFinishLaunching();

    EXPECT_FALSE(delegate->statusItem()->icon().isNull());
    EXPECT_EQ(delegate->statusItem()->toolTip(), "Varnel");
    EXPECT_EQ(delegate->statusItem()->contextMenu(), delegate->menu());
    EXPECT_EQ(delegate->installedVersion(), "1.8.2");
    EXPECT_EQ(delegate->certDetail(), "checking…");
    EXPECT_TRUE(titles(delegate->menu()).contains("Checking services…"));
    EXPECT_EQ(titles(delegate->menu())[1], "Status: Unknown");
    EXPECT_EQ(delegate->logViewer().window(), nullptr);

    ASSERT_TRUE(stored.wait(20'000));
    EXPECT_EQ(delegate->latest().size(), 9);
    EXPECT_EQ(delegate->statusItem()->toolTip(), "Varnel — Needs attention (6/9 up)");
    EXPECT_EQ(titles(delegate->menu())[1], "Status: Needs attention");
}

TEST_F(Delegate, StartsWithoutAnIconAndOpensTheLogsOnlyWhenAskedExactly) {
    QTemporaryDir empty;
    AppDelegate plain({"VarnelStatus", "--OPEN-LOGS", "--open-logs=1"}, empty.path());
    plain.applicationDidFinishLaunching();
    EXPECT_TRUE(plain.statusItem()->icon().isNull());
    EXPECT_EQ(plain.statusItem()->toolTip(), "Varnel");
    EXPECT_EQ(plain.logViewer().window(), nullptr);

    auto asked = launch({"--open-logs"});
    ASSERT_NE(asked->logViewer().window(), nullptr);
    EXPECT_TRUE(asked->logViewer().window()->isVisible());
}

TEST_F(Delegate, RefreshStoresWhatItReadAndKeepsAnInstalledVersionThatVanished) {
    auto delegate = launch();
    refreshAndWait(*delegate);
    EXPECT_EQ(delegate->latestVersion(), "1.9.0");
    EXPECT_EQ(delegate->certHealth(), Health::attention);
    EXPECT_EQ(delegate->certDetail(), "2/3 trusted — check varnel-proxy-ca.pem");

    sim.removePath(Paths::installedVer);
    sim.removePath(Paths::discoveryState);
    sim.setProcess("varnel-proxy", {});
    refreshAndWait(*delegate);
    EXPECT_EQ(delegate->installedVersion(), "1.8.2");
    EXPECT_EQ(delegate->latestVersion(), "");
    EXPECT_EQ(delegate->statusItem()->toolTip(), "Varnel — Stopped (5/9 up)");

    sim.setInstalledVersion("1.4.2\n");
    refreshAndWait(*delegate);
    EXPECT_EQ(delegate->installedVersion(), "1.4.2");
    EXPECT_TRUE(titles(delegate->menu()).contains("Installed version 1.4.2"));
}

TEST_F(Delegate, OpeningTheMenuProbesAfreshAndDotsKeepTheirColourWhenDisabled) {
    auto delegate = launch();
    refreshAndWait(*delegate);
    sim.setProcess("varnel-monitor-v2", {901});

    delegate->menu()->popup(QPoint(0, 0));  // aboutToShow: a synchronous snapshot
    EXPECT_EQ(delegate->latest()[3].health, Health::running);
    EXPECT_EQ(delegate->statusItem()->toolTip(), "Varnel — Needs attention (7/9 up)");
    delegate->menu()->hide();

    const QAction* status = delegate->menu()->actions()[1];
    EXPECT_FALSE(status->isEnabled());
    const QImage dot = status->icon().pixmap(10, QIcon::Disabled).toImage();
    EXPECT_EQ(dot.pixelColor(5, 5), resolve(SystemColor::yellow));
    EXPECT_EQ(delegate->menu()->actions().last()->shortcut(), QKeySequence("Ctrl+Q"));
}

TEST_F(Delegate, RestartAndUpdateAskForApprovalReportAndScheduleRefreshes) {
    auto delegate = launch();
    refreshAndWait(*delegate);
    QSignalSpy reports(delegate.get(), &AppDelegate::notified);

    delegate->restartService(std::nullopt);
    settle();
    EXPECT_TRUE(sim.calls("osascript").isEmpty());
    EXPECT_TRUE(pendingRefreshes(*delegate).isEmpty());

    delegate->restartService("com.varnel.endpoint.watcher");
    ASSERT_TRUE(reports.wait(20'000));
    EXPECT_EQ(reports.takeFirst().at(0),
              "Varnel: Varnel — com.varnel.endpoint.watcher restart "
              "requested.");
    EXPECT_EQ(pendingRefreshes(*delegate), QList<int>{1500});
    EXPECT_EQ(sim.calls("osascript").last(),
              "do shell script \"launchctl kickstart -k system/com.varnel.endpoint.watcher\" with "
              "administrator privileges with prompt \"Varnel needs administrator access to restart "
              "the com.varnel.endpoint.watcher service.\"");
    EXPECT_TRUE(sim.calls("launchctl").contains("kickstart -k system/com.varnel.endpoint.watcher"));

    sim.setOsascriptAnswer(SimSuite::Answer::cancel);
    delegate->checkForUpdates();
    const QList<int> afterUpdate{1500, 4000, 12'000, 30'000};
    QElapsedTimer clock;
    clock.start();
    while (pendingRefreshes(*delegate) != afterUpdate && !clock.hasExpired(20'000))
        QTest::qWait(20);
    EXPECT_EQ(pendingRefreshes(*delegate), afterUpdate);
    EXPECT_TRUE(reports.isEmpty());  // a cancel is not reported
    EXPECT_TRUE(sim.calls("osascript").last().endsWith("install the update (1.8.2 → 1.9.0).\""));

    sim.setOsascriptAnswer(SimSuite::Answer::deny);
    delegate->updateNow();
    ASSERT_TRUE(reports.wait(20'000));
    EXPECT_EQ(reports.takeFirst().at(0),
              "Varnel: Varnel — Could not start update. See the updater log.");
}

TEST_F(Delegate, OpensPathsWithTheSystemOpenerAndHintsThroughTheRegistry) {
    auto delegate = launch();
    delegate->openPath(Paths::serviceLogDir);
    delegate->openPath(std::nullopt);
    EXPECT_EQ(sim.calls("open"), QStringList{sim.hostPath(Paths::serviceLogDir)});

    delegate->openLog("hint:proxy.log");
    ASSERT_NE(delegate->logViewer().window(), nullptr);
    EXPECT_TRUE(delegate->logViewer().window()->isVisible());
}

TEST_F(Delegate, RemovesItselfAtTheSecondRefreshInARowWithoutItsExecutable) {
    AppDelegate delegate({"VarnelStatus"}, iconDir.path());
    sim.removePath(Paths::selfBundle);
    refreshAndWait(delegate);  // the first miss still probes
    EXPECT_EQ(delegate.missingBundleStreak(), 1);
    sim.writeFile(Paths::selfBundle, "#!/bin/sh\n");
    refreshAndWait(delegate);
    EXPECT_EQ(delegate.missingBundleStreak(), 0);
    sim.removePath(Paths::selfBundle);
    refreshAndWait(delegate);
    EXPECT_TRUE(sim.calls("launchctl").filter("bootout").isEmpty());

    QSignalSpy stored(&delegate, &AppDelegate::refreshed);
    QTimer::singleShot(0, &delegate, &AppDelegate::refresh);
    QTimer::singleShot(10'000, [] { QCoreApplication::exit(99); });
    EXPECT_EQ(QCoreApplication::exec(), 0);  // 99: it never asked to quit
    EXPECT_EQ(sim.calls("launchctl").filter("bootout"),
              QStringList{QString("bootout gui/%1/com.varnel.tray").arg(::getuid())});
    settle();
    EXPECT_EQ(stored.count(), 0);  // nothing was probed
}

TEST_F(Delegate, OverlappingRefreshesAndResultsForADelegateThatIsGone) {
    auto delegate = launch();
    settle();
    QSignalSpy stored(delegate.get(), &AppDelegate::refreshed);
    for (int i = 0; i < 6; ++i) delegate->refresh();
    settle();
    EXPECT_EQ(stored.count(), 6);
    EXPECT_EQ(delegate->statusItem()->toolTip(), "Varnel — Needs attention (6/9 up)");

    for (int round = 0; round < 5; ++round) {
        auto gone = std::make_unique<AppDelegate>(QStringList{"VarnelStatus"}, iconDir.path());
        gone->refresh();
        gone->restartService("com.varnel.agent");
        gone->updateNow();
    }
    settle();  // their deliveries find nobody: no crash, no report
    EXPECT_EQ(sim.calls("osascript").size(), 10);
}

TEST(VarnelStatusProgram, RunsOffscreenOnASuiteAndQuitsWhenUninstalled) {
    QTemporaryDir root;
    ASSERT_TRUE(test::makeSuite(root.path(), "demo"));
    ASSERT_TRUE(QFile::remove(root.path() + Paths::selfBundle));

    QProcess app;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("VARNEL_ROOT", root.path());
    env.insert("QT_QPA_PLATFORM", "offscreen");
    app.setProcessEnvironment(env);
    app.start(VARNEL_STATUS_BIN, {"--open-logs"});
    // Missing at the launch refresh and at the first tick ten seconds later.
    ASSERT_TRUE(app.waitForFinished(25'000)) << "still running";
    EXPECT_EQ(app.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(app.exitCode(), 0);
    QFile calls(root.path() + "/.sim/calls/launchctl");
    ASSERT_TRUE(calls.open(QIODevice::ReadOnly));
    EXPECT_EQ(calls.readAll().count("bootout gui/"), 1);
    EXPECT_TRUE(app.readAllStandardError().contains("no system tray"));
}
