#include "logs/utf8.h"

#include <QStringEncoder>
#include <bit>
#include <cstdint>
#include <cstring>
#if defined(__SSE2__)
#include <immintrin.h>
#endif

#include "platform/processor.h"

namespace varnel::utf8 {

namespace {

constexpr char kEsc = 0x1B;

LineScan scanScalar(const char* text, qsizetype i, qsizetype to, bool ascii, bool escape) {
    for (; i < to; ++i) {
        const char c = text[i];
        if (c == '\n') break;
        ascii = ascii && uchar(c) < 0x80;
        escape = escape || c == kEsc;
    }
    return {i, ascii, escape};
}

// Eight bytes a step. (x - 0x01..) & ~x & 0x80.. marks the first zero byte of
// x exactly; marks above it can be false, which never matters here: only the
// lowest line feed is used, and an ESC is only asked about below it.
LineScan scanPortable(const char* text, qsizetype from, qsizetype to) {
    if constexpr (std::endian::native != std::endian::little) {
        return scanScalar(text, from, to, true, false);
    } else {
        constexpr std::uint64_t ones = 0x0101010101010101ULL;
        constexpr std::uint64_t highs = 0x8080808080808080ULL;
        std::uint64_t high = 0;
        std::uint64_t escapes = 0;
        qsizetype i = from;
        for (; i + 8 <= to; i += 8) {
            std::uint64_t v;
            std::memcpy(&v, text + i, 8);
            const std::uint64_t lfx = v ^ (ones * '\n');
            const std::uint64_t escx = v ^ (ones * std::uint64_t(kEsc));
            const std::uint64_t lf = (lfx - ones) & ~lfx & highs;
            const std::uint64_t esc = (escx - ones) & ~escx & highs;
            if (lf != 0) {
                const int at = std::countr_zero(lf) / 8;
                const std::uint64_t below = at == 0 ? 0 : ~std::uint64_t(0) >> (64 - 8 * at);
                high |= v & highs & below;
                escapes |= esc & below;
                return {i + at, high == 0, escapes != 0};
            }
            high |= v & highs;
            escapes |= esc;
        }
        return scanScalar(text, i, to, high == 0, escapes != 0);
    }
}

#if defined(__SSE2__)
// The line's end when its line feed is among the 32 bytes from `i`: `lf`,
// `high` and `esc` hold a bit for each of them that is a line feed, above
// ASCII or ESC, and the bytes before `i` held such bytes when `highBefore`
// and `escBefore` say so.
inline LineScan endAmong(qsizetype i, unsigned lf, unsigned high, unsigned esc, bool highBefore,
                         bool escBefore) {
    const unsigned below = (lf & (0u - lf)) - 1;
    return {i + std::countr_zero(lf), !highBefore && (high & below) == 0,
            escBefore || (esc & below) != 0};
}

LineScan scanSse2(const char* text, qsizetype from, qsizetype to) {
    const __m128i lineFeed = _mm_set1_epi8('\n');
    const __m128i escape = _mm_set1_epi8(kEsc);
    // Blocks before the one with the line feed only add to these; their
    // bytes are looked at once the line's end is known.
    __m128i highs = _mm_setzero_si128();
    __m128i escapes = _mm_setzero_si128();
    qsizetype i = from;
    for (; i + 32 <= to; i += 32) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + i));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + i + 16));
        const __m128i ea = _mm_cmpeq_epi8(a, escape);
        const __m128i eb = _mm_cmpeq_epi8(b, escape);
        const unsigned lf = unsigned(_mm_movemask_epi8(_mm_cmpeq_epi8(a, lineFeed))) |
                            unsigned(_mm_movemask_epi8(_mm_cmpeq_epi8(b, lineFeed))) << 16;
        if (lf != 0)
            return endAmong(i, lf,
                            unsigned(_mm_movemask_epi8(a)) | unsigned(_mm_movemask_epi8(b)) << 16,
                            unsigned(_mm_movemask_epi8(ea)) | unsigned(_mm_movemask_epi8(eb)) << 16,
                            _mm_movemask_epi8(highs) != 0, _mm_movemask_epi8(escapes) != 0);
        highs = _mm_or_si128(highs, _mm_or_si128(a, b));
        escapes = _mm_or_si128(escapes, _mm_or_si128(ea, eb));
    }
    return scanScalar(text, i, to, _mm_movemask_epi8(highs) == 0, _mm_movemask_epi8(escapes) != 0);
}

