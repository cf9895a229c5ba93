#pragma once

class QWindow;

namespace varnel {

// Shows `window` above every other application's windows and gives it the
// keyboard, also when this application was not active (it has no Dock icon, so
// it usually is not when its menu is used).
void bringToFront(QWindow* window);

}  // namespace varnel
