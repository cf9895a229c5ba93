#include "status/status_menu.h"

#include <gtest/gtest.h>

using namespace varnel;

namespace {

QStringList titles(const std::vector<MenuEntry>& entries) {
    QStringList out;
    for (const MenuEntry& e : entries) out << (e.separator ? "---" : e.title);
    return out;
}

const MenuEntry& find(const std::vector<MenuEntry>& entries, const QString& title) {
    for (const MenuEntry& e : entries)
        if (e.title == title) return e;
    static const MenuEntry none;
    ADD_FAILURE() << "no entry " << title.toStdString();
    return none;
}

QList<ServiceStatus> statuses(Health agent, Health proxy, Health sysext) {
    QList<ServiceStatus> out;
    for (const ServiceSpec& spec : SERVICES) {
        Health h = Health::running;
        if (spec.key == "agent") h = agent;
        if (spec.key == "proxy") h = proxy;
        if (spec.key == "sysext") h = sysext;
        out.append({spec, h, spec.key == "agent" ? "pid 812" : QString()});
    }
    return out;
}

MenuInputs inputs(QString installed, QString latest) {
    MenuInputs in;
    in.installedVersion = std::move(installed);
    in.latestVersion = std::move(latest);
    in.certDetail = "checking…";
    in.fixedLogExists = {true, true, true, true, true};
    return in;
}

}  // namespace

TEST(StatusMenu, RightAfterStartUpShowsCheckingAndTheInstalledVersion) {
    MenuInputs in = inputs("1.4.2", "");
    in.lastChecked = QTime(14, 2, 9);  // no earlier results: nothing to mark
    const std::vector<MenuEntry> menu = buildStatusMenu(in);
    EXPECT_EQ(titles(menu),
              (QStringList{"Varnel Endpoint", "Status: Unknown", "Installed version 1.4.2",
                           "Check for Updates…", "Certificate", "---", "Checking services…", "---",
                           "View Logs", "Restart Varnel Agent", "Notify When Protection Changes",
                           "Refresh Now", "---", "Quit Varnel Status"}));
    EXPECT_EQ(menu[1].dot, SystemColor::gray);
    for (int info : {0, 1, 2, 6}) EXPECT_FALSE(menu[size_t(info)].enabled) << info;
    EXPECT_EQ(find(menu, "Restart Varnel Agent").representedObject, "com.varnel.agent");
    EXPECT_EQ(find(menu, "Restart Varnel Agent").key, "r");
    EXPECT_EQ(find(menu, "Quit Varnel Status").key, "q");
    EXPECT_EQ(find(menu, "Quit Varnel Status").action, MenuAction::quit);
    EXPECT_EQ(find(menu, "Check for Updates…").action, MenuAction::checkForUpdates);

    // A switch: checked when on; shown as an administrator set it, not offered.
    const MenuEntry& notifySwitch = find(menu, "Notify When Protection Changes");
    EXPECT_EQ(std::tuple(notifySwitch.checked, notifySwitch.enabled, notifySwitch.action),
              std::tuple(true, true, MenuAction::toggleNotifications));
    in.notifyOnHealthChange = {false, true};
    const MenuEntry managed = find(buildStatusMenu(in), "Notify When Protection Changes");
    EXPECT_EQ(std::tuple(managed.checked, managed.enabled), std::tuple(false, false));
}

TEST(StatusMenu, VersionLinesFollowTheComparison) {
    struct Case {
        const char* installed;
        const char* latest;
        QStringList expected;  // the lines between the status line and "Check for Updates…"
    };
    const Case cases[] = {
        {"1.4.2", "1.5.0", {"Installed version 1.4.2", "Update available → 1.5.0", "Update Now"}},
        {"1.4.2", "1.4.2", {"Installed version 1.4.2", "Up to date (latest 1.4.2)"}},
        {"", "1.5.0", {"Update available → 1.5.0", "Update Now"}},
        {"1.5.0", "1.4.2", {"Installed version 1.5.0", "Up to date (latest 1.4.2)"}},
        {"", "", {}},
    };
    for (const Case& c : cases) {
        const std::vector<MenuEntry> menu = buildStatusMenu(inputs(c.installed, c.latest));
        const QStringList all = titles(menu);
        EXPECT_EQ(all.mid(2, all.indexOf("Check for Updates…") - 2), c.expected)
            << c.installed << " / " << c.latest;
    }
    const std::vector<MenuEntry> offer = buildStatusMenu(inputs("1.4.2", "1.5.0"));
    EXPECT_EQ(find(offer, "Update available → 1.5.0").dot, SystemColor::blue);
    EXPECT_EQ(find(offer, "Update Now").key, "u");
    EXPECT_EQ(find(offer, "Update Now").action, MenuAction::updateNow);
}

