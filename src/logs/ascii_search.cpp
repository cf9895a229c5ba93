#include "logs/ascii_search.h"

#include <cstdint>
#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace varnel {

AsciiFinder::Path AsciiFinder::fastest() {
#if defined(__SSE2__)
    return Path::sse2;
#else
    return Path::portable;
#endif
}

// Sixteen positions a step, in code that has no branch per position: the
// compiler makes vector code of the first loop for whatever it targets.
qsizetype AsciiFinder::candidatesPortable(const char16_t* h, qsizetype last, bool& found) const {
    constexpr qsizetype kStep = 16;
    const char16_t first = needle_[0].unicode() | 0x20;
    const char16_t second = needle_[1].unicode() | 0x20;
    qsizetype i = 0;
    // Reads h[i .. i + 16]; i + 15 <= last keeps that inside the text.
    for (; i + kStep - 1 <= last; i += kStep) {
        // Lanes as wide as the characters, so that no narrowing stands in the
        // compiler's way.
        std::uint16_t hit[kStep];
        for (qsizetype k = 0; k < kStep; ++k)
            hit[k] = std::uint16_t((char16_t(h[i + k] | 0x20) == first) &
                                   (char16_t(h[i + k + 1] | 0x20) == second));
        std::uint64_t words[kStep / 4];
        std::memcpy(words, hit, sizeof hit);
        if ((words[0] | words[1] | words[2] | words[3]) == 0) continue;
        for (qsizetype k = 0; k < kStep; ++k) {
            if (hit[k] != 0 && matchesAt(h + i + k)) {
                found = true;
                return i;
            }
        }
    }
    return i;
}

qsizetype AsciiFinder::candidatesSse2(const char16_t* h, qsizetype last, bool& found) const {
#if defined(__SSE2__)
    const __m128i bit = _mm_set1_epi16(0x20);
    const __m128i first = _mm_set1_epi16(short(needle_[0].unicode() | 0x20));
    const __m128i second = _mm_set1_epi16(short(needle_[1].unicode() | 0x20));
    qsizetype i = 0;
    // Reads h[i .. i + 8]; i + 7 <= last keeps that inside the text.
    for (; i + 7 <= last; i += 8) {
        const __m128i a =
            _mm_or_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(h + i)), bit);
        const __m128i b =
            _mm_or_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(h + i + 1)), bit);
        unsigned mask = unsigned(_mm_movemask_epi8(
            _mm_and_si128(_mm_cmpeq_epi16(a, first), _mm_cmpeq_epi16(b, second))));
        while (mask != 0) {
            const int lane = __builtin_ctz(mask) / 2;
            if (matchesAt(h + i + lane)) {
                found = true;
                return i;
            }
            mask &= ~(3u << (2 * lane));
        }
    }
    return i;
#else
    return candidatesPortable(h, last, found);
#endif
}

}  // namespace varnel
