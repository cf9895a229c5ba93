#pragma once

#include <QMenu>
#include <functional>
#include <optional>
#include <vector>

#include "status/status_menu.h"

namespace varnel {

using MenuHandler = std::function<void(MenuAction, const std::optional<QString>& represented)>;

// Replaces everything in `menu` with platform items for `entries`. Chosen items
// call `handler` with their action and represented object, also when chosen by
// the shortcut they show while the menu is open.
void renderMenu(QMenu* menu, const std::vector<MenuEntry>& entries, const MenuHandler& handler);

// Brings a menu that may be open to `entries` without closing it or anything
// open in it: items that stay (matched by id, else by title) are changed where
// they are, so the highlight and an open submenu stay put; only items that
// appear or go away are added or removed.
void updateMenuInPlace(QMenu* menu, const std::vector<MenuEntry>& entries,
                       const MenuHandler& handler);

}  // namespace varnel
