#include "status/status_menu.h"

#include "platform/file_system.h"
#include "platform/paths.h"
#include "status/health_summary.h"
#include "update/version.h"

namespace varnel {

namespace {

const QString agentLabel = QStringLiteral("com.varnel.agent");
const QString keychainApp = QStringLiteral("/System/Applications/Utilities/Keychain Access.app");

MenuEntry info(QString title, std::optional<SystemColor> dot = std::nullopt, QString id = {}) {
    return MenuEntry{.title = std::move(title), .id = std::move(id), .dot = dot};
}

MenuEntry command(QString title, MenuAction action, QString key = {},
                  std::optional<QString> represented = std::nullopt) {
    return MenuEntry{.title = std::move(title),
                     .enabled = true,
                     .action = action,
                     .key = std::move(key),
                     .representedObject = std::move(represented)};
}

MenuEntry parent(QString title, std::optional<SystemColor> dot, std::vector<MenuEntry> items,
                 QString id = {}) {
    return MenuEntry{.title = std::move(title),
                     .id = std::move(id),
                     .dot = dot,
                     .enabled = true,
                     .submenu = std::move(items)};
}

std::vector<MenuEntry> certificateMenu(const MenuInputs& in) {
    return {info(in.certDetail, color(in.certHealth), QStringLiteral("certDetail")),
            MenuEntry::separatorLine(),
            command(QStringLiteral("Open Keychain Access"), MenuAction::openPath, {}, keychainApp)};
}

std::vector<MenuEntry> serviceMenu(const ServiceStatus& status) {
    const ServiceSpec& spec = status.spec;
    QString state = label(status.health);
    if (!status.extra.isEmpty()) state += QStringLiteral(" — ") + status.extra;

    std::vector<MenuEntry> items{info(spec.detail),
                                 info(state, color(status.health), QStringLiteral("state"))};
    if (!spec.logs.isEmpty()) {
        items.push_back(MenuEntry::separatorLine());
        for (const LogFile& log : spec.logs)
            items.push_back(
                command(QStringLiteral("View ") + log.title, MenuAction::openLog, {}, log.path));
    }
    items.push_back(MenuEntry::separatorLine());
    if (spec.restartLabel) {
        items.push_back(command(QStringLiteral("Restart ") + spec.title, MenuAction::restartService,
                                {}, *spec.restartLabel));
    } else {
        items.push_back(command(QStringLiteral("Restart via Agent"), MenuAction::restartService, {},
                                agentLabel));
    }
    return items;
}

std::vector<MenuEntry> logsMenu(const MenuInputs& in) {
    std::vector<MenuEntry> items{
        command(QStringLiteral("Open Log Viewer…"), MenuAction::openLogViewer, QStringLiteral("l")),
        MenuEntry::separatorLine()};
    const QList<LogFile>& logs = fixedMenuLogs();
    for (qsizetype i = 0; i < logs.size(); ++i) {
        MenuEntry entry = in.fixedLogExists[size_t(i)]
                              ? command(logs[i].title, MenuAction::openLog, {}, logs[i].path)
                              : info(logs[i].title + QStringLiteral("  (none yet)"));
        entry.id = logs[i].path;
        entry.representedObject = logs[i].path;
        items.push_back(std::move(entry));
    }
    items.push_back(MenuEntry::separatorLine());
    items.push_back(command(QStringLiteral("Open Logs Folder"), MenuAction::openPath, {},
                            Paths::serviceLogDir));
    items.push_back(command(QStringLiteral("Open Support Logs Folder"), MenuAction::openPath, {},
                            Paths::supportLogDir));
    return items;
}

}  // namespace

const QList<LogFile>& fixedMenuLogs() {
    static const QList<LogFile> logs{
        {QStringLiteral("Agent output"), QStringLiteral("/Library/Logs/Varnel/agent.stdout.log")},
        {QStringLiteral("Agent errors"), QStringLiteral("/Library/Logs/Varnel/agent.stderr.log")},
        {QStringLiteral("Updater output"), Paths::updaterLogDir + "/varnel_endpoint.stdout.log"},
        {QStringLiteral("Updater errors"), Paths::updaterLogDir + "/varnel_endpoint.stderr.log"},
        {QStringLiteral("Installer (postinstall)"), Paths::postinstallLog},
    };
    return logs;
}

std::array<bool, 5> probeFixedLogs() {
    std::array<bool, 5> exists{};
    const QList<LogFile>& logs = fixedMenuLogs();
    for (size_t i = 0; i < exists.size(); ++i) exists[i] = fs::exists(logs[qsizetype(i)].path);
    return exists;
}

std::vector<MenuEntry> buildStatusMenu(const MenuInputs& in) {
    const Health overall = overallHealth(in.services);
    const bool updateOffered = versionIsNewer(in.latestVersion, in.installedVersion);

    QString status = QStringLiteral("Status: ") + label(overall);
    if (in.lastChecked && !in.services.isEmpty())
        status += QStringLiteral(" (as of %1)").arg(in.lastChecked->toString(u"HH:mm:ss"));

    std::vector<MenuEntry> menu{
        info(QStringLiteral("Varnel Endpoint")),
        info(status, color(overall), QStringLiteral("status")),
    };
    if (!in.installedVersion.isEmpty())
        menu.push_back(info(QStringLiteral("Installed version ") + in.installedVersion,
                            std::nullopt, QStringLiteral("installed")));
    if (updateOffered) {
        menu.push_back(info(QStringLiteral("Update available → ") + in.latestVersion,
                            SystemColor::blue, QStringLiteral("updateAvailable")));
        menu.push_back(
            command(QStringLiteral("Update Now"), MenuAction::updateNow, QStringLiteral("u")));
    } else if (!in.latestVersion.isEmpty()) {
        menu.push_back(info(QStringLiteral("Up to date (latest ") + in.latestVersion + u')',
                            std::nullopt, QStringLiteral("upToDate")));
    }
    menu.push_back(command(QStringLiteral("Check for Updates…"), MenuAction::checkForUpdates));
    menu.push_back(
        parent(QStringLiteral("Certificate"), color(in.certHealth), certificateMenu(in)));
    menu.push_back(MenuEntry::separatorLine());

    if (in.services.isEmpty()) {
        menu.push_back(info(QStringLiteral("Checking services…")));
    } else {
        // The state in words as well: a dot's colour alone says nothing to a
        // screen reader or to someone who cannot tell the colours apart.
        for (const ServiceStatus& service : in.services)
            menu.push_back(
                parent(service.spec.title + QStringLiteral(" — ") + label(service.health),
                       color(service.health), serviceMenu(service), service.spec.key));
    }
    menu.push_back(MenuEntry::separatorLine());
    menu.push_back(parent(QStringLiteral("View Logs"), std::nullopt, logsMenu(in)));
    menu.push_back(command(QStringLiteral("Restart Varnel Agent"), MenuAction::restartService,
                           QStringLiteral("r"), agentLabel));
    MenuEntry notifySwitch =
        command(QStringLiteral("Notify When Protection Changes"), MenuAction::toggleNotifications);
    notifySwitch.checked = in.notifyOnHealthChange.value;
    // An administrator's choice is shown as it stands, not offered to change.
    notifySwitch.enabled = !in.notifyOnHealthChange.managed;
    menu.push_back(std::move(notifySwitch));
    menu.push_back(command(QStringLiteral("Refresh Now"), MenuAction::refreshNow));
    menu.push_back(MenuEntry::separatorLine());
    menu.push_back(
        command(QStringLiteral("Quit Varnel Status"), MenuAction::quit, QStringLiteral("q")));
    return menu;
}

}  // namespace varnel
