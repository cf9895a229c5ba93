#pragma once

#include <QColor>

#include "platform/system_color.h"

namespace varnel {

enum class Appearance { light, dark };

// The appearance the application is drawn in now, from the palette's window colour.
Appearance currentAppearance();

// The system colour as the platform draws it in that appearance.
QColor resolve(SystemColor color, Appearance appearance);
QColor resolve(SystemColor color);

}  // namespace varnel
