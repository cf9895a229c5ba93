// From macOS 14 on, activateIgnoringOtherApps: (how Qt activates an application)
// does nothing for an accessory application, so a window opened from its menu
// stayed behind the active application's. The application has to ask for
// activation itself, which the system grants because the user just used its menu.
#import <AppKit/AppKit.h>

#include <QWindow>

#include "ui/bring_to_front.h"

namespace varnel {

void bringToFront(QWindow* window) {
    if (window == nullptr) return;
    if (@available(macOS 14.0, *)) [NSApp activate];
    window->raise();
    window->requestActivate();
}

}  // namespace varnel
