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
    // The positions at and after `from` of the step that starts at `at`.
    const auto step = [&](qsizetype at, qsizetype from) {
        std::uint8_t hit[kStep];
        for (qsizetype k = 0; k < kStep; ++k)
            hit[k] = std::uint8_t((std::uint8_t(bytes[at + k] | 0x20) == first) &
                                  (std::uint8_t(bytes[at + k + 1] | 0x20) == second));
        std::uint64_t words[kStep / 8];
        std::memcpy(words, hit, sizeof hit);
        if ((words[0] | words[1]) == 0) return false;
        for (qsizetype k = from - at; k < kStep; ++k)
            if (hit[k] != 0 && matchesAt(h + at + k)) return true;
        return false;
    };
    qsizetype i = 0;
    // Reads h[i .. i + 16]; i + 15 <= last keeps that inside the text.
    for (; i + kStep - 1 <= last; i += kStep) {
        if (step(i, i)) {
            found = true;
            return i;
        }
    }
    // Fewer than a step's positions are left: one more step that ends at the
    // last position, looking again at some that the mask then leaves out.
    if (i <= last) {
        const qsizetype at = last - (kStep - 1);
        if (step(at, i)) {
            found = true;
            return at;
        }
    }
    return last + 1;
}

qsizetype AsciiFinder::candidatesSse2(const char* h, qsizetype last, bool& found) const {
#if defined(__SSE2__)
    const __m128i bit = _mm_set1_epi8(0x20);
    const __m128i first = _mm_set1_epi8(char(needle_[0] | 0x20));
    const __m128i second = _mm_set1_epi8(char(needle_[1] | 0x20));
    // Reads h[at .. at + 16]; at + 15 <= last keeps that inside the text.
    const auto candidates = [&](qsizetype at) {
        const __m128i a =
            _mm_or_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(h + at)), bit);
        const __m128i b =
            _mm_or_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(h + at + 1)), bit);
        return unsigned(
            _mm_movemask_epi8(_mm_and_si128(_mm_cmpeq_epi8(a, first), _mm_cmpeq_epi8(b, second))));
    };
    const auto matchAmong = [&](qsizetype at, unsigned mask) {
        for (; mask != 0; mask &= mask - 1)
            if (matchesAt(h + at + std::countr_zero(mask))) return true;
        return false;
    };
    qsizetype i = 0;
    for (; i + 15 <= last; i += 16) {
        if (matchAmong(i, candidates(i))) {
            found = true;
            return i;
        }
    }
    // Fewer than sixteen positions are left: one more step that ends at the
    // last position, looking again at some that the mask then leaves out.
    if (i <= last) {
        const qsizetype at = last - 15;
        if (matchAmong(at, candidates(at) & (~0u << (i - at)))) {
            found = true;
            return at;
        }
    }
    return last + 1;
#else
    return candidatesPortable(h, last, found);
#endif
}

}  // namespace varnel
