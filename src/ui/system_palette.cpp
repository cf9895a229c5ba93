#include "ui/system_palette.h"

#include <QGuiApplication>
#include <QPalette>

namespace varnel {

Appearance currentAppearance() {
    const QColor window = QGuiApplication::palette().color(QPalette::Window);
    return window.lightness() < 128 ? Appearance::dark : Appearance::light;
}

QColor resolve(SystemColor color, Appearance appearance) {
    const bool dark = appearance == Appearance::dark;
    switch (color) {
        case SystemColor::green:
            return dark ? QColor(48, 209, 88) : QColor(52, 199, 89);
        case SystemColor::red:
            return dark ? QColor(255, 69, 58) : QColor(255, 59, 48);
        case SystemColor::gray:
            return QColor(142, 142, 147);
        case SystemColor::yellow:
            return dark ? QColor(255, 214, 10) : QColor(255, 204, 0);
        case SystemColor::orange:
            return dark ? QColor(255, 159, 10) : QColor(255, 149, 0);
        case SystemColor::blue:
            return dark ? QColor(10, 132, 255) : QColor(0, 122, 255);
        case SystemColor::label:
            return dark ? QColor(255, 255, 255, 217) : QColor(0, 0, 0, 217);
        case SystemColor::secondaryLabel:
            return dark ? QColor(235, 235, 245, 153) : QColor(60, 60, 67, 153);
    }
    return {};
}

QColor resolve(SystemColor color) {
    return resolve(color, currentAppearance());
}

}  // namespace varnel
