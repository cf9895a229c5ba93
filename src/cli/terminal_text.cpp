#include "cli/terminal_text.h"

#include <algorithm>

namespace varnel::cli {

namespace {

bool isControl(char16_t c, Tabs tabs) {
    return (c < 0x20 && (c != u'\t' || tabs == Tabs::show)) || (c >= 0x7F && c <= 0x9F);
}

constexpr char16_t kEscapePicture = 0x241B;

}  // namespace

QString terminalSafe(QStringView text, Tabs tabs) {
    const auto first = std::find_if(text.begin(), text.end(),
                                    [tabs](QChar c) { return isControl(c.unicode(), tabs); });
    if (first == text.end()) return text.toString();
    QString out;
    out.reserve(text.size() + 8);
    out.append(QStringView(text.begin(), first));
    for (auto it = first; it != text.end(); ++it) {
        const char16_t c = it->unicode();
        if (!isControl(c, tabs)) {
            out.append(*it);
        } else if (c < 0x20) {
            out.append(QChar(char16_t(0x2400 + c)));
        } else if (c == 0x7F) {
            out.append(QChar(char16_t(0x2421)));
        } else {
            out.append(QChar(kEscapePicture));
            out.append(QChar(char16_t(c - 0x40)));
        }
    }
    return out;
}

}  // namespace varnel::cli