__attribute__((target("avx2"))) inline __m256i lineFeedsAt(const char* at) {
    return _mm256_cmpeq_epi8(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(at)),
                             _mm256_set1_epi8('\n'));
}

// Line feeds in the 128-byte steps of p[i .. n), counted as countLineFeeds
// counts them sixteen bytes at a time; i ends where the steps did.
__attribute__((target("avx2"))) qsizetype countLineFeedsAvx2(const char* p, qsizetype n,
                                                             qsizetype& i) {
    qsizetype count = 0;
    while (i + 128 <= n) {
        __m256i counts = _mm256_setzero_si256();
        const qsizetype stop = qMin(n - 127, i + qsizetype(63) * 128);
        for (; i < stop; i += 128) {
            const __m256i pair = _mm256_add_epi8(lineFeedsAt(p + i), lineFeedsAt(p + i + 32));
            counts = _mm256_sub_epi8(
                counts, _mm256_add_epi8(pair, _mm256_add_epi8(lineFeedsAt(p + i + 64),
                                                              lineFeedsAt(p + i + 96))));
        }
        const __m256i sums = _mm256_sad_epu8(counts, _mm256_setzero_si256());
        count += _mm256_extract_epi64(sums, 0) + _mm256_extract_epi64(sums, 1) +
                 _mm256_extract_epi64(sums, 2) + _mm256_extract_epi64(sums, 3);
    }
    return count;
}

// As scanSse2, thirty-two bytes a compare.
__attribute__((target("avx2"))) LineScan scanAvx2(const char* text, qsizetype from, qsizetype to) {
    const __m256i lineFeed = _mm256_set1_epi8('\n');
    const __m256i escape = _mm256_set1_epi8(kEsc);
    __m256i highs = _mm256_setzero_si256();
    __m256i escapes = _mm256_setzero_si256();
    qsizetype i = from;
    for (; i + 32 <= to; i += 32) {
        const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(text + i));
        const __m256i e = _mm256_cmpeq_epi8(a, escape);
        const auto lf = unsigned(_mm256_movemask_epi8(_mm256_cmpeq_epi8(a, lineFeed)));
        if (lf != 0)
            return endAmong(i, lf, unsigned(_mm256_movemask_epi8(a)),
                            unsigned(_mm256_movemask_epi8(e)), _mm256_movemask_epi8(highs) != 0,
                            _mm256_movemask_epi8(escapes) != 0);
        highs = _mm256_or_si256(highs, a);
        escapes = _mm256_or_si256(escapes, e);
    }
    return scanScalar(text, i, to, _mm256_movemask_epi8(highs) == 0,
                      _mm256_movemask_epi8(escapes) != 0);
}
#endif

bool isAsciiSpace(uchar c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool isBlankPoint(char32_t c) {
    if (c < 0x80) return c == ' ' || c == '\t';
    return QChar::category(c) == QChar::Separator_Space;
}

template <typename Test>
QUtf8StringView trimBy(QUtf8StringView s, Test test) {
    const char* begin = reinterpret_cast<const char*>(s.data());
    const char* end = begin + s.size();
    while (begin < end) {
        int length = 1;
        const char32_t c =
            uchar(*begin) < 0x80 ? char32_t(uchar(*begin)) : decodeAt(begin, end, length);
        if (!test(c)) break;
        begin += length;
    }
    while (end > begin) {
        const char* start = uchar(end[-1]) < 0x80 ? end - 1 : previousStart(begin, end);
        int length = 1;
        if (!test(decodeAt(start, end, length))) break;
        end = start;
    }
    return view(begin, end - begin);
}

}  // namespace

ScanPath fastestScan() {
#if defined(__SSE2__)
    return processor::hasAvx2() ? ScanPath::avx2 : ScanPath::sse2;
#else
    return ScanPath::portable;
#endif
}

LineScan scanLine(const char* text, qsizetype from, qsizetype to, ScanPath path) {
#if defined(__SSE2__)
    if (path == ScanPath::avx2) return scanAvx2(text, from, to);
    if (path == ScanPath::sse2) return scanSse2(text, from, to);
#endif
    (void)path;
    return scanPortable(text, from, to);
}

