#pragma once

#include <QColor>
#include <QIcon>

namespace varnel {

// A filled circle of one colour, `diameter` points wide, drawn for 1x, 2x and 3x
// screens. The same pixmaps serve the disabled state: information lines in the
// menu are disabled items, and their dots must keep their colour.
QIcon dotImage(const QColor& color, qreal diameter = 10);

}  // namespace varnel
