#pragma once

#include <QtGlobal>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#include <array>
#include <bit>
#include <cstring>
#include <memory>
#include <string_view>

namespace varnel::cli {

// Output gathered in one buffer that is reused: writers take room for the
// most they may write, write through a pointer and commit where they ended,
// which spares a size check for every byte.
class TextBuffer {
public:
    // Room for at least `more` bytes after the end.
    char* room(qsizetype more) {
        if (capacity_ - size_ < more) grow(more);
        return data_.get() + size_;
    }
    // The bytes up to `end` (inside the room) are now written.
    void commit(const char* end) { size_ = end - data_.get(); }

    void append(const char* bytes, qsizetype count) {
        std::memcpy(room(count), bytes, size_t(count));
        size_ += count;
    }
    void append(std::string_view text) { append(text.data(), qsizetype(text.size())); }
    void append(char c) {
        *room(1) = c;
        ++size_;
    }
    void appendSpaces(qsizetype count) {
        if (count <= 0) return;
        size_ = putSpaces(room(count + 16), count) - data_.get();
    }

    // Writes `count` spaces at `at`, where there is room for sixteen more; where they end.
    static char* putSpaces(char* at, qsizetype count) {
        if (count <= 0) return at;
        // Columns are narrow: sixteen at a time from a constant beat a call.
        static constexpr std::array<char, 16> spaces = [] {
            std::array<char, 16> all{};
            all.fill(' ');
            return all;
        }();
        for (qsizetype done = 0; done < count; done += 16)
            std::memcpy(at + done, spaces.data(), 16);
        return at + count;
    }

    const char* data() const { return data_.get(); }
    qsizetype size() const { return size_; }
    bool isEmpty() const { return size_ == 0; }
    char back() const { return data_[size_t(size_ - 1)]; }
    void truncate(qsizetype size) { size_ = qMin(size, size_); }
    void clear() { size_ = 0; }
    std::string_view view() const { return {data(), size_t(size_)}; }

private:
    void grow(qsizetype more) {
        const qsizetype capacity = qMax(size_ + more, capacity_ * 2 + 4096);
        auto bigger = std::make_unique_for_overwrite<char[]>(size_t(capacity));
        if (size_ > 0) std::memcpy(bigger.get(), data_.get(), size_t(size_));
        data_ = std::move(bigger);
        capacity_ = capacity;
    }

    std::unique_ptr<char[]> data_;
    qsizetype size_ = 0;
    qsizetype capacity_ = 0;
};

// A word of bytes at once (four or eight): whether any is below `below` (at
// most 0x80) or equals one of `bytes`. Bytes above 0x7F never count as below.
template <typename Word, int... Bytes>
inline bool anyOf(const char* p, quint64 below) {
    constexpr Word ones = Word(0x0101010101010101ULL);
    constexpr Word highs = Word(0x8080808080808080ULL);
    Word x;
    std::memcpy(&x, p, sizeof x);
    Word hit = (x - ones * Word(below)) & ~x;
    ((hit |= ((x ^ (ones * Word(uchar(Bytes)))) - ones) & ~(x ^ (ones * Word(uchar(Bytes))))), ...);
    return (hit & highs) != 0;
}

template <int... Bytes>
inline bool anyOf8(const char* p, quint64 below) {
    return anyOf<quint64, Bytes...>(p, below);
}

template <int... Bytes>
inline bool anyOf4(const char* p, quint64 below) {
    return anyOf<quint32, Bytes...>(p, below);
}

#if defined(__SSE2__)
// Copies bytes from `p` to `o` sixteen at a time, up to the first one that
// `changes` marks (it maps sixteen bytes to a bit for each that must not be
// copied as it is) or to `end`. A run shorter than sixteen at the end is
// taken in one more step over the last sixteen bytes, when the bytes copied
// one for one since `run` reach back that far: what that step shares with
// them is copied again, the same. The room at `o` holds the bytes up to `end`.
template <typename Changes>
inline void copyPlain(const uchar*& p, const uchar* end, const uchar* run, char*& o,
                      Changes changes) {
    while (end - p >= 16) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(o), v);
        if (const unsigned mask = changes(v)) {
            o += std::countr_zero(mask);
            p += std::countr_zero(mask);
            return;
        }
        o += 16;
        p += 16;
    }
    if (p != end && end - run >= 16) {
        const uchar* at = end - 16;
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(o - (p - at)), v);
        const unsigned mask = changes(v) >> (p - at);
        const qsizetype clean = mask == 0 ? end - p : std::countr_zero(mask);
        o += clean;
        p += clean;
    }
}
#endif

}  // namespace varnel::cli
