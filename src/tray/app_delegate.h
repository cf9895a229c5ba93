#pragma once

#include <QMenu>
#include <QObject>
#include <QStringList>
#include <QSystemTrayIcon>
#include <QTimer>
#include <optional>

#include "monitor/catalogue.h"
#include "monitor/cert_check.h"
#include "status/status_menu.h"
#include "status/suite_probe.h"
#include "viewer/log_viewer.h"

namespace varnel {

// The tray application: owns the status item, its menu, the last probe results
// and the one log viewer. Everything here lives on the main thread; probing and
// privileged commands run on the global thread pool and hand their results back
// as values, which are dropped if the delegate is gone by then.
class AppDelegate : public QObject {
    Q_OBJECT

public:
    // `arguments` is the whole argument vector (program first); `applicationDir`
    // is where the executable lives, for finding icon.png.
    AppDelegate(QStringList arguments, QString applicationDir, QObject* parent = nullptr);
    ~AppDelegate() override;

    void applicationDidFinishLaunching();
    bool selfTeardownIfUninstalled();
    void refresh();
    void updateTooltip();
    void menuNeedsUpdate();
    void rebuildMenu(const QList<ServiceStatus>& services);

    // Menu actions. The optional text is the chosen item's represented object.
    void refreshNow();
    void openLog(const std::optional<QString>& represented);
    void openLogViewer();
    void openPath(const std::optional<QString>& represented);
    void restartService(const std::optional<QString>& represented);
    void updateNow();
    void checkForUpdates();
    void quit();

    void notify(const QString& title, const QString& text);

    QSystemTrayIcon* statusItem() const { return statusItem_; }
    QMenu* menu() { return &menu_; }
    LogViewer& logViewer() { return logViewer_; }
    const QList<ServiceStatus>& latest() const { return latest_; }
    const QString& installedVersion() const { return installedVersion_; }
    const QString& latestVersion() const { return latestVersion_; }
    Health certHealth() const { return certHealth_; }
    const QString& certDetail() const { return certDetail_; }
    qint64 missingBundleStreak() const { return missingBundleStreak_; }

signals:
    // A refresh's results have been stored and shown.
    void refreshed();
    // A line went to the system log.
    void notified(const QString& line);

private:
    void store(const SuiteProbe& probe);
    void scheduleRefresh(int milliseconds);
    void dispatch(MenuAction action, const std::optional<QString>& represented);

    QStringList arguments_;
    QString applicationDir_;

    QSystemTrayIcon* statusItem_ = nullptr;
    QMenu menu_;
    QList<ServiceStatus> latest_;
    QTimer* timer_ = nullptr;
    QString installedVersion_;
    QString latestVersion_;
    Health certHealth_ = Health::unknown;
    QString certDetail_ = QStringLiteral("checking…");
    LogViewer logViewer_;
    qint64 missingBundleStreak_ = 0;
};

}  // namespace varnel
