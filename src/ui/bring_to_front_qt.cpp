// Everywhere but macOS, Qt's own activation brings the window forward.
#include <QWindow>

#include "ui/bring_to_front.h"

namespace varnel {

void bringToFront(QWindow* window) {
    if (window == nullptr) return;
    window->raise();
    window->requestActivate();
}

}  // namespace varnel
