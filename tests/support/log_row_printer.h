#pragma once

// Readable failure messages for rows: fields between bars, control and
// non-ASCII characters as \uXXXX.
#include <ostream>

#include "logs/log_parser.h"

namespace varnel {

inline std::string visibleText(const QString& s) {
    std::string out;
    for (QChar c : s) {
        const char16_t u = c.unicode();
        if (u >= 0x20 && u < 0x7f) {
            out += char(u);
        } else {
            out += QStringLiteral("\\u%1").arg(u, 4, 16, QChar(u'0')).toStdString();
        }
    }
    return out;
}

inline void PrintTo(const LogRow& row, std::ostream* os) {
    *os << "[" << visibleText(row.time) << "|" << visibleText(row.level) << "|"
        << visibleText(row.source) << "|" << visibleText(row.message) << "|" << visibleText(row.raw)
        << "]";
}

}  // namespace varnel
