#include "tray/app_delegate.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <QAction>
#include <QElapsedTimer>
#include <QFile>
#include <QPointer>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <functional>

#include "platform/file_system.h"
#include "platform/paths.h"
#include "support/sim_suite.h"
#include "ui/system_palette.h"

using namespace varnel;
using test::SimSuite;

namespace {

bool waitUntil(const std::function<bool()>& done, int timeoutMs = 20'000) {
    QElapsedTimer clock;
    clock.start();
    while (!done() && !clock.hasExpired(timeoutMs)) QTest::qWait(10);
    return done();
}

// A pgrep that answers only once the gate file exists: a tool that hangs until
// the test lets it go.
const QByteArray gatedPgrep =
    "#!/bin/sh\nroot=${0%/usr/bin/pgrep}\n"
    "while [ ! -e \"$root/gate\" ]; do sleep 0.02; done\n"
    "[ -s \"$root/.sim/procs/$2\" ] && { cat \"$root/.sim/procs/$2\"; exit 0; }\nexit 1\n";

class Delegate : public ::testing::Test {
protected:
    void SetUp() override {
        sim.generate("demo");
        for (const char* name : {"icon.png", "icon@2x.png"})
            QFile::copy(QString(VARNEL_ICON_DIR "/") + name, iconDir.filePath(name));
    }
    void hangPgrep() {
        QFile::remove(sim.root() + "/gate");
        sim.replaceTool("/usr/bin/pgrep", gatedPgrep);
    }
    void releasePgrep() { sim.writeFile("/gate", {}); }

    std::unique_ptr<AppDelegate> launch(QStringList arguments = {}) {
        auto delegate =
            std::make_unique<AppDelegate>(QStringList{"VarnelStatus"} + arguments, iconDir.path());
        delegate->applicationDidFinishLaunching();
        return delegate;
    }

