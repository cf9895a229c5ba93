#pragma once

#include <QDateTime>
#include <QMenu>
#include <QObject>
#include <QStringList>
#include <QThreadPool>
#include <QTimer>
#include <future>
#include <memory>
#include <optional>

#include "monitor/catalogue.h"
#include "monitor/cert_check.h"
#include "platform/preferences.h"
#include "status/health_notifications.h"
#include "status/status_history.h"
#include "status/status_menu.h"
#include "status/suite_probe.h"
#include "tray/status_item.h"
#include "viewer/log_viewer.h"

namespace varnel {

// The tray application: owns the status item, its menu, the last probe results
// and the one log viewer. Everything here lives on the main thread; probing and
// privileged commands run on lanes of its own (refreshes, actions, the menu's
// probe, so that none waits behind another) and hand their results back as
// values, which are dropped if the delegate is gone by then.
//
// Each refresh's results are compared with the ones before: what changed goes
// to the status history (written on a lane of its own) and, once it has held,
// to a notification on screen.
//
// The open menu never changes under the pointer: refresh results that arrive
// while it is open are stored and shown in the tooltip, and the menu is rebuilt
// once it closes. The one exception is the menu's own probe, which updates the
// open menu item by item.
class AppDelegate : public QObject {
    Q_OBJECT

public:
    // `arguments` is the whole argument vector (program first); `applicationDir`
    // is where the executable lives, for finding icon.png.
    AppDelegate(QStringList arguments, QString applicationDir, QObject* parent = nullptr);
    ~AppDelegate() override;

    void applicationDidFinishLaunching();
    bool selfTeardownIfUninstalled();
    // Starts a refresh; while one runs, one more follows it, however often asked.
    void refresh();
    void updateTooltip();
    // The menu is opening: it waits a moment for a fresh probe, and otherwise
    // shows the last results, marked as such, until the probe is back.
    void menuNeedsUpdate();
    void menuDidClose();
    void rebuildMenu(const QList<ServiceStatus>& services);

    // Menu actions. The optional text is the chosen item's represented object.
    void refreshNow();
    void openLog(const std::optional<QString>& represented);
    void openLogViewer();
    void openPath(const std::optional<QString>& represented);
    void restartService(const std::optional<QString>& represented);
    void updateNow();
    void checkForUpdates();
    void toggleNotifications();
    void quit();

    void notify(const QString& title, const QString& text);

    StatusItem* statusItem() const { return statusItem_.get(); }
    QMenu* menu() { return &menu_; }
    LogViewer& logViewer() { return logViewer_; }
    const QList<ServiceStatus>& latest() const { return latest_; }
    const QString& installedVersion() const { return installedVersion_; }
    const QString& latestVersion() const { return latestVersion_; }
    Health certHealth() const { return certHealth_; }
    const QString& certDetail() const { return certDetail_; }
    qint64 missingBundleStreak() const { return missingBundleStreak_; }
    const Preferences& preferences() const { return preferences_; }
    bool isRefreshing() const { return refreshing_; }

signals:
    // A refresh's results have been stored and shown.
    void refreshed();
    // A line went to the system log.
    void notified(const QString& line);
    // A notification about the suite's health went on screen.
    void notificationShown(const QString& title, const QString& text);

private:
    struct MenuProbe {
        quint64 id;
        std::shared_future<QList<ServiceStatus>> services;
    };

    void tick();
    void startRefresh();
    void store(const SuiteProbe& probe);
    void observe(const SuiteProbe& probe);
    void storeServices(const QList<ServiceStatus>& services, const QDateTime& probedUtc);
    void startMenuProbe();
    void menuProbeFinished(quint64 id, const QList<ServiceStatus>& services);
    MenuInputs menuInputs(const QList<ServiceStatus>& services) const;
    void scheduleRefresh(int milliseconds);
    void dispatch(MenuAction action, const std::optional<QString>& represented);

    QStringList arguments_;
    QString applicationDir_;

    // Destroyed last, once the status item and the menu are gone: they wait for
    // work already running, which the tools' time-outs bound.
    QThreadPool refreshLane_;
    QThreadPool actionLane_;
    QThreadPool menuProbeLane_;
    QThreadPool historyLane_;

    QMenu menu_;
    std::unique_ptr<StatusItem> statusItem_;
    QList<ServiceStatus> latest_;
    QTimer* timer_ = nullptr;
    QString installedVersion_;
    QString latestVersion_;
    Health certHealth_ = Health::unknown;
    QString certDetail_ = QStringLiteral("checking…");
    LogViewer logViewer_;
    qint64 missingBundleStreak_ = 0;
    Preferences preferences_;
    quint64 preferenceWrites_ = 0;
    std::optional<WatchedState> watched_;
    NotificationState notifications_;

    QDateTime latestProbedUtc_;
    bool refreshing_ = false;
    bool refreshAgain_ = false;
    bool menuOpen_ = false;
    bool menuBehind_ = false;  // results arrived while the menu was open
    std::optional<MenuProbe> menuProbe_;
    quint64 menuProbes_ = 0;
};

}  // namespace varnel
