#pragma once

#include <QString>
#include <QStringView>

namespace varnel::cli {

enum class Tabs { keep, show };

// Text as a terminal can print it without obeying it: log lines, file names
// and versions come from parties that may want to retitle the window, clear
// the screen or forge a line. C0 controls (tab too when asked) and DEL become
// their control pictures (ESC as U+241B, CR as U+240D, a line feed as U+240A,
// DEL as U+2421); C1 controls become the picture of ESC followed by their
// 7-bit form (CSI, U+009B, as U+241B and "["). Everything else is unchanged.
QString terminalSafe(QStringView text, Tabs tabs = Tabs::keep);

}  // namespace varnel::cli
