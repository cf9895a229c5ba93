#include "cli/log_output.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#include <algorithm>
#include <string_view>

#include "cli/terminal_text.h"
#include "logs/utf8.h"

namespace varnel::cli {

namespace {

constexpr qsizetype kGap = 2;

const char* ansiCode(SystemColor colour, bool bold) {
    switch (colour) {
        case SystemColor::red:
            return bold ? "1;31" : "31";
        case SystemColor::orange:
        case SystemColor::yellow:
            return bold ? "1;33" : "33";
        case SystemColor::green:
            return bold ? "1;32" : "32";
        case SystemColor::blue:
            return bold ? "1;34" : "34";
        case SystemColor::gray:
        case SystemColor::secondaryLabel:
            return bold ? "1;2" : "2";
        case SystemColor::label:
            return bold ? "1" : nullptr;
    }
    return nullptr;
}

void startColour(TextBuffer& out, const char* code) {
    out.append(std::string_view("\x1b["));
    out.append(std::string_view(code));
    out.append('m');
}

void endColour(TextBuffer& out) {
    out.append(std::string_view("\x1b[0m"));
}

bool needsEscape(uchar c) {
    return c == '"' || c == '\\' || c < 0x20 || c == 0x7F;
}

char* putEscaped(char* o, uchar c) {
    static constexpr char hex[] = "0123456789abcdef";
    *o++ = '\\';
    switch (c) {
        case '"':
        case '\\':
            *o++ = char(c);
            break;
        case '\n':
            *o++ = 'n';
            break;
        case '\r':
            *o++ = 'r';
            break;
        case '\t':
            *o++ = 't';
            break;
        default:
            *o++ = 'u';
            *o++ = '0';
            *o++ = '0';
            *o++ = hex[c >> 4];
            *o++ = hex[c & 0xF];
            break;
    }
    return o;
}

QByteArrayView bytes(QUtf8StringView s) {
    return utf8::bytes(s);
}

}  // namespace

void appendJsonString(TextBuffer& out, QByteArrayView utf8) {
    const auto* p = reinterpret_cast<const uchar*>(utf8.data());
    const uchar* end = p + utf8.size();
    // Every byte becomes at most six (\u00XX).
    char* o = out.room(6 * utf8.size() + 2);
    *o++ = '"';
    while (p != end) {
#if defined(__SSE2__)
        // Sixteen bytes a step, copied whole and kept up to the first to escape.
        const __m128i below = _mm_set1_epi8(0x1F);
        const __m128i quote = _mm_set1_epi8('"');
        const __m128i backslash = _mm_set1_epi8('\\');
        const __m128i del = _mm_set1_epi8(0x7F);
        copyPlain(p, end, p, o, [&](__m128i v) {
            return unsigned(_mm_movemask_epi8(_mm_or_si128(
                _mm_or_si128(_mm_cmpeq_epi8(_mm_max_epu8(v, below), below), _mm_cmpeq_epi8(v, del)),
                _mm_or_si128(_mm_cmpeq_epi8(v, quote), _mm_cmpeq_epi8(v, backslash)))));
        });
#endif
        while (p != end && !needsEscape(*p)) *o++ = char(*p++);
        if (p == end) break;
        o = putEscaped(o, *p++);
    }
    *o++ = '"';
    out.commit(o);
}

QString jsonString(QStringView text) {
    TextBuffer out;
    appendJsonString(out, utf8::encode(text));
    return QString::fromUtf8(out.data(), out.size());
}

void appendRowJson(TextBuffer& out, const LogRowView& row, QByteArrayView log) {
    out.append('{');
    if (!log.isNull()) {
        out.append(std::string_view("\"log\":"));
        appendJsonString(out, log);
        out.append(',');
    }
    out.append(std::string_view("\"time\":"));
    appendJsonString(out, bytes(row.time));
    out.append(std::string_view(",\"level\":"));
    appendJsonString(out, bytes(row.level));
    out.append(std::string_view(",\"source\":"));
    appendJsonString(out, bytes(row.source));
    out.append(std::string_view(",\"message\":"));
    appendJsonString(out, bytes(row.message));
    out.append(std::string_view(",\"raw\":"));
    appendJsonString(out, bytes(row.raw));
    out.append(std::string_view("}\n"));
}

bool wantColour(bool outIsTerminal) {
    return outIsTerminal && qEnvironmentVariableIsEmpty("NO_COLOR");
}

void RowFormatter::fit(const LogRowView& row, QByteArrayView log) {
    log_ = std::max(log_, terminalWidth(log));
    time_ = std::max(time_, terminalWidth(bytes(row.time)));
    level_ = std::max(level_, terminalWidth(bytes(row.level)));
    source_ = std::max(source_, terminalWidth(bytes(row.source)));
}

qsizetype RowFormatter::messageColumn() const {
    qsizetype column = 0;
    for (qsizetype w : {log_, time_, level_, source_})
        if (w > 0) column += w + kGap;
    return column;
}

void RowFormatter::cell(TextBuffer& out, QUtf8StringView text, qsizetype textWidth, qsizetype width,
                        SystemColor colour, bool bold) const {
    if (width == 0) return;
    const char* code = colour_ && !text.isEmpty() ? ansiCode(colour, bold) : nullptr;
    if (code != nullptr) startColour(out, code);
    appendTerminalSafe(out, bytes(text));
    if (code != nullptr) endColour(out);
    out.appendSpaces(width - textWidth + kGap);
}

void RowFormatter::row(TextBuffer& out, const LogRowView& row, QByteArrayView log) {
    const qsizetype logWidth = terminalWidth(log);
    log_ = std::max(log_, logWidth);
    const qsizetype time = terminalWidth(bytes(row.time));
    const qsizetype level = terminalWidth(bytes(row.level));
    const qsizetype source = terminalWidth(bytes(row.source));
    time_ = std::max(time_, time);
    level_ = std::max(level_, level);
    source_ = std::max(source_, source);
    const qsizetype start = out.size();
    cell(out, QUtf8StringView(log.data(), log.size()), logWidth, log_, SystemColor::secondaryLabel,
         false);
    cell(out, row.time, time, time_, SystemColor::secondaryLabel, false);
    cell(out, row.level, level, level_, colour_ ? levelColor(row.level) : SystemColor::label, true);
    cell(out, row.source, source, source_, SystemColor::secondaryLabel, false);

    if (row.message.isEmpty()) {
        // Padding before nothing is noise in a terminal and in diffs.
        while (out.size() > start && out.back() == ' ') out.truncate(out.size() - 1);
        out.append('\n');
        return;
    }
    // Line breaks a message holds go on under its column; every other control is shown.
    const char* code = colour_ ? ansiCode(messageColor(row.level), false) : nullptr;
    if (code != nullptr) startColour(out, code);
    appendTerminalSafe(out, bytes(row.message), Tabs::keep, messageColumn());
    if (code != nullptr) endColour(out);
    out.append('\n');
}

void RowFormatter::continuation(TextBuffer& out, QUtf8StringView text) const {
    out.appendSpaces(messageColumn());
    appendTerminalSafe(out, bytes(text));
    out.append('\n');
}

}  // namespace varnel::cli
