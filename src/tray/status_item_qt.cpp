// The status item on Linux and Windows: Qt's tray icon, which speaks the
// desktop's own tray protocols.
#include <QCursor>
#include <QMenu>
#include <QSystemTrayIcon>

#include "tray/status_item.h"
#include "update/privileged_action.h"

namespace varnel {

struct StatusItem::Native {
    QSystemTrayIcon icon;
};

StatusItem::StatusItem(QObject* parent) : QObject(parent), native_(std::make_unique<Native>()) {
    // A menu-bar item opens its menu on any click; a tray icon only on the
    // context click, so the primary click is routed to the same menu.
    connect(&native_->icon, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger && menu_ != nullptr && !menu_->isVisible())
                    menu_->popup(QCursor::pos());
            });
}

StatusItem::~StatusItem() = default;

void StatusItem::setIcon(const QIcon& icon) {
    icon_ = icon;
    native_->icon.setIcon(icon);
}

void StatusItem::setToolTip(const QString& text) {
    toolTip_ = text;
    native_->icon.setToolTip(text);
}

void StatusItem::setAccessibleName(const QString& name) {
    // The tray protocols give an item no name of its own: readers announce the
    // tooltip, which carries the same state.
    accessibleName_ = name;
}

void StatusItem::setMenu(QMenu* menu) {
    menu_ = menu;
    native_->icon.setContextMenu(menu);
}

void StatusItem::showMessage(const QString& title, const QString& text) {
    if (!QSystemTrayIcon::isSystemTrayAvailable() || !QSystemTrayIcon::supportsMessages() ||
        !native_->icon.isVisible())
        return notify(title, text);
    native_->icon.showMessage(title, text, QSystemTrayIcon::Information, 10'000);
}

void StatusItem::setVisible(bool visible) {
    visible_ = visible;
    native_->icon.setVisible(visible);
}

}  // namespace varnel