qsizetype countLineFeeds(QByteArrayView bytes, ScanPath path) {
    const char* p = bytes.data();
    const qsizetype n = bytes.size();
    qsizetype count = 0;
    qsizetype i = 0;
#if defined(__SSE2__)
    if (path == ScanPath::avx2) count = countLineFeedsAvx2(p, n, i);
    const __m128i lineFeed = _mm_set1_epi8('\n');
    const auto hits = [&](qsizetype at) {
        return _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + at)), lineFeed);
    };
    while (path != ScanPath::portable && i + 64 <= n) {
        // Byte counters that gain at most four a step: 63 steps, then summed.
        __m128i counts = _mm_setzero_si128();
        const qsizetype stop = qMin(n - 63, i + qsizetype(63) * 64);
        for (; i < stop; i += 64) {
            const __m128i pair = _mm_add_epi8(hits(i), hits(i + 16));
            counts =
                _mm_sub_epi8(counts, _mm_add_epi8(pair, _mm_add_epi8(hits(i + 32), hits(i + 48))));
        }
        const __m128i sums = _mm_sad_epu8(counts, _mm_setzero_si128());
        count += _mm_cvtsi128_si32(sums) + _mm_cvtsi128_si32(_mm_srli_si128(sums, 8));
    }
#else
    (void)path;
#endif
    for (; i < n; ++i) count += p[i] == '\n';
    return count;
}

namespace {

// The two bytes after each `lead` byte equal `second` and `third`.
bool holds(QByteArrayView bytes, char lead, char second, char third = 0) {
    const char* p = bytes.data();
    const char* end = p + bytes.size();
    while (const void* hit = std::memchr(p, lead, size_t(end - p))) {
        p = static_cast<const char*>(hit) + 1;
        if (end - p >= 1 && p[0] == second && (third == 0 || (end - p >= 2 && p[1] == third)))
            return true;
    }
    return false;
}

}  // namespace

bool isClean(QByteArrayView bytes) {
    return bytes.isValidUtf8() && !holds(bytes, '\xEF', '\xBB', '\xBF');
}

QString decodeKeepingMarks(QByteArrayView bytes) {
    // fromUtf8() drops one leading mark (a decoder object would keep it, but
    // would also hold back an unfinished sequence at the end instead of
    // reading it as U+FFFD).
    QString text = QString::fromUtf8(bytes);
    if (bytes.startsWith("\xEF\xBB\xBF")) text.prepend(QChar::ByteOrderMark);
    return text;
}

QString decode(QByteArrayView bytes) {
    QString text = QString::fromUtf8(bytes);
    if (text.contains(QChar::ByteOrderMark)) text.remove(QChar::ByteOrderMark);
    return text;
}

QString toString(QUtf8StringView text) {
    QString marks;
    while (bytes(text).startsWith("\xEF\xBB\xBF")) {
        marks += QChar::ByteOrderMark;
        text = text.sliced(3);
    }
    return marks.isEmpty() ? text.toString() : marks + text.toString();
}

QByteArray cleaned(QByteArrayView bytes) {
    return encode(decode(bytes));
}

QByteArray encode(QStringView text) {
    QByteArray out;
    appendEncoded(out, text);
    return out;
}

void appendEncoded(QByteArray& out, QStringView text) {
    if (QtPrivate::isAscii(text)) {
        const qsizetype at = out.size();
        out.resize(at + text.size());
        char* p = out.data() + at;
        for (const QChar c : text) *p++ = char(c.unicode());
        return;
    }
    QStringEncoder encoder(QStringConverter::Utf8);
    out.append(encoder.encode(text));
}

char32_t decodeAt(const char* p, const char* end, int& length) {
    const uchar c = uchar(*p);
    const int need = c < 0x80 ? 1 : c < 0xE0 ? 2 : c < 0xF0 ? 3 : 4;
    if (end - p < need) {
        length = 1;
        return QChar::ReplacementCharacter;
    }
    length = need;
    switch (need) {
        case 1:
            return c;
        case 2:
            return char32_t(c & 0x1F) << 6 | char32_t(uchar(p[1]) & 0x3F);
        case 3:
            return char32_t(c & 0x0F) << 12 | char32_t(uchar(p[1]) & 0x3F) << 6 |
                   char32_t(uchar(p[2]) & 0x3F);
        default:
            return char32_t(c & 0x07) << 18 | char32_t(uchar(p[1]) & 0x3F) << 12 |
                   char32_t(uchar(p[2]) & 0x3F) << 6 | char32_t(uchar(p[3]) & 0x3F);
    }
}

