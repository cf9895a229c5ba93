#pragma once

#include <algorithm>
#include <cmath>

// How tall a table row of the log viewer is. Measuring text needs a font and so
// lives in the UI; what the measurement turns into is decided here.
namespace varnel::RowHeight {

// Every row while messages do not wrap, and the least a wrapped row gets.
inline constexpr int plain = 17;

// The box a wrapped message is measured in: the message column less its
// padding, never narrower than 40 so a squeezed column still gives sane rows.
inline double wrapBoxWidth(double messageColumnWidth) {
    return std::max(messageColumnWidth - 6.0, 40.0);
}

// The measured text height, rounded up, plus room above and below.
inline int wrapped(double measuredHeight) {
    return std::max(int(std::ceil(measuredHeight)) + 4, plain);
}

}  // namespace varnel::RowHeight
