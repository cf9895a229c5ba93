#pragma once

#include <QByteArrayView>
#include <QString>
#include <QStringView>
#include <cstring>

#include "cli/text_buffer.h"

namespace varnel::cli {

enum class Tabs { keep, show };

// Text as a terminal can print it without obeying it: log lines, file names
// and versions come from parties that may want to retitle the window, clear
// the screen or forge a line. C0 controls (tab too when asked) and DEL become
// their control pictures (ESC as U+241B, CR as U+240D, a line feed as U+240A,
// DEL as U+2421); C1 controls become the picture of ESC followed by their
// 7-bit form (CSI, U+009B, as U+241B and "["). Everything else is unchanged.
QString terminalSafe(QStringView text, Tabs tabs = Tabs::keep);

// The same for valid UTF-8, appended to `out`. With a `lineIndent`, a line
// feed is kept and followed by that many spaces instead of being shown.
void appendTerminalSafe(TextBuffer& out, QByteArrayView utf8, Tabs tabs = Tabs::keep,
                        qsizetype lineIndent = -1);

qsizetype terminalWidthSlow(QByteArrayView utf8);
// The columns that text takes once made terminal-safe, counted in code points.
inline qsizetype terminalWidth(QByteArrayView utf8) {
    // Fields are short: eight bytes a step inline beat a call.
    const char* p = utf8.data();
    const qsizetype n = utf8.size();
    quint64 high = 0;
    qsizetype i = 0;
    for (; i + 8 <= n; i += 8) {
        quint64 word;
        std::memcpy(&word, p + i, 8);
        high |= word;
    }
    for (; i < n; ++i) high |= uchar(p[i]);
    return (high & 0x8080808080808080ULL) == 0 ? n : terminalWidthSlow(utf8);
}

}  // namespace varnel::cli
