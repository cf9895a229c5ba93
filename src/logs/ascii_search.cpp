#include "logs/ascii_search.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#if defined(__SSE2__)
#include <immintrin.h>
#endif

#include "platform/processor.h"

namespace varnel {

AsciiFinder::Path AsciiFinder::fastest() {
#if defined(__SSE2__)
    return processor::hasAvx2() ? Path::avx2 : Path::sse2;
#else
    return Path::portable;
#endif
}

qsizetype AsciiFinder::candidates(const char* h, qsizetype last, bool& found) const {
    switch (path_) {
        case Path::avx2:
            return candidatesAvx2(h, last, found);
        case Path::sse2:
            return candidatesSse2(h, 0, last, found);
        case Path::portable:
            break;
    }
    return candidatesPortable(h, last, found);
}

// Sixteen positions a step, in code that has no branch per position: the
// compiler makes vector code of the first loop for whatever it targets.
qsizetype AsciiFinder::candidatesPortable(const char* h, qsizetype last, bool& found) const {
    constexpr qsizetype kStep = 16;
    const auto first = std::uint8_t(needle_[0] | 0x20);
    const auto final = std::uint8_t(needle_.back() | 0x20);
    const qsizetype finalAt = needle_.size() - 1;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(h);
    // The first match among the positions at and after `from` of the step
    // that starts at `at`, or -1.
    const auto step = [&](qsizetype at, qsizetype from) -> qsizetype {
        std::uint8_t hit[kStep];
        for (qsizetype k = 0; k < kStep; ++k)
            hit[k] = std::uint8_t((std::uint8_t(bytes[at + k] | 0x20) == first) &
                                  (std::uint8_t(bytes[at + k + finalAt] | 0x20) == final));
        std::uint64_t words[kStep / 8];
        std::memcpy(words, hit, sizeof hit);
        if ((words[0] | words[1]) == 0) return -1;
        for (qsizetype k = from - at; k < kStep; ++k)
            if (hit[k] != 0 && matchesAt(h + at + k)) return at + k;
        return -1;
    };
    qsizetype i = 0;
    // Reads h[i .. i + 15 + finalAt]; i + 15 <= last keeps that inside the text.
    for (; i + kStep - 1 <= last; i += kStep) {
        if (const qsizetype match = step(i, i); match >= 0) {
            found = true;
            return match;
        }
    }
    // Fewer than a step's positions are left: one more step that ends at the
    // last position, looking again at some that the mask then leaves out.
    if (i <= last) {
        if (const qsizetype match = step(last - (kStep - 1), i); match >= 0) {
            found = true;
            return match;
        }
    }
    return last + 1;
}

#if defined(__SSE2__)
namespace {

// Where in the 32 positions from `at` the needle's first and last bytes, with
// bit 0x20 set, are `first` and `final`, `finalAt` bytes apart; reads
// at[0 .. 31 + finalAt].
__attribute__((target("avx2"))) inline unsigned endsAt(const char* at, __m256i first, __m256i final,
                                                       qsizetype finalAt) {
    const __m256i bit = _mm256_set1_epi8(0x20);
    const __m256i a =
        _mm256_or_si256(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(at)), bit);
    const __m256i b =
        _mm256_or_si256(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(at + finalAt)), bit);
    return unsigned(_mm256_movemask_epi8(
        _mm256_and_si256(_mm256_cmpeq_epi8(a, first), _mm256_cmpeq_epi8(b, final))));
}

}  // namespace

// Sixty-four positions a step, as the search through a whole log mostly finds
// nothing. Texts too short for one such step take the sixteen-byte steps.
__attribute__((target("avx2"))) qsizetype AsciiFinder::candidatesAvx2(const char* h, qsizetype last,
                                                                      bool& found) const {
    if (last < 31) return candidatesSse2(h, 0, last, found);
    const __m256i first = _mm256_set1_epi8(char(needle_[0] | 0x20));
    const __m256i final = _mm256_set1_epi8(char(needle_.back() | 0x20));
    const qsizetype finalAt = needle_.size() - 1;
    qsizetype i = 0;
    for (; i + 63 <= last; i += 64) {
        const unsigned low = endsAt(h + i, first, final, finalAt);
        const unsigned high = endsAt(h + i + 32, first, final, finalAt);
        if ((low | high) == 0) continue;
        if (const int k = firstAmong(h + i, low); k >= 0) {
            found = true;
            return i + k;
        }
        if (const int k = firstAmong(h + i + 32, high); k >= 0) {
            found = true;
            return i + 32 + k;
        }
    }
    if (i + 31 <= last) {
        if (const int k = firstAmong(h + i, endsAt(h + i, first, final, finalAt)); k >= 0) {
            found = true;
            return i + k;
        }
        i += 32;
    }
    // As with sixteen-byte steps: one more that ends at the last position.
    if (i <= last) {
        const qsizetype at = last - 31;
        if (const int k =
                firstAmong(h + at, endsAt(h + at, first, final, finalAt) & (~0u << (i - at)));
            k >= 0) {
            found = true;
            return at + k;
        }
    }
    return last + 1;
}
#else
qsizetype AsciiFinder::candidatesAvx2(const char* h, qsizetype last, bool& found) const {
    return candidatesPortable(h, last, found);
}
#endif

qsizetype AsciiFinder::candidatesSse2(const char* h, qsizetype from, qsizetype last,
                                      bool& found) const {
#if defined(__SSE2__)
    const __m128i bit = _mm_set1_epi8(0x20);
    const __m128i first = _mm_set1_epi8(char(needle_[0] | 0x20));
    const __m128i final = _mm_set1_epi8(char(needle_.back() | 0x20));
    const qsizetype finalAt = needle_.size() - 1;
    // Reads h[at .. at + 15 + finalAt]; at + 15 <= last keeps that inside the text.
    const auto hits = [&](qsizetype at) {
        const __m128i a =
            _mm_or_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(h + at)), bit);
        const __m128i b =
            _mm_or_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(h + at + finalAt)), bit);
        return unsigned(
            _mm_movemask_epi8(_mm_and_si128(_mm_cmpeq_epi8(a, first), _mm_cmpeq_epi8(b, final))));
    };
    qsizetype i = from;
    for (; i + 15 <= last; i += 16) {
        if (const int k = firstAmong(h + i, hits(i)); k >= 0) {
            found = true;
            return i + k;
        }
    }
    // Fewer than sixteen positions are left: one more step that ends at the
    // last position, looking again at some that the mask then leaves out.
    if (i <= last) {
        const qsizetype at = last - 15;
        if (const int k = firstAmong(h + at, hits(at) & (~0u << (i - at))); k >= 0) {
            found = true;
            return at + k;
        }
    }
    return last + 1;
#else
    (void)from;
    return candidatesPortable(h, last, found);
#endif
}

void SearchAhead::lookFurther(qsizetype lastStart) {
    const qsizetype stop = std::min(end_, std::max(lastStart + m_, seen_ + stride_));
    stride_ = std::min(2 * stride_ + 64, kLongestStride);
    const qsizetype at = finder_.indexIn(QByteArrayView(text_ + seen_, stop - seen_));
    if (at >= 0) {
        hit_ = seen_ + at;
        seen_ = hit_ + 1;
    } else {
        // A start after this one would end past the stop.
        seen_ = stop - m_ + 1;
    }
}

}  // namespace varnel
