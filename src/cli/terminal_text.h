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
// The most a byte becomes: a control picture takes three.
constexpr qsizetype kMostSafeBytesPerByte = 3;

// The same written at `o`, which has room for kMostSafeBytesPerByte bytes for
// each byte of `utf8` and sixteen more; where it ended. Line feeds are shown.
char* putTerminalSafe(char* o, QByteArrayView utf8, Tabs tabs = Tabs::keep);

qsizetype terminalWidthSlow(QByteArrayView utf8);
// The columns that text takes once made terminal-safe, counted in code points.
inline qsizetype terminalWidth(QByteArrayView utf8) {
    // Fields are short: words that overlap at the end, inline, beat a call
    // and a byte at a time.
    const char* p = utf8.data();
    const qsizetype n = utf8.size();
    const auto word = [p]<typename Word>(qsizetype at, Word) {
        Word w;
        std::memcpy(&w, p + at, sizeof w);
        return quint64(w);
    };
    quint64 high = 0;
    if (n >= 8) {
        for (qsizetype i = 0; i + 8 <= n; i += 8) high |= word(i, quint64());
        high |= word(n - 8, quint64());
    } else if (n >= 4) {
        high = word(0, quint32()) | word(n - 4, quint32());
    } else if (n > 0) {
        high = uchar(p[0]) | uchar(p[n / 2]) | uchar(p[n - 1]);
    }
    return (high & 0x8080808080808080ULL) == 0 ? n : terminalWidthSlow(utf8);
}

}  // namespace varnel::cli
