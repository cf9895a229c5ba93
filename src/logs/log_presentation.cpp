#include "logs/log_presentation.h"

#include <string_view>

#include "logs/row_search.h"

namespace varnel {

namespace {

enum class LevelWord { error, fatal, warn, info, debug, trace, other };

uint unit(QChar c) {
    return c.unicode();
}
template <typename Byte>
uint unit(Byte c) {
    return uint(static_cast<unsigned char>(c));
}

// Character by character, which reads these ASCII words alike in UTF-16 and UTF-8.
template <typename View>
LevelWord wordOf(View level) {
    static constexpr std::string_view words[] = {"ERROR", "FATAL", "WARN",
                                                 "INFO",  "DEBUG", "TRACE"};
    const qsizetype size = level.size();
    for (int w = 0; w < int(LevelWord::other); ++w) {
        const std::string_view word = words[w];
        if (qsizetype(word.size()) != size) continue;
        qsizetype i = 0;
        while (i < size && unit(level[i]) == uint(uchar(word[size_t(i)]))) ++i;
        if (i == size) return LevelWord(w);
    }
    return LevelWord::other;
}

template <typename View>
SystemColor levelColorOf(View level) {
    switch (wordOf(level)) {
        case LevelWord::error:
        case LevelWord::fatal:
            return SystemColor::red;
        case LevelWord::warn:
            return SystemColor::orange;
        case LevelWord::info:
            return SystemColor::green;
        case LevelWord::debug:
        case LevelWord::trace:
            return SystemColor::secondaryLabel;
        case LevelWord::other:
            break;
    }
    return SystemColor::label;
}

template <typename View>
SystemColor messageColorOf(View level) {
    const LevelWord word = wordOf(level);
    return word == LevelWord::error || word == LevelWord::fatal ? SystemColor::red
                                                                : SystemColor::label;
}

}  // namespace

QString statusLine(qsizetype shown, qsizetype total, bool truncated, const QString& currentPath,
                   std::optional<qsizetype> matches) {
    QString line = QStringLiteral("%1 of %2 lines").arg(shown).arg(total);
    if (truncated) line += QStringLiteral(" \u00B7 showing last 4 MB");
    if (matches) line += QStringLiteral(" \u00B7 ") + matchCountText(*matches);
    if (!currentPath.isEmpty()) line += QStringLiteral(" \u00B7 ") + currentPath;
    return line;
}

SystemColor levelColor(QStringView level) {
    return levelColorOf(level);
}
SystemColor levelColor(QUtf8StringView level) {
    return levelColorOf(level);
}
SystemColor messageColor(QStringView level) {
    return messageColorOf(level);
}
SystemColor messageColor(QUtf8StringView level) {
    return messageColorOf(level);
}

}  // namespace varnel
