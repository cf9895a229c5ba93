#include "logs/ascii_search.h"

#include <bit>
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
qsizetype AsciiFinder::candidatesPortable(const char* h, qsizetype last, bool& found) const {
    constexpr qsizetype kStep = 16;
    const auto first = std::uint8_t(needle_[0] | 0x20);
    const auto second = std::uint8_t(needle_[1] | 0x20);
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(h);
    qsizetype i = 0;
    // Reads h[i .. i + 16]; i + 15 <= last keeps that inside the text.
    for (; i + kStep - 1 <= last; i += kStep) {
        std::uint8_t hit[kStep];
        for (qsizetype k = 0; k < kStep; ++k)
            hit[k] = std::uint8_t((std::uint8_t(bytes[i + k] | 0x20) == first) &
                                  (std::uint8_t(bytes[i + k + 1] | 0x20) == second));
        std::uint64_t words[kStep / 8];
        std::memcpy(words, hit, sizeof hit);
        if ((words[0] | words[1]) == 0) continue;
        for (qsizetype k = 0; k < kStep; ++k) {
            if (hit[k] != 0 && matchesAt(h + i + k)) {
                found = true;
                return i;
            }
        }
    }
    return i;
}

qsizetype AsciiFinder::candidatesSse2(const char* h, qsizetype last, bool& found) const {
#if defined(__SSE2__)
    const __m128i bit = _mm_set1_epi8(0x20);
    const __m128i first = _mm_set1_epi8(char(needle_[0] | 0x20));
    const __m128i second = _mm_set1_epi8(char(needle_[1] | 0x20));
    qsizetype i = 0;
    // Reads h[i .. i + 16]; i + 15 <= last keeps that inside the text.
    for (; i + 15 <= last; i += 16) {
        const __m128i a =
            _mm_or_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(h + i)), bit);
        const __m128i b =
            _mm_or_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(h + i + 1)), bit);
        unsigned mask = unsigned(
            _mm_movemask_epi8(_mm_and_si128(_mm_cmpeq_epi8(a, first), _mm_cmpeq_epi8(b, second))));
        while (mask != 0) {
            if (matchesAt(h + i + std::countr_zero(mask))) {
                found = true;
                return i;
            }
            mask &= mask - 1;
        }
    }
    return i;
#else
    return candidatesPortable(h, last, found);
#endif
}

}  // namespace varnel
