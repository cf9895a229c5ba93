#include "cli/terminal_text.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "logs/utf8.h"

namespace varnel::cli {

namespace {

// A byte that may start something to change: a C0 control, DEL, or the lead
// byte of a C1 control.
bool mayChange(uchar c) {
    return c < 0x20 || c == 0x7F || c == 0xC2;
}

char* putPicture(char* o, char16_t picture) {
    // U+2400 to U+2421: three bytes, E2 90 xx.
    *o++ = char(0xE2);
    *o++ = char(0x90);
    *o++ = char(0x80 | (picture & 0x3F));
    return o;
}

}  // namespace

namespace {

// Writes p .. end at o made safe, up to the end or, with kStopAtLineFeed, up
// to the first line feed; gives where it stopped. One caller for each kind,
// into which it is compiled.
template <bool kStopAtLineFeed>
const uchar* putSafe(char*& o, const uchar* p, const uchar* end, Tabs tabs) {
    while (p != end) {
        const uchar* run = p;  // copied as it is from here on
#if defined(__SSE2__)
        // Sixteen bytes a step, copied whole and kept up to the first one to change.
        const __m128i below = _mm_set1_epi8(0x1F);
        const __m128i del = _mm_set1_epi8(0x7F);
        const __m128i c1 = _mm_set1_epi8(char(0xC2));
        copyPlain(p, end, run, o, [&](__m128i v) {
            return unsigned(_mm_movemask_epi8(
                _mm_or_si128(_mm_cmpeq_epi8(_mm_max_epu8(v, below), below),
                             _mm_or_si128(_mm_cmpeq_epi8(v, del), _mm_cmpeq_epi8(v, c1)))));
        });
#endif
        while (end - p >= 8 && !anyOf8<0x7F, 0xC2>(reinterpret_cast<const char*>(p), 0x20)) {
            std::memcpy(o, p, 8);
            o += 8;
            p += 8;
        }
        // The last eight bytes at once when they belong to this run: what they
        // share with the bytes copied already is copied again, the same.
        if (p != end && end - p < 8 && end - run >= 8 &&
            !anyOf8<0x7F, 0xC2>(reinterpret_cast<const char*>(end - 8), 0x20)) {
            std::memcpy(o - (p - (end - 8)), end - 8, 8);
            o += end - p;
            p = end;
        }
        // Four to seven bytes left, as a short field is: two words that
        // overlap, rather than a byte at a time.
        if (end - p >= 4 && end - p < 8 &&
            !anyOf4<0x7F, 0xC2>(reinterpret_cast<const char*>(p), 0x20) &&
            !anyOf4<0x7F, 0xC2>(reinterpret_cast<const char*>(end - 4), 0x20)) {
            std::memcpy(o, p, 4);
            std::memcpy(o + (end - p) - 4, end - 4, 4);
            o += end - p;
            p = end;
        }
        while (p != end && !mayChange(*p)) *o++ = char(*p++);
        if (p == end) break;
        const uchar c = *p;
        if (c == '\t' && tabs == Tabs::keep) {
            *o++ = '\t';
            ++p;
        } else if (c == '\n' && kStopAtLineFeed) {
            return p;
        } else if (c < 0x20) {
            o = putPicture(o, char16_t(0x2400 + c));
            ++p;
        } else if (c == 0x7F) {
            o = putPicture(o, 0x2421);
            ++p;
        } else if (end - p >= 2 && p[1] >= 0x80 && p[1] <= 0x9F) {
            o = putPicture(o, 0x241B);
            *o++ = char(p[1] - 0x40);
            p += 2;
        } else {
            *o++ = char(c);
            ++p;
        }
    }
    return p;
}

}  // namespace

char* putTerminalSafe(char* o, QByteArrayView utf8, Tabs tabs) {
    const auto* p = reinterpret_cast<const uchar*>(utf8.data());
    putSafe<false>(o, p, p + utf8.size(), tabs);
    return o;
}

void appendTerminalSafe(TextBuffer& out, QByteArrayView utf8, Tabs tabs, qsizetype lineIndent) {
    char* o = out.room(kMostSafeBytesPerByte * utf8.size() + 16);
    if (lineIndent < 0) {
        out.commit(putTerminalSafe(o, utf8, tabs));
        return;
    }
    const auto* p = reinterpret_cast<const uchar*>(utf8.data());
    const uchar* end = p + utf8.size();
    while ((p = putSafe<true>(o, p, end, tabs)) != end) {
        // A line feed kept, and the next line indented under the first.
        *o++ = '\n';
        out.commit(o);
        out.appendSpaces(lineIndent);
        ++p;
        o = out.room(kMostSafeBytesPerByte * (end - p) + 16);
    }
    out.commit(o);
}

qsizetype terminalWidthSlow(QByteArrayView utf8) {
    qsizetype width = 0;
    for (qsizetype i = 0; i < utf8.size(); ++i) {
        const uchar c = uchar(utf8[i]);
        width += (c & 0xC0) != 0x80;
        // A C1 control is shown as two characters.
        if (c == 0xC2 && i + 1 < utf8.size() && uchar(utf8[i + 1]) <= 0x9F) ++width;
    }
    return width;
}

QString terminalSafe(QStringView text, Tabs tabs) {
    TextBuffer out;
    appendTerminalSafe(out, utf8::encode(text), tabs);
    return QString::fromUtf8(out.data(), out.size());
}

}  // namespace varnel::cli
