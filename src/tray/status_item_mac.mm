// The status item on macOS. It owns an NSStatusItem instead of going through
// Qt's tray icon, because on recent systems Qt's status-item delegate aborts the
// first time the menu opens (it asks a gesture event for its click count). The
// menu is the QMenu's own native menu: Qt keeps it in step with the QActions and
// still emits aboutToShow and aboutToHide, which is all the delegate relies on.
// Its notices go through the user-notification framework.
#import <AppKit/AppKit.h>
#import <UserNotifications/UserNotifications.h>

#include <QBuffer>
#include <QImage>
#include <QMenu>
#include <QPixmap>

#include "tray/status_item.h"
#include "update/privileged_action.h"

// The system keeps notifications out of sight while their application is in
// front, as this one is while its log window has the focus: they are news
// about the suite all the same.
@interface VarnelNotificationPresenter : NSObject <UNUserNotificationCenterDelegate>
@end

@implementation VarnelNotificationPresenter
- (void)userNotificationCenter:(UNUserNotificationCenter*)center
       willPresentNotification:(UNNotification*)notification
         withCompletionHandler:(void (^)(UNNotificationPresentationOptions))completionHandler {
    completionHandler(UNNotificationPresentationOptionBanner |
                      UNNotificationPresentationOptionList);
}
@end

namespace varnel {

namespace {

constexpr CGFloat iconPoints = 18;

NSString* nsString(const QString& text) {
    return [NSString stringWithUTF8String:text.toUtf8().constData()];
}

// One representation for each screen density, handed over as PNG data so that
// no graphics-context conversion is involved.
NSImage* nsImage(const QIcon& icon) {
    if (icon.isNull()) return nil;
    NSImage* image =
        [[[NSImage alloc] initWithSize:NSMakeSize(iconPoints, iconPoints)] autorelease];
    bool any = false;
    for (const qreal scale : {1.0, 2.0, 3.0}) {
        QByteArray png;
        QBuffer buffer(&png);
        buffer.open(QIODevice::WriteOnly);
        const QImage pixels = icon.pixmap(QSize(int(iconPoints), int(iconPoints)), scale).toImage();
        if (pixels.isNull() || !pixels.save(&buffer, "PNG")) continue;
        NSBitmapImageRep* rep = [NSBitmapImageRep
            imageRepWithData:[NSData dataWithBytes:png.constData() length:NSUInteger(png.size())]];
        if (rep == nil) continue;
        [rep setSize:NSMakeSize(iconPoints, iconPoints)];
        [image addRepresentation:rep];
        any = true;
    }
    // Drawn in its own colours, in light and dark menu bars alike.
    [image setTemplate:NO];
    return any ? image : nil;
}

void post(UNUserNotificationCenter* center, const QString& title, const QString& text) {
    UNMutableNotificationContent* content =
        [[[UNMutableNotificationContent alloc] init] autorelease];
    [content setTitle:nsString(title)];
    [content setBody:nsString(text)];
    UNNotificationRequest* request =
        [UNNotificationRequest requestWithIdentifier:[[NSUUID UUID] UUIDString]
                                             content:content
                                             trigger:nil];
    [center addNotificationRequest:request
             withCompletionHandler:^(NSError* error) {
               if (error != nil) notify(title, text);
             }];
}

}  // namespace

struct StatusItem::Native {
    NSStatusItem* item = nil;
    VarnelNotificationPresenter* presenter = nil;  // the center holds its delegate weakly
    NSStatusBarButton* button() const { return [item button]; }
};

StatusItem::StatusItem(QObject* parent) : QObject(parent), native_(std::make_unique<Native>()) {
    native_->item =
        [[[NSStatusBar systemStatusBar] statusItemWithLength:NSVariableStatusItemLength] retain];
    [native_->item setVisible:NO];
}

StatusItem::~StatusItem() {
    if (native_->presenter != nil) {
        [[UNUserNotificationCenter currentNotificationCenter] setDelegate:nil];
        [native_->presenter release];
    }
    [native_->item setMenu:nil];
    [[NSStatusBar systemStatusBar] removeStatusItem:native_->item];
    [native_->item release];
}

void StatusItem::setIcon(const QIcon& icon) {
    icon_ = icon;
    [native_->button() setImage:nsImage(icon)];
}

void StatusItem::setToolTip(const QString& text) {
    toolTip_ = text;
    [native_->button() setToolTip:nsString(text)];
}

void StatusItem::setAccessibleName(const QString& name) {
    // VoiceOver reads the button's label; the picture alone says nothing.
    accessibleName_ = name;
    [native_->button() setAccessibilityLabel:nsString(name)];
}

void StatusItem::setMenu(QMenu* menu) {
    menu_ = menu;
    [native_->item setMenu:menu != nullptr ? menu->toNSMenu() : nil];
}

void StatusItem::showMessage(const QString& title, const QString& text) {
    // The framework serves application bundles only; a bare executable has no
    // identifier to be allowed notifications under.
    if ([[NSBundle mainBundle] bundleIdentifier] == nil) return notify(title, text);
    UNUserNotificationCenter* center = [UNUserNotificationCenter currentNotificationCenter];
    if (native_->presenter == nil) {
        native_->presenter = [[VarnelNotificationPresenter alloc] init];
        [center setDelegate:native_->presenter];
    }
    // The first notice asks the user; the system remembers the answer, and a
    // refusal sends every later notice to the system log.
    [center getNotificationSettingsWithCompletionHandler:^(UNNotificationSettings* settings) {
      switch ([settings authorizationStatus]) {
          case UNAuthorizationStatusNotDetermined:
              [center requestAuthorizationWithOptions:UNAuthorizationOptionAlert
                                    completionHandler:^(BOOL granted, NSError*) {
                                      if (granted)
                                          post(center, title, text);
                                      else
                                          notify(title, text);
                                    }];
              break;
          case UNAuthorizationStatusDenied:
              notify(title, text);
              break;
          default:
              post(center, title, text);
              break;
      }
    }];
}

void StatusItem::setVisible(bool visible) {
    visible_ = visible;
    [native_->item setVisible:visible ? YES : NO];
}

}  // namespace varnel
