#pragma once

#include <QIcon>
#include <QString>
#include <optional>

namespace varnel {

// Where "icon.png" is looked for: the bundle's Resources on macOS, then
// ../share/varnel-status beside the executable, then the executable's own folder.
QStringList iconSearchPaths(const QString& applicationDir);

// The status item's picture at 18 x 18 points, or nothing when the file is
// missing or unreadable. A sibling icon@2x.png / icon@3x.png is used on dense screens.
std::optional<QIcon> menuBarIcon(const QString& applicationDir);

}  // namespace varnel
