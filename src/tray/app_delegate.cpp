#include "tray/app_delegate.h"

#include <unistd.h>

#include <QCoreApplication>
#include <QCursor>
#include <QPointer>

#include "logs/log_registry.h"
#include "monitor/poller.h"
#include "platform/background.h"
#include "platform/command_runner.h"
#include "platform/file_system.h"
#include "platform/paths.h"
#include "platform/sandbox.h"
#include "status/health_summary.h"
#include "tray/menu_bar_icon.h"
#include "tray/menu_renderer.h"
#include "update/privileged_action.h"
#include "update/version.h"

namespace varnel {

namespace {

constexpr int refreshPeriodMs = 10'000;
const QString ownJob = QStringLiteral("com.varnel.tray");

}  // namespace

AppDelegate::AppDelegate(QStringList arguments, QString applicationDir, QObject* parent)
    : QObject(parent),
      arguments_(std::move(arguments)),
      applicationDir_(std::move(applicationDir)) {}

AppDelegate::~AppDelegate() = default;

void AppDelegate::applicationDidFinishLaunching() {
    statusItem_ = new QSystemTrayIcon(this);
    if (const std::optional<QIcon> icon = menuBarIcon(applicationDir_)) statusItem_->setIcon(*icon);
    statusItem_->setToolTip(QStringLiteral("Varnel"));

    connect(&menu_, &QMenu::aboutToShow, this, &AppDelegate::menuNeedsUpdate);
    statusItem_->setContextMenu(&menu_);
#if !defined(Q_OS_MACOS)
    // macOS opens a status item's menu on any click; elsewhere only the context
    // click does, so the primary click is routed to the same menu.
    connect(statusItem_, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger) menu_.popup(QCursor::pos());
            });
#endif
    statusItem_->show();

    installedVersion_ = readInstalledVersion();
    rebuildMenu({});
    refresh();
    if (arguments_.mid(1).contains(QStringLiteral("--open-logs"))) logViewer_.show();

    timer_ = new QTimer(this);
    timer_->setInterval(refreshPeriodMs);
    connect(timer_, &QTimer::timeout, this, &AppDelegate::refresh);
    timer_->start();
}

bool AppDelegate::selfTeardownIfUninstalled() {
    if (fs::exists(Paths::selfBundle)) {
        missingBundleStreak_ = 0;
        return false;
    }
    if (++missingBundleStreak_ < 2) return false;
    run(QStringLiteral("/bin/launchctl"),
        {QStringLiteral("bootout"), QStringLiteral("gui/%1/").arg(::getuid()) + ownJob}, 6);
    quit();
    return true;
}

void AppDelegate::refresh() {
    if (selfTeardownIfUninstalled()) return;
    inBackground(
        *QThreadPool::globalInstance(), this, [] { return probeSuite(); },
        [this](const SuiteProbe& probe) { store(probe); });
}

void AppDelegate::store(const SuiteProbe& probe) {
    latest_ = probe.services;
    if (!probe.installedVersion.isEmpty()) installedVersion_ = probe.installedVersion;
    latestVersion_ = probe.latestVersion;
    certHealth_ = probe.certificates.health;
    certDetail_ = probe.certificates.detail;
    updateTooltip();
    rebuildMenu(probe.services);
    emit refreshed();
}

void AppDelegate::updateTooltip() {
    if (statusItem_ != nullptr) statusItem_->setToolTip(tooltipText(latest_));
}

void AppDelegate::menuNeedsUpdate() {
    const QList<ServiceStatus> snapshot = Poller::snapshot();
    latest_ = snapshot;
    updateTooltip();
    rebuildMenu(snapshot);
}

void AppDelegate::rebuildMenu(const QList<ServiceStatus>& services) {
    const MenuInputs inputs{services,    installedVersion_, latestVersion_,
                            certHealth_, certDetail_,       probeFixedLogs()};
    renderMenu(&menu_, buildStatusMenu(inputs),
               [this](MenuAction action, const std::optional<QString>& represented) {
                   dispatch(action, represented);
               });
}

void AppDelegate::dispatch(MenuAction action, const std::optional<QString>& represented) {
    switch (action) {
        case MenuAction::updateNow:
            updateNow();
            break;
        case MenuAction::checkForUpdates:
            checkForUpdates();
            break;
        case MenuAction::restartService:
            restartService(represented);
            break;
        case MenuAction::refreshNow:
            refreshNow();
            break;
        case MenuAction::quit:
            quit();
            break;
        case MenuAction::openLog:
            openLog(represented);
            break;
        case MenuAction::openLogViewer:
            openLogViewer();
            break;
        case MenuAction::openPath:
            openPath(represented);
            break;
        case MenuAction::none:
            break;
    }
}

void AppDelegate::refreshNow() {
    refresh();
}

void AppDelegate::openLog(const std::optional<QString>& represented) {
    logViewer_.show(represented ? LogRegistry::resolve(*represented) : std::nullopt);
}

void AppDelegate::openLogViewer() {
    logViewer_.show();
}

void AppDelegate::openPath(const std::optional<QString>& represented) {
    if (!represented) return;
    run(QStringLiteral("/usr/bin/open"), {sandbox::hostPath(*represented)}, 5);
}

void AppDelegate::restartService(const std::optional<QString>& represented) {
    if (!represented) return;
    const QString& label = *represented;
    inBackground(
        *QThreadPool::globalInstance(), this,
        [request = restartRequest(label)] { return runWithAdministratorRights(request); },
        [this, label](ActionOutcome outcome) {
            const QString report = restartReport(outcome, label);
            if (!report.isEmpty()) notify(QStringLiteral("Varnel"), report);
            scheduleRefresh(1500);
        });
}

void AppDelegate::updateNow() {
    inBackground(
        *QThreadPool::globalInstance(), this,
        [request = updateRequest(installedVersion_, latestVersion_)] {
            return runWithAdministratorRights(request);
        },
        [this](ActionOutcome outcome) {
            const QString report = updateReport(outcome);
            if (!report.isEmpty()) notify(QStringLiteral("Varnel"), report);
            for (const int delay : {4000, 12'000, 30'000}) scheduleRefresh(delay);
        });
}

void AppDelegate::checkForUpdates() {
    updateNow();
}

void AppDelegate::quit() {
    QCoreApplication::quit();
}

void AppDelegate::notify(const QString& title, const QString& text) {
    varnel::notify(title, text);
    emit notified(notificationLine(title, text));
}

void AppDelegate::scheduleRefresh(int milliseconds) {
    // A child timer per pending refresh: it dies with the delegate, and the
    // pending ones can be seen (and counted) as the delegate's children.
    auto* timer = new QTimer(this);
    timer->setObjectName(QStringLiteral("scheduledRefresh"));
    timer->setSingleShot(true);
    timer->setInterval(milliseconds);
    connect(timer, &QTimer::timeout, this, [this, timer] {
        timer->deleteLater();
        refresh();
    });
    timer->start();
}

}  // namespace varnel
