// The status item on macOS. It owns an NSStatusItem instead of going through
// Qt's tray icon, because on recent systems Qt's status-item delegate aborts the
// first time the menu opens (it asks a gesture event for its click count). The
// menu is the QMenu's own native menu: Qt keeps it in step with the QActions and
// still emits aboutToShow and aboutToHide, which is all the delegate relies on.
#import <AppKit/AppKit.h>

#include <QBuffer>
#include <QImage>
#include <QMenu>
#include <QPixmap>

#include "tray/status_item.h"

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

}  // namespace

struct StatusItem::Native {
    NSStatusItem* item = nil;
    NSStatusBarButton* button() const { return [item button]; }
};

StatusItem::StatusItem(QObject* parent) : QObject(parent), native_(std::make_unique<Native>()) {
    native_->item =
        [[[NSStatusBar systemStatusBar] statusItemWithLength:NSVariableStatusItemLength] retain];
    [native_->item setVisible:NO];
}

StatusItem::~StatusItem() {
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

void StatusItem::setVisible(bool visible) {
    visible_ = visible;
    [native_->item setVisible:visible ? YES : NO];
}

}  // namespace varnel
