#pragma once

#include <QIcon>
#include <QObject>
#include <QString>
#include <memory>

class QMenu;

namespace varnel {

// The application's item in the menu bar or system tray: a picture, a tooltip,
// a name for screen readers and a menu that opens on a click. Qt's own tray icon
// cannot be used on macOS (its status-item code aborts when the menu opens on
// recent systems), so each platform provides this class in its own file.
class StatusItem : public QObject {
    Q_OBJECT

public:
    explicit StatusItem(QObject* parent = nullptr);
    ~StatusItem() override;

    void setIcon(const QIcon& icon);
    void setToolTip(const QString& text);
    // What a screen reader says for the item. Where the platform offers no
    // separate place for it, readers use the tooltip.
    void setAccessibleName(const QString& name);
    // The menu still emits aboutToShow and aboutToHide on every platform, so its
    // owner can fill it on opening and knows while it is open.
    void setMenu(QMenu* menu);
    void setVisible(bool visible);
    // A short notice on screen for news the user did not ask for: the tray
    // icon's message, or the system's notifications on macOS (which ask the
    // user's permission at first use). Where neither may be shown, the system
    // log gets it instead.
    void showMessage(const QString& title, const QString& text);

    QIcon icon() const { return icon_; }
    QString toolTip() const { return toolTip_; }
    QString accessibleName() const { return accessibleName_; }
    QMenu* menu() const { return menu_; }
    bool isVisible() const { return visible_; }

private:
    struct Native;
    std::unique_ptr<Native> native_;
    QIcon icon_;
    QString toolTip_;
    QString accessibleName_;
    QMenu* menu_ = nullptr;
    bool visible_ = false;
};

}  // namespace varnel
