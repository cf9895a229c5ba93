#pragma once

#include <QMenu>
#include <functional>
#include <optional>
#include <vector>

#include "status/status_menu.h"

namespace varnel {

using MenuHandler = std::function<void(MenuAction, const std::optional<QString>& represented)>;

// Replaces everything in `menu` with platform items for `entries`. Chosen items
// call `handler` with their action and represented object.
void renderMenu(QMenu* menu, const std::vector<MenuEntry>& entries, const MenuHandler& handler);

}  // namespace varnel
