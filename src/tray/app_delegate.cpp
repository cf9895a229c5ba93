#include "tray/app_delegate.h"

#include <unistd.h>

#include <QCoreApplication>
#include <chrono>
#include <utility>

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
// How long opening the menu waits for its probe before it shows the last results.
constexpr auto menuProbeDeadline = std::chrono::milliseconds(350);
const QString ownJob = QStringLiteral("com.varnel.tray");

}  // namespace

AppDelegate::AppDelegate(QStringList arguments, QString applicationDir, QObject* parent)
    : QObject(parent),
      arguments_(std::move(arguments)),
      applicationDir_(std::move(applicationDir)) {
    // One refresh and one menu probe at a time; actions wait for the user's
    // approval, so two of them must not wait for each other.
    refreshLane_.setMaxThreadCount(1);
    menuProbeLane_.setMaxThreadCount(1);
    // One writer, so that lines reach the history in the order they were seen.
    historyLane_.setMaxThreadCount(1);
    actionLane_.setMaxThreadCount(4);
}

AppDelegate::~AppDelegate() = default;

void AppDelegate::applicationDidFinishLaunching() {
    // Qt hides icons in menus on macOS by default; the dots are the menu's colour key.
    QCoreApplication::setAttribute(Qt::AA_DontShowIconsInMenus, false);

    statusItem_ = std::make_unique<StatusItem>();
    if (const std::optional<QIcon> icon = menuBarIcon(applicationDir_)) statusItem_->setIcon(*icon);
    statusItem_->setToolTip(QStringLiteral("Varnel"));
    statusItem_->setAccessibleName(accessibleStatus({}));
    connect(&menu_, &QMenu::aboutToShow, this, &AppDelegate::menuNeedsUpdate);
    connect(&menu_, &QMenu::aboutToHide, this, &AppDelegate::menuDidClose);
    statusItem_->setMenu(&menu_);
    statusItem_->setVisible(true);

    installedVersion_ = readInstalledVersion();
    preferences_ = readPreferences();
    rebuildMenu({});
    refresh();
    if (arguments_.mid(1).contains(QStringLiteral("--open-logs"))) logViewer_.show();

    timer_ = new QTimer(this);
    timer_->setInterval(refreshPeriodMs);
    connect(timer_, &QTimer::timeout, this, &AppDelegate::tick);
    timer_->start();
}

void AppDelegate::tick() {
    // As a menu-bar timer does: no tick while the menu is open, which probes for
    // itself when it opens.
    if (!menuOpen_) refresh();
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
    // Refreshes never queue up behind tools that hang: one runs, one may follow.
    if (refreshing_) {
        refreshAgain_ = true;
        return;
    }
    startRefresh();
}

void AppDelegate::startRefresh() {
    refreshing_ = true;
    // The preferences are read with the probe: an administrator's profile may
    // change them at any time, and files are not read on the main thread. What
    // was read before the user's own change is older than it.
    inBackground(
        refreshLane_, this, [] { return std::pair(probeSuite(), readPreferences()); },
        [this, writes = preferenceWrites_](const std::pair<SuiteProbe, Preferences>& results) {
            refreshing_ = false;
            if (std::exchange(refreshAgain_, false)) startRefresh();
            if (writes == preferenceWrites_) preferences_ = results.second;
            store(results.first);
        });
}

void AppDelegate::store(const SuiteProbe& probe) {
    if (!probe.installedVersion.isEmpty()) installedVersion_ = probe.installedVersion;
    latestVersion_ = probe.latestVersion;
    certHealth_ = probe.certificates.health;
    certDetail_ = probe.certificates.detail;
    storeServices(probe.services, probe.finishedUtc);
    observe(probe);
    if (menuOpen_)
        menuBehind_ = true;
    else
        rebuildMenu(latest_);
    emit refreshed();
}

void AppDelegate::observe(const SuiteProbe& probe) {
    const QDateTime now =
        probe.finishedUtc.isValid() ? probe.finishedUtc : QDateTime::currentDateTimeUtc();
    WatchedState state = watchedState(probe, watched_);
    const QList<HistoryRecord> changes = historyChanges(watched_, state, now);
    watched_ = std::move(state);
    if (preferences_.historyEnabled.value && !changes.isEmpty()) {
        QByteArray lines;
        for (const HistoryRecord& change : changes) lines += historyLine(change);
        // A failed write is dropped: the history is a help, never in the way.
        inBackground(historyLane_, [path = historyPath(), lines] {
            fs::appendRotating(path, lines, maxHistoryBytes);
        });
    }

    // Switched off, nothing is followed: once on again, what is found then is
    // where it starts from, as at start-up.
    if (!preferences_.notifyOnHealthChange.value) {
        notifications_ = {};
        return;
    }
    NotificationStep step = decideNotification(notifications_, probe.services, now);
    notifications_ = std::move(step.state);
    if (step.notification && statusItem_ != nullptr) {
        statusItem_->showMessage(step.notification->title, step.notification->text);
        emit notificationShown(step.notification->title, step.notification->text);
    }
}

