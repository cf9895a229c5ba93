#include "tray/menu_bar_icon.h"

#include <QDir>
#include <QFileInfo>
#include <QImageReader>
#include <QPixmap>

namespace varnel {

QStringList iconSearchPaths(const QString& applicationDir) {
    const QDir dir(applicationDir);
    return {
#if defined(__APPLE__)
        dir.filePath(QStringLiteral("../Resources/icon.png")),
#endif
            dir.filePath(QStringLiteral("../share/varnel-status/icon.png")),
            dir.filePath(QStringLiteral("icon.png")),
    };
}

std::optional<QIcon> menuBarIcon(const QString& applicationDir) {
    for (const QString& candidate : iconSearchPaths(applicationDir)) {
        if (!QFileInfo::exists(candidate)) continue;
        QPixmap base;
        if (!base.load(candidate)) return std::nullopt;
        // Drawn in its own colours, never as a template: one picture for light
        // and dark menu bars.
        QIcon icon;
        icon.addPixmap(base.scaled(18, 18, Qt::KeepAspectRatio, Qt::SmoothTransformation));
        const QString stem = candidate.chopped(4);
        for (const int scale : {2, 3}) {
            QPixmap dense;
            if (dense.load(stem + QStringLiteral("@%1x.png").arg(scale))) {
                dense.setDevicePixelRatio(scale);
                icon.addPixmap(dense);
            }
        }
        return icon;
    }
    return std::nullopt;
}

}  // namespace varnel
