#pragma once

#include <QList>
#include <QString>
#include <QTime>
#include <array>
#include <optional>
#include <vector>

#include "monitor/catalogue.h"
#include "platform/preferences.h"
#include "platform/system_color.h"

namespace varnel {

// What choosing a menu item does; the delegate maps each to one of its actions.
enum class MenuAction {
    none,
    updateNow,
    checkForUpdates,
    restartService,
    refreshNow,
    toggleNotifications,
    quit,
    openLog,
    openLogViewer,
    openPath,
};

// One entry of the status menu, as data: the renderer turns a tree of these into
// platform menus, and tests compare trees.
struct MenuEntry {
    bool separator = false;
    QString title{};
    // Names an entry whose title changes with the state it shows, so that a
    // menu that is open can be brought up to date item by item.
    QString id{};
    std::optional<SystemColor> dot{};
    bool enabled = false;
    MenuAction action = MenuAction::none;
    QString key{};  // one lower-case letter, pressed with the platform's command modifier
    std::optional<QString> representedObject{};
    std::vector<MenuEntry> submenu{};
    // A switch shows a check mark when on; other items have no value here.
    std::optional<bool> checked{};

    static MenuEntry separatorLine() { return MenuEntry{.separator = true}; }
    bool hasSubmenu() const { return !submenu.empty(); }
    bool operator==(const MenuEntry&) const = default;
};

// The menu's own short list of logs (not the registry), in menu order.
const QList<LogFile>& fixedMenuLogs();

// Everything the menu shows. `fixedLogExists[i]` tells whether something exists
// at fixedMenuLogs()[i].path.
struct MenuInputs {
    QList<ServiceStatus> services;
    QString installedVersion;
    QString latestVersion;
    Health certHealth = Health::unknown;
    QString certDetail;
    std::array<bool, 5> fixedLogExists{};
    // When the services shown are the results of an earlier probe (a fresh one
    // is still running), the time of those results.
    std::optional<QTime> lastChecked{};
    // Whether health changes are notified, and whether that is the user's choice.
    Preference notifyOnHealthChange{};
};

// The whole status menu, top to bottom.
std::vector<MenuEntry> buildStatusMenu(const MenuInputs& inputs);

// Existence of the fixed logs now (through the sandbox), in fixedMenuLogs() order.
std::array<bool, 5> probeFixedLogs();

}  // namespace varnel
