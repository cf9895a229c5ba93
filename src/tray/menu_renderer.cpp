#include "tray/menu_renderer.h"

#include <QAction>
#include <QKeyEvent>
#include <QKeySequence>

#include "ui/dot_image.h"
#include "ui/system_palette.h"

namespace varnel {

namespace {

// What an item keeps from the entry it shows: the key that matches it to the
// next entries, what choosing it does, and the colour of its dot.
constexpr char keyProperty[] = "varnelKey";
constexpr char actionProperty[] = "varnelAction";
constexpr char dotProperty[] = "varnelDot";
const QString keysName = QStringLiteral("shortcutKeys");

QString keyOf(const MenuEntry& entry) {
    if (entry.separator) return QStringLiteral("-");
    return (entry.hasSubmenu() ? QStringLiteral("menu:") : QStringLiteral("item:")) +
           (entry.id.isEmpty() ? entry.title : entry.id);
}

// Menus read a single "&" as the mark of a mnemonic: "1.8&2" would show as "1.82".
QString escaped(QString title) {
    return title.replace(u'&', QStringLiteral("&&"));
}

// An open popup menu keeps the keyboard, so the shortcuts it shows never reach
// the application's shortcut handling: the menu tree answers them itself.
class ShortcutKeys : public QObject {
public:
    explicit ShortcutKeys(QMenu* root) : QObject(root), root_(root) {
        setObjectName(keysName);
        root->installEventFilter(this);
    }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() != QEvent::KeyPress) return QObject::eventFilter(watched, event);
        const QKeySequence pressed(static_cast<QKeyEvent*>(event)->keyCombination());
        QAction* chosen = find(root_, pressed);
        if (chosen == nullptr) return false;
        for (QMenu* open : root_->findChildren<QMenu*>()) open->hide();
        root_->hide();
        chosen->trigger();
        return true;
    }

private:
    static QAction* find(const QMenu* menu, const QKeySequence& pressed) {
        for (QAction* action : menu->actions()) {
            if (!action->isEnabled()) continue;
            if (const QMenu* submenu = action->menu()) {
                if (QAction* inner = find(submenu, pressed)) return inner;
            } else if (!action->shortcut().isEmpty() && action->shortcut() == pressed) {
                return action;
            }
        }
        return nullptr;
    }

    QMenu* root_;
};

struct Context {
    const MenuHandler& handler;
    QObject* keys;
    Appearance appearance;
};

void sync(QMenu* menu, const std::vector<MenuEntry>& entries, const Context& context);

QAction* create(QMenu* menu, QAction* before, const MenuEntry& entry, const Context& context) {
    auto* action = new QAction(menu);
    action->setProperty(keyProperty, keyOf(entry));
    action->setSeparator(entry.separator);
    // Reads what the item does when it is chosen: an update in place may change it.
    QObject::connect(action, &QAction::triggered, menu, [handler = context.handler, action] {
        const auto what = MenuAction(action->property(actionProperty).toInt());
        const QVariant data = action->data();
        if (what != MenuAction::none)
            handler(what, data.isValid() ? std::optional(data.toString()) : std::nullopt);
    });
    menu->insertAction(before, action);
    return action;
}

void apply(QAction* action, const MenuEntry& entry, QMenu* menu, const Context& context) {
    if (entry.separator) return;
    const QString text = escaped(entry.title);
    if (action->text() != text) action->setText(text);

    const QVariant dot = entry.dot ? QVariant(resolve(*entry.dot, context.appearance)) : QVariant();
    if (action->property(dotProperty) != dot) {
        action->setProperty(dotProperty, dot);
        action->setIcon(entry.dot ? dotImage(dot.value<QColor>()) : QIcon());
        // The dots are the menu's colour key; some platforms hide menu icons by default.
        action->setIconVisibleInMenu(entry.dot.has_value());
    }
    action->setEnabled(entry.enabled);
    action->setCheckable(entry.checked.has_value());
    action->setChecked(entry.checked.value_or(false));
    action->setProperty(actionProperty, int(entry.action));
    action->setData(entry.representedObject ? QVariant(*entry.representedObject) : QVariant());

    // Qt's Ctrl is the Command key on macOS: the platform's own modifier.
    const QKeySequence shortcut = entry.key.isEmpty()
                                      ? QKeySequence()
                                      : QKeySequence(QStringLiteral("Ctrl+") + entry.key.toUpper());
    if (action->shortcut() != shortcut) {
        action->setShortcut(shortcut);
        action->setShortcutVisibleInContextMenu(true);
    }

    if (entry.hasSubmenu()) {
        QMenu* submenu = action->menu();
        if (submenu == nullptr) {
            submenu = new QMenu(menu);
            submenu->installEventFilter(context.keys);
            action->setMenu(submenu);
        }
        submenu->setTitle(text);
        sync(submenu, entry.submenu, context);
    }
}

// Later, not at once: the item may be the one whose choice is being handled.
void remove(QMenu* menu, QAction* action) {
    menu->removeAction(action);
    if (QMenu* submenu = action->menu()) submenu->deleteLater();
    action->deleteLater();
}

void sync(QMenu* menu, const std::vector<MenuEntry>& entries, const Context& context) {
    const QList<QAction*> existing = menu->actions();
    qsizetype next = 0;
    for (const MenuEntry& entry : entries) {
        const QString key = keyOf(entry);
        qsizetype match = next;
        while (match < existing.size() && existing[match]->property(keyProperty) != key) ++match;
        if (match == existing.size()) {
            apply(create(menu, existing.value(next, nullptr), entry, context), entry, menu,
                  context);
            continue;
        }
        for (; next < match; ++next) remove(menu, existing[next]);
        apply(existing[match], entry, menu, context);
        next = match + 1;
    }
    for (; next < existing.size(); ++next) remove(menu, existing[next]);
}

Context contextFor(QMenu* menu, const MenuHandler& handler) {
    QObject* keys = menu->findChild<QObject*>(keysName, Qt::FindDirectChildrenOnly);
    if (keys == nullptr) keys = new ShortcutKeys(menu);
    return Context{handler, keys, currentAppearance()};
}

}  // namespace

void renderMenu(QMenu* menu, const std::vector<MenuEntry>& entries, const MenuHandler& handler) {
    for (QAction* action : menu->actions()) remove(menu, action);
    sync(menu, entries, contextFor(menu, handler));
}

void updateMenuInPlace(QMenu* menu, const std::vector<MenuEntry>& entries,
                       const MenuHandler& handler) {
    sync(menu, entries, contextFor(menu, handler));
}

}  // namespace varnel
