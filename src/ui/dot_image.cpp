#include "ui/dot_image.h"

#include <QPainter>
#include <QPixmap>
#include <cmath>

namespace varnel {

QIcon dotImage(const QColor& color, qreal diameter) {
    QIcon icon;
    for (const qreal scale : {1.0, 2.0, 3.0}) {
        const int side = int(std::ceil(diameter * scale));
        QPixmap pixmap(side, side);
        pixmap.fill(Qt::transparent);
        {
            QPainter painter(&pixmap);
            painter.setRenderHint(QPainter::Antialiasing);
            painter.setPen(Qt::NoPen);
            painter.setBrush(color);
            painter.drawEllipse(QRectF(0, 0, side, side));
        }
        pixmap.setDevicePixelRatio(scale);
        icon.addPixmap(pixmap, QIcon::Normal);
        icon.addPixmap(pixmap, QIcon::Disabled);
    }
    return icon;
}

}  // namespace varnel