    static void refreshAndWait(AppDelegate& delegate) {
        ASSERT_TRUE(waitUntil([&] { return !delegate.isRefreshing(); }));
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

    static QStringList titles(const QMenu* menu) {
        QStringList out;
        for (const QAction* item : menu->actions()) out << item->text();
        return out;
    }

    static QAction* item(const QMenu* menu, const QString& title) {
        for (QAction* action : menu->actions())
            if (action->text() == title) return action;
        return nullptr;
    }

    SimSuite& sim = SimSuite::instance();
    QTemporaryDir iconDir;
};

}  // namespace

TEST_F(Delegate, StartsWithTheIconTheMenuAndOneRefreshUnderWay) {
    QCoreApplication::setAttribute(Qt::AA_DontShowIconsInMenus);  // as Qt starts on macOS
    auto delegate = std::make_unique<AppDelegate>(QStringList{"VarnelStatus"}, iconDir.path());
    QSignalSpy stored(delegate.get(), &AppDelegate::refreshed);
    delegate->applicationDidFinishLaunching();

    EXPECT_FALSE(QCoreApplication::testAttribute(Qt::AA_DontShowIconsInMenus));
    EXPECT_FALSE(delegate->statusItem()->icon().isNull());
    EXPECT_TRUE(delegate->statusItem()->isVisible());
    EXPECT_EQ(delegate->statusItem()->toolTip(), "Varnel");
    EXPECT_EQ(delegate->statusItem()->menu(), delegate->menu());
    EXPECT_EQ(delegate->installedVersion(), "1.8.2");
    EXPECT_EQ(delegate->certDetail(), "checking…");
    EXPECT_TRUE(titles(delegate->menu()).contains("Checking services…"));
    EXPECT_EQ(titles(delegate->menu())[1], "Status: Unknown");
    EXPECT_EQ(delegate->logViewer().window(), nullptr);

    ASSERT_TRUE(stored.wait(20'000));
    EXPECT_EQ(delegate->latest().size(), 9);
    EXPECT_EQ(delegate->statusItem()->toolTip(), "Varnel — Needs attention (6/9 up)");
    EXPECT_EQ(delegate->statusItem()->accessibleName(),
              "Varnel, Needs attention, 6 of 9 services running");
    EXPECT_EQ(titles(delegate->menu())[1], "Status: Needs attention");
    EXPECT_TRUE(delegate->menu()->actions()[1]->isIconVisibleInMenu());
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

    sim.setInstalledVersion("1.4&2\n");
    refreshAndWait(*delegate);
    EXPECT_EQ(delegate->installedVersion(), "1.4&2");
    // Shown as is: a lone "&" would be read as a mnemonic mark and vanish.
    const QString shown = delegate->menu()->actions()[2]->text();
    EXPECT_EQ(shown, "Installed version 1.4&&2");
    EXPECT_TRUE(QKeySequence::mnemonic(shown).isEmpty());
}

TEST_F(Delegate, TheMenuOpensWhileItsProbeHangsAndTakesItsResultsInPlace) {
    hangPgrep();
    auto delegate = launch();
    QMenu* menu = delegate->menu();
    menu->popup(QPoint(0, 0));  // returns although every probe is stuck
    ASSERT_TRUE(menu->isVisible());
    EXPECT_TRUE(titles(menu).contains("Checking services…"));
    QPointer<QAction> status = menu->actions()[1];
    EXPECT_EQ(status->text(), "Status: Unknown");  // nothing earlier to show
    QPointer<QAction> logs = item(menu, "View Logs");
    logs->menu()->popup(QPoint(40, 40));

    sim.setProcess("varnel-monitor-v2", {901});
    releasePgrep();
    ASSERT_TRUE(waitUntil([&] { return titles(menu).contains("Monitor — Running"); }));
    EXPECT_FALSE(titles(menu).contains("Checking services…"));
    ASSERT_TRUE(status && logs);
    EXPECT_TRUE(menu->isVisible());
    EXPECT_TRUE(logs->menu()->isVisible());
    EXPECT_EQ(item(menu, "View Logs"), logs);
    EXPECT_EQ(menu->actions()[1], status);
    EXPECT_EQ(status->text(), "Status: Needs attention");
    EXPECT_FALSE(status->isEnabled());  // an information line, its dot in colour all the same
    EXPECT_EQ(status->icon().pixmap(10, QIcon::Disabled).toImage().pixelColor(5, 5),
              resolve(SystemColor::yellow));
    EXPECT_EQ(delegate->statusItem()->toolTip(), "Varnel — Needs attention (7/9 up)");
    menu->hide();

    // With results at hand, a stuck probe shows them marked with their time.
    hangPgrep();
    menu->popup(QPoint(0, 0));
    status = menu->actions()[1];
    EXPECT_TRUE(status->text().startsWith("Status: Needs attention (as of "))
        << status->text().toStdString();
    releasePgrep();
    ASSERT_TRUE(waitUntil([&] { return !status || status->text() == "Status: Needs attention"; }));
    EXPECT_EQ(menu->actions()[1], status);
}

TEST_F(Delegate, RefreshResultsWaitForTheOpenMenuToClose) {
    auto delegate = launch();
    refreshAndWait(*delegate);
    QMenu* menu = delegate->menu();
    menu->popup(QPoint(0, 0));
    ASSERT_TRUE(waitUntil([&] { return !titles(menu)[1].contains("as of"); }));
    const QList<QAction*> shown = menu->actions();
    const QStringList texts = titles(menu);

    sim.setProcess("varnel-proxy", {});
    refreshAndWait(*delegate);
    EXPECT_EQ(delegate->statusItem()->toolTip(), "Varnel — Stopped (5/9 up)");
    EXPECT_EQ(menu->actions(), shown);
    EXPECT_EQ(titles(menu), texts);

    menu->hide();
    EXPECT_TRUE(waitUntil([&] { return titles(menu).contains("Proxy — Stopped"); }));
}

TEST_F(Delegate, TheShortcutsTheMenuShowsWorkWhileItIsOpen) {
    auto delegate = launch();
    QMenu* menu = delegate->menu();
    menu->popup(QPoint(0, 0));
    QMenu* logs = item(menu, "View Logs")->menu();
    logs->popup(QPoint(40, 40));
    QTest::keyClick(logs, Qt::Key_L, Qt::ControlModifier);
    EXPECT_FALSE(menu->isVisible());
    EXPECT_FALSE(logs->isVisible());
    ASSERT_NE(delegate->logViewer().window(), nullptr);
    EXPECT_TRUE(delegate->logViewer().window()->isVisible());

    menu->popup(QPoint(0, 0));
    QTest::keyClick(menu, Qt::Key_R, Qt::ControlModifier);
    ASSERT_TRUE(waitUntil([&] { return !sim.calls("osascript").isEmpty(); }));
    EXPECT_TRUE(sim.calls("osascript").last().contains("restart the Agent service"));
}

TEST_F(Delegate, RestartAndUpdateAskForApprovalReportAndScheduleRefreshes) {
    auto delegate = launch();
    refreshAndWait(*delegate);
    QSignalSpy reports(delegate.get(), &AppDelegate::notified);

    delegate->restartService(std::nullopt);
    EXPECT_TRUE(sim.calls("osascript").isEmpty());
    EXPECT_TRUE(pendingRefreshes(*delegate).isEmpty());

    delegate->restartService("com.varnel.endpoint.watcher");
    ASSERT_TRUE(reports.wait(20'000));
    EXPECT_EQ(reports.takeFirst().at(0),
              "Varnel: Varnel — com.varnel.endpoint.watcher restart "
              "requested.");
    EXPECT_EQ(pendingRefreshes(*delegate), QList<int>{1500});
    EXPECT_TRUE(sim.calls("launchctl").contains("kickstart -k system/com.varnel.endpoint.watcher"));

    sim.setOsascriptAnswer(SimSuite::Answer::cancel);
    delegate->checkForUpdates();
    EXPECT_TRUE(waitUntil([&] {
        return pendingRefreshes(*delegate) == QList<int>{1500, 4000, 12'000, 30'000};
    }));
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
    QCoreApplication::processEvents();
    EXPECT_EQ(stored.count(), 0);  // nothing was probed
}

TEST_F(Delegate, RefreshesCoalesceAndActionsNeverWaitBehindThem) {
    hangPgrep();
    auto delegate = launch();  // its first refresh is stuck
    QSignalSpy stored(delegate.get(), &AppDelegate::refreshed);
    for (int i = 0; i < 5; ++i) delegate->refresh();
    delegate->restartService("com.varnel.agent");
    ASSERT_TRUE(waitUntil([&] { return !sim.calls("osascript").isEmpty(); }));
    EXPECT_TRUE(delegate->isRefreshing());
    releasePgrep();
    ASSERT_TRUE(waitUntil([&] { return !delegate->isRefreshing() && stored.count() >= 2; }));

    for (int round = 0; round < 3; ++round) {
        auto gone = std::make_unique<AppDelegate>(QStringList{"VarnelStatus"}, iconDir.path());
        gone->refresh();
        gone->restartService("com.varnel.agent");
        gone->updateNow();
    }
    QCoreApplication::processEvents();  // their deliveries find nobody: no crash, no report
    EXPECT_EQ(sim.calls("osascript").size(), 7);
    EXPECT_EQ(stored.count(), 2);  // the stuck one and a single follow-up
}

TEST_F(Delegate, NotifiesChangesThatHoldWhenAskedToAndRecordsEveryOne) {
    auto delegate = launch();
    QSignalSpy shown(delegate.get(), &AppDelegate::notificationShown);
    delegate->toggleNotifications();
    EXPECT_FALSE(readPreferences().notifyOnHealthChange.value);
    ASSERT_TRUE(waitUntil([&] {  // and the start-up state is taken
        return !delegate->isRefreshing() &&
               !item(delegate->menu(), "Notify When Protection Changes")->isChecked();
    }));
    sim.setProcess("varnel-proxy", {});
    for (int i = 0; i < 3; ++i) refreshAndWait(*delegate);

    delegate->toggleNotifications();  // on again, from what is found next
    refreshAndWait(*delegate);
    sim.setJob("com.varnel.agent", SimSuite::Job::stopped);
    sim.setProcess("varnel", {});
    refreshAndWait(*delegate);
    EXPECT_EQ(shown.count(), 0);  // once is not news
    refreshAndWait(*delegate);
    EXPECT_EQ(shown, (QList<QVariantList>{{"Varnel protection stopped",
                                           "Agent needs attention. Open the Varnel menu to "
                                           "restart it."}}));

    // The history has it all, notified or not, once its lane has written it.
    const auto changes = [] {
        QStringList out;
        for (const HistoryRecord& r :
             parseHistory(fs::readFile(historyPath(), 1 << 20).value_or("")).records)
            out << (r.start ? "start" : r.service + ' ' + r.from + '>' + r.to);
        return out;
    };
    EXPECT_TRUE(waitUntil([&] { return changes().size() == 16; }))
        << changes().join(u',').toStdString();
    EXPECT_EQ(changes(), QStringList(12, "start") +
                             QStringList({" attention>stopped", "proxy running>stopped",
                                          "agent running>attention", "watcher running>attention"}));
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