const char* previousStart(const char* begin, const char* end) {
    const char* p = end - 1;
    while (p > begin && end - p < 4 && (uchar(*p) & 0xC0) == 0x80) --p;
    return p;
}

qsizetype codePoints(QUtf8StringView s, qsizetype limit) {
    qsizetype count = 0;
    for (qsizetype i = 0; i < s.size() && count <= limit; ++i)
        count += (uchar(s.data()[i]) & 0xC0) != 0x80;
    return count;
}

QUtf8StringView firstCodePoints(QUtf8StringView s, qsizetype n) {
    const char* p = reinterpret_cast<const char*>(s.data());
    qsizetype i = 0;
    qsizetype count = 0;  // code points that start before i
    // Eight bytes a step while a step cannot reach the start of code point
    // n + 1: a continuation byte has bit 7 set and bit 6 clear.
    if constexpr (std::endian::native == std::endian::little) {
        for (; i + 8 <= s.size() && count + 8 <= n; i += 8) {
            std::uint64_t x;
            std::memcpy(&x, p + i, 8);
            // One bit a byte, summed by a multiply into the top byte: a
            // popcount without the instruction is a call into libgcc.
            const std::uint64_t continuations = (x & ~(x << 1) & 0x8080808080808080ULL) >> 7;
            count += 8 - qsizetype((continuations * 0x0101010101010101ULL) >> 56);
        }
    }
    for (; i < s.size(); ++i) {
        if ((uchar(p[i]) & 0xC0) != 0x80 && count++ == n) break;
    }
    return s.first(i);
}

qsizetype bytesForUnits(QUtf8StringView s, qsizetype units) {
    qsizetype i = 0;
    qsizetype seen = 0;
    while (i < s.size() && seen < units) {
        const uchar c = uchar(s.data()[i]);
        const int length = c < 0x80 ? 1 : c < 0xE0 ? 2 : c < 0xF0 ? 3 : 4;
        seen += length == 4 ? 2 : 1;
        i += length;
    }
    return qMin(i, s.size());
}

bool lowersToAscii(QUtf8StringView s) {
    if (isAscii(s)) return false;
    const QByteArrayView b = bytes(s);
    return holds(b, '\xC4', '\xB0') || holds(b, '\xE2', '\x84', '\xAA');
}

QUtf8StringView trimmedSlow(QUtf8StringView s) {
    // ASCII white space first, then whatever else is left at either end.
    const char* begin = reinterpret_cast<const char*>(s.data());
    const char* end = begin + s.size();
    while (begin < end && isAsciiSpace(uchar(*begin))) ++begin;
    while (end > begin && isAsciiSpace(uchar(end[-1]))) --end;
    if (begin == end || (uchar(*begin) < 0x80 && uchar(end[-1]) < 0x80))
        return view(begin, end - begin);
    return trimBy(view(begin, end - begin),
                  [](char32_t c) { return c < 0x80 ? isAsciiSpace(uchar(c)) : QChar::isSpace(c); });
}

QUtf8StringView trimBlanksSlow(QUtf8StringView s) {
    // Spaces and tabs first, then whatever else is left at either end.
    const char* begin = reinterpret_cast<const char*>(s.data());
    const char* end = begin + s.size();
    while (begin < end && (*begin == ' ' || *begin == '\t')) ++begin;
    while (end > begin && (end[-1] == ' ' || end[-1] == '\t')) --end;
    if (begin == end || (uchar(*begin) < 0x80 && uchar(end[-1]) < 0x80))
        return view(begin, end - begin);
    return trimBy(view(begin, end - begin), isBlankPoint);
}

bool isBlankOnly(QUtf8StringView s) {
    return trimBlanks(s).isEmpty();
}

bool startsWithSpace(QUtf8StringView s) {
    if (s.isEmpty()) return false;
    const char* p = reinterpret_cast<const char*>(s.data());
    if (uchar(*p) < 0x80) return isAsciiSpace(uchar(*p));
    int length = 1;
    return QChar::isSpace(decodeAt(p, p + s.size(), length));
}

}  // namespace varnel::utf8
