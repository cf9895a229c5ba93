#include "tray/menu_renderer.h"

#include <QAction>
#include <QKeySequence>

#include "ui/dot_image.h"
#include "ui/system_palette.h"

namespace varnel {

namespace {

void fill(QMenu* menu, const std::vector<MenuEntry>& entries, const MenuHandler& handler,
          Appearance appearance) {
    for (const MenuEntry& entry : entries) {
        if (entry.separator) {
            menu->addSeparator();
            continue;
        }
        QAction* action = menu->addAction(entry.title);
        if (entry.dot) action->setIcon(dotImage(resolve(*entry.dot, appearance)));
        action->setEnabled(entry.enabled);
        if (entry.representedObject) action->setData(*entry.representedObject);
        if (!entry.key.isEmpty()) {
            // Qt's Ctrl is the Command key on macOS: the platform's own modifier.
            action->setShortcut(QKeySequence(QStringLiteral("Ctrl+") + entry.key.toUpper()));
            action->setShortcutVisibleInContextMenu(true);
        }
        if (entry.hasSubmenu()) {
            auto* submenu = new QMenu(entry.title, menu);
            fill(submenu, entry.submenu, handler, appearance);
            action->setMenu(submenu);
        } else if (entry.action != MenuAction::none) {
            const MenuAction what = entry.action;
            const std::optional<QString> represented = entry.representedObject;
            QObject::connect(action, &QAction::triggered, menu,
                             [handler, what, represented] { handler(what, represented); });
        }
    }
}

}  // namespace

void renderMenu(QMenu* menu, const std::vector<MenuEntry>& entries, const MenuHandler& handler) {
    // Submenus are children of the menu, not owned by its actions: clear() alone
    // would leave every earlier rebuild's submenus behind.
    const QList<QMenu*> old = menu->findChildren<QMenu*>(Qt::FindDirectChildrenOnly);
    menu->clear();
    qDeleteAll(old);
    fill(menu, entries, handler, currentAppearance());
}

}  // namespace varnel
