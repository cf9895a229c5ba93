#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QStringView>
#include <QUtf8StringView>
#include <bit>
#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

// Log text is kept as UTF-8 bytes and turned into QString only for what is
// shown. These are the few rules the bytes are read by, equal to what Qt's
// UTF-16 text gives for the same characters.
namespace varnel::utf8 {

// What one pass over a line finds.
struct LineScan {
    qsizetype end = 0;    // the line feed that ends the line, or the end of the text
    bool ascii = true;    // no byte above 0x7F
    bool escape = false;  // holds ESC, so terminal sequences may need removing
};

enum class ScanPath {
    avx2,      // x86's wider vector instructions, where the processor has them
    sse2,      // x86's vector instructions, where the build has them
    portable,  // eight bytes a step in plain integer code, for any processor
};
ScanPath fastestScan();

// The line that starts at `from`, up to the next line feed or `to`.
LineScan scanLine(const char* text, qsizetype from, qsizetype to, ScanPath path = fastestScan());

// Line feeds in the bytes.
qsizetype countLineFeeds(QByteArrayView bytes, ScanPath path = fastestScan());

// Rows read text leniently: a byte that is not part of a valid sequence reads
// as U+FFFD, and every U+FEFF is dropped. True when the bytes need no such
// reading (valid UTF-8 without U+FEFF).
bool isClean(QByteArrayView bytes);
// The bytes read that way, as valid UTF-8.
QByteArray cleaned(QByteArrayView bytes);
// The same as text.
QString decode(QByteArrayView bytes);
// Bytes as text, each byte that is not part of a valid sequence as U+FFFD,
// every U+FEFF kept.
QString decodeKeepingMarks(QByteArrayView bytes);
// Valid UTF-8 as text, a leading U+FEFF kept (QString::fromUtf8 drops it).
QString toString(QUtf8StringView text);

// UTF-16 as UTF-8, as Qt's UTF-8 encoder writes it (what a QTextStream
// prints): a lone surrogate becomes U+FFFD.
QByteArray encode(QStringView text);
void appendEncoded(QByteArray& out, QStringView text);

// The code point that starts at p (valid UTF-8, p < end) and its byte count.
char32_t decodeAt(const char* p, const char* end, int& length);
// The start of the code point that ends just before `end`.
const char* previousStart(const char* begin, const char* end);

// Code points in s, counting no further than limit + 1.
qsizetype codePoints(QUtf8StringView s, qsizetype limit);
// The first n code points of s.
QUtf8StringView firstCodePoints(QUtf8StringView s, qsizetype n);
// Bytes of s taken up by its first `units` UTF-16 code units.
qsizetype bytesForUnits(QUtf8StringView s, qsizetype units);

// White space and line ends at both ends removed, as QString::trimmed() does.
QUtf8StringView trimmedSlow(QUtf8StringView s);
inline QUtf8StringView trimmed(QUtf8StringView s) {
    // Most lines start and end with a printable ASCII character, some after
    // a few spaces (indented stack frames).
    const char* begin = reinterpret_cast<const char*>(s.data());
    const char* end = begin + s.size();
    while (begin != end && *begin == ' ') ++begin;
    if (begin != end && uchar(*begin) - 0x21u < 0x5Eu && uchar(end[-1]) - 0x21u < 0x5Eu)
        return QUtf8StringView(begin, end - begin);
    return trimmedSlow(QUtf8StringView(begin, end - begin));
}
// Blanks (spaces of general category Zs and tab) removed at both ends.
QUtf8StringView trimBlanksSlow(QUtf8StringView s);
inline QUtf8StringView trimBlanks(QUtf8StringView s) {
    // What follows a time stamp or a level word mostly starts with a space.
    const char* begin = reinterpret_cast<const char*>(s.data());
    const char* end = begin + s.size();
    while (begin != end && *begin == ' ') ++begin;
    if (begin == end || (uchar(*begin) - 0x21u < 0x5Eu && uchar(end[-1]) - 0x21u < 0x5Eu))
        return QUtf8StringView(begin, end - begin);
    return trimBlanksSlow(QUtf8StringView(begin, end - begin));
}
bool isBlankOnly(QUtf8StringView s);
// The first character is white space (QChar::isSpace).
bool startsWithSpace(QUtf8StringView s);

inline bool isAscii(QUtf8StringView s) {
    // Mostly short fields: eight bytes a step inline beat a call.
    const char* p = reinterpret_cast<const char*>(s.data());
    const qsizetype n = s.size();
    quint64 high = 0;
    qsizetype i = 0;
    for (; i + 8 <= n; i += 8) {
        quint64 word;
        std::memcpy(&word, p + i, 8);
        high |= word;
    }
    for (; i < n; ++i) high |= uchar(p[i]);
    return (high & 0x8080808080808080ULL) == 0;
}

// Holds a character whose lower case is ASCII though it is not ASCII itself:
// U+0130 (to "i" and a combining dot) and U+212A (the Kelvin sign, to "k").
bool lowersToAscii(QUtf8StringView s);

// The first `c` in the bytes, or -1. QByteArrayView::indexOf reaches memchr
// only through a general search, which costs more than short lines take.
inline qsizetype indexOf(QByteArrayView bytes, char c) {
    if (bytes.isEmpty()) return -1;
    const void* hit = std::memchr(bytes.data(), c, size_t(bytes.size()));
    return hit == nullptr ? -1 : static_cast<const char*>(hit) - bytes.data();
}

// Copies from p to o up to the first `stop` or `end`, returns where it
// stopped and leaves o past the copy. Texts between two stops are mostly short:
// sixteen bytes a store beat a search and a copy call for each. A store may
// write up to sixteen bytes from o, so o needs room for all of [p, end).
inline const char* copyUntil(const char* p, const char* end, char stop, char*& o) {
#if defined(__SSE2__)
    const __m128i stops = _mm_set1_epi8(stop);
    while (end - p >= 16) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(o), v);
        const unsigned mask = unsigned(_mm_movemask_epi8(_mm_cmpeq_epi8(v, stops)));
        if (mask != 0) {
            const int plain = std::countr_zero(mask);
            o += plain;
            return p + plain;
        }
        o += 16;
        p += 16;
    }
#endif
    while (p != end && *p != stop) *o++ = *p++;
    return p;
}

// Eight bytes as one little-endian word: nonzero in each byte that is not an
// ASCII digit, whose high half is not 3 or whose low half carries when 6 is
// added; zero in each digit. No byte disturbs its neighbours.
inline quint64 nonDigitBytes(quint64 x) {
    return ((x & 0xF0F0F0F0F0F0F0F0ULL) ^ 0x3030303030303030ULL) |
           (((x & 0x0F0F0F0F0F0F0F0FULL) + 0x0606060606060606ULL) & 0xF0F0F0F0F0F0F0F0ULL);
}

inline QByteArrayView bytes(QUtf8StringView s) {
    return {reinterpret_cast<const char*>(s.data()), s.size()};
}
inline QUtf8StringView view(const char* data, qsizetype size) {
    return QUtf8StringView(data, size);
}

}  // namespace varnel::utf8
