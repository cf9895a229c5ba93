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

// "\x1b[" code "m" and "\x1b[0m" together take at most this many bytes.
constexpr qsizetype kMostColourBytes = 16;

char* putColour(char* o, const char* code) {
    *o++ = '\x1b';
    *o++ = '[';
    while (*code != 0) *o++ = *code++;
    *o++ = 'm';
    return o;
}

char* putColourEnd(char* o) {
    constexpr std::string_view reset = "\x1b[0m";
    return std::copy(reset.begin(), reset.end(), o);
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

char* RowFormatter::cell(char* o, QUtf8StringView text, qsizetype textWidth, qsizetype width,
                         SystemColor colour, bool bold) const {
    if (width == 0) return o;
    const char* code = colour_ && !text.isEmpty() ? ansiCode(colour, bold) : nullptr;
    if (code != nullptr) o = putColour(o, code);
    o = putTerminalSafe(o, bytes(text));
    if (code != nullptr) o = putColourEnd(o);
    return TextBuffer::putSpaces(o, width - textWidth + kGap);
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
    // The cells in one room: each at its most, padded to its column, with a
    // colour around it, and the sixteen bytes a step may write past its end.
    const qsizetype most = kMostSafeBytesPerByte * (log.size() + row.time.size() +
                                                    row.level.size() + row.source.size()) +
                           log_ + time_ + level_ + source_ + 4 * (kGap + kMostColourBytes) + 16;
    char* o = out.room(most);
    o = cell(o, QUtf8StringView(log.data(), log.size()), logWidth, log_,
             SystemColor::secondaryLabel, false);
    o = cell(o, row.time, time, time_, SystemColor::secondaryLabel, false);
    o = cell(o, row.level, level, level_, colour_ ? levelColor(row.level) : SystemColor::label,
             true);
    o = cell(o, row.source, source, source_, SystemColor::secondaryLabel, false);
    out.commit(o);

    if (row.message.isEmpty()) {
        // Padding before nothing is noise in a terminal and in diffs.
        while (out.size() > start && out.back() == ' ') out.truncate(out.size() - 1);
        out.append('\n');
        return;
    }
    // Line breaks a message holds go on under its column; every other control is shown.
    const char* code = colour_ ? ansiCode(messageColor(row.level), false) : nullptr;
    if (code != nullptr) out.commit(putColour(out.room(kMostColourBytes), code));
    appendTerminalSafe(out, bytes(row.message), Tabs::keep, messageColumn());
    if (code != nullptr) out.commit(putColourEnd(out.room(kMostColourBytes)));
    out.append('\n');
}

void RowFormatter::continuation(TextBuffer& out, QUtf8StringView text) const {
    out.appendSpaces(messageColumn());
    appendTerminalSafe(out, bytes(text));
    out.append('\n');
}

}  // namespace varnel::cli