TEST(StatusMenu, ServicesCarryTheirStateLogsAndRestart) {
    MenuInputs in = inputs("1.4.2", "1.4.2");
    in.services = statuses(Health::running, Health::stopped, Health::attention);
    in.lastChecked = QTime(14, 2, 9);  // results of an earlier probe
    const std::vector<MenuEntry> menu = buildStatusMenu(in);
    EXPECT_EQ(menu[1].title, "Status: Stopped (as of 14:02:09)");
    EXPECT_EQ(menu[1].dot, SystemColor::red);

    const MenuEntry& agent = find(menu, "Agent — Running");
    EXPECT_TRUE(agent.enabled);
    EXPECT_EQ(agent.dot, SystemColor::green);
    EXPECT_EQ(
        titles(agent.submenu),
        (QStringList{"Core Varnel daemon (com.varnel.agent)", "Running — pid 812", "---",
                     "View Agent output log", "View Agent error log", "---", "Restart Agent"}));
    EXPECT_EQ(agent.submenu[6].representedObject, "com.varnel.agent");

    const MenuEntry& proxy = find(menu, "Proxy — Stopped");
    EXPECT_EQ(proxy.submenu[1].title, "Stopped");  // no extra: the label alone
    EXPECT_EQ(proxy.submenu[3].representedObject, "hint:proxy.log");
    EXPECT_TRUE(proxy.submenu[3].enabled);
    EXPECT_EQ(proxy.submenu[3].action, MenuAction::openLog);
    EXPECT_EQ(proxy.submenu.back().title, "Restart via Agent");
    EXPECT_EQ(proxy.submenu.back().representedObject, "com.varnel.agent");

    const MenuEntry& sysext = find(menu, "Network Extension — Needs attention");
    EXPECT_EQ(sysext.dot, SystemColor::yellow);
    EXPECT_EQ(titles(sysext.submenu), (QStringList{"ai.ostrel.agent.sentinel.extension",
                                                   "Needs attention", "---", "Restart via Agent"}));
    EXPECT_FALSE(sysext.submenu[1].enabled);
    EXPECT_EQ(sysext.submenu[1].dot, SystemColor::yellow);

    const MenuEntry& watcher = find(menu, "Push Watcher — Running");
    EXPECT_EQ(watcher.submenu.back().title, "Restart Push Watcher");
    EXPECT_EQ(watcher.submenu.back().representedObject, "com.varnel.endpoint.watcher");
}

TEST(StatusMenu, CertificateAndLogsSubmenus) {
    MenuInputs in = inputs("", "");
    in.certHealth = Health::attention;
    in.certDetail = "1/2 trusted — check b.pem";
    in.fixedLogExists = {true, false, true, true, false};
    const std::vector<MenuEntry> menu = buildStatusMenu(in);

    const MenuEntry& cert = find(menu, "Certificate");
    EXPECT_EQ(cert.dot, SystemColor::yellow);
    EXPECT_EQ(titles(cert.submenu),
              (QStringList{"1/2 trusted — check b.pem", "---", "Open Keychain Access"}));
    EXPECT_EQ(cert.submenu[2].representedObject,
              "/System/Applications/Utilities/Keychain Access.app");

    const MenuEntry& logs = find(menu, "View Logs");
    EXPECT_EQ(
        titles(logs.submenu),
        (QStringList{"Open Log Viewer…", "---", "Agent output", "Agent errors  (none yet)",
                     "Updater output", "Updater errors", "Installer (postinstall)  (none yet)",
                     "---", "Open Logs Folder", "Open Support Logs Folder"}));
    EXPECT_EQ(logs.submenu[0].key, "l");
    const MenuEntry& missing = logs.submenu[3];
    EXPECT_FALSE(missing.enabled);
    EXPECT_EQ(missing.action, MenuAction::none);
    EXPECT_EQ(missing.representedObject, "/Library/Logs/Varnel/agent.stderr.log");
    EXPECT_EQ(logs.submenu[2].action, MenuAction::openLog);
    EXPECT_EQ(logs.submenu[9].representedObject, "/Library/Application Support/Varnel/logs");
}