void AppDelegate::storeServices(const QList<ServiceStatus>& services, const QDateTime& probedUtc) {
    latest_ = services;
    latestProbedUtc_ = probedUtc;
    updateTooltip();
}

void AppDelegate::updateTooltip() {
    if (statusItem_ == nullptr) return;
    statusItem_->setToolTip(tooltipText(latest_));
    statusItem_->setAccessibleName(accessibleStatus(latest_));
}

void AppDelegate::menuNeedsUpdate() {
    menuOpen_ = true;
    menuBehind_ = false;
    // A probe still running from an earlier opening is waited for, not doubled.
    if (!menuProbe_) startMenuProbe();
    if (menuProbe_->services.wait_for(menuProbeDeadline) == std::future_status::ready) {
        const QList<ServiceStatus> services = menuProbe_->services.get();
        menuProbe_.reset();
        storeServices(services, QDateTime::currentDateTimeUtc());
    }
    rebuildMenu(latest_);
}

void AppDelegate::startMenuProbe() {
    // The opening waits on the future; a later delivery updates the open menu.
    auto promise = std::make_shared<std::promise<QList<ServiceStatus>>>();
    const quint64 id = ++menuProbes_;
    menuProbe_ = MenuProbe{id, promise->get_future().share()};
    inBackground(
        menuProbeLane_, this,
        [promise] {
            QList<ServiceStatus> services = Poller::snapshot();
            promise->set_value(services);
            return services;
        },
        [this, id](const QList<ServiceStatus>& services) { menuProbeFinished(id, services); });
}

void AppDelegate::menuProbeFinished(quint64 id, const QList<ServiceStatus>& services) {
    if (!menuProbe_ || menuProbe_->id != id) return;  // the opening took it in time
    menuProbe_.reset();
    storeServices(services, QDateTime::currentDateTimeUtc());
    if (menuOpen_) {
        updateMenuInPlace(&menu_, buildStatusMenu(menuInputs(latest_)),
                          [this](MenuAction action, const std::optional<QString>& represented) {
                              dispatch(action, represented);
                          });
    } else {
        rebuildMenu(latest_);
    }
}

void AppDelegate::menuDidClose() {
    menuOpen_ = false;
    if (!std::exchange(menuBehind_, false)) return;
    // Not at once: the chosen item is triggered after the menu has closed, and
    // a rebuild replaces every item.
    QTimer::singleShot(0, this, [this] {
        if (!menuOpen_) rebuildMenu(latest_);
    });
}

MenuInputs AppDelegate::menuInputs(const QList<ServiceStatus>& services) const {
    MenuInputs inputs{services,    installedVersion_, latestVersion_,
                      certHealth_, certDetail_,       probeFixedLogs()};
    inputs.notifyOnHealthChange = preferences_.notifyOnHealthChange;
    if (menuProbe_ && latestProbedUtc_.isValid())
        inputs.lastChecked = latestProbedUtc_.toLocalTime().time();
    return inputs;
}

void AppDelegate::rebuildMenu(const QList<ServiceStatus>& services) {
    renderMenu(&menu_, buildStatusMenu(menuInputs(services)),
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
        case MenuAction::toggleNotifications:
            toggleNotifications();
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
        actionLane_, this,
        [request = restartRequest(label)] { return runWithAdministratorRights(request); },
        [this, label](ActionOutcome outcome) {
            const QString report = restartReport(outcome, label);
            if (!report.isEmpty()) notify(QStringLiteral("Varnel"), report);
            scheduleRefresh(1500);
        });
}

void AppDelegate::updateNow() {
    inBackground(
        actionLane_, this,
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

void AppDelegate::toggleNotifications() {
    Preference& setting = preferences_.notifyOnHealthChange;
    if (setting.managed) return;
    ++preferenceWrites_;
    if (const auto why = writePreference(notifyOnHealthChangeKey, !setting.value))
        notify(QStringLiteral("Varnel"), QStringLiteral("Could not save the setting: ") + *why);
    else
        setting.value = !setting.value;
    // Not at once: the chosen item is being handled, and a rebuild replaces it.
    QTimer::singleShot(0, this, [this] {
        if (!menuOpen_) rebuildMenu(latest_);
    });
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
