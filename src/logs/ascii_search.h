#pragma once

#include <QByteArrayView>
#include <bit>

namespace varnel {

// Finds a lower-case ASCII needle in UTF-8 text, ignoring ASCII case: for text
// whose characters lower-case to ASCII only when they are ASCII, lower-casing
// the text first gives exactly this. Candidates are found many positions at a
// time by their first and last bytes with bit 0x20 set (equal letters in any
// case agree there, a few other pairs too), then checked.
class AsciiFinder {
public:
    enum class Path {
        avx2,      // x86's wider vector instructions, where the processor has them
        sse2,      // x86's vector instructions, where the build has them
        portable,  // plain code the compiler turns into vector code on any target
    };
    // avx2 where the processor has it, else sse2 where the build has it,
    // else portable.
    static Path fastest();

    explicit AsciiFinder(QByteArrayView needle, Path path = fastest())
        : needle_(needle), path_(path), first_(needle.isEmpty() ? 0 : uchar(needle[0] | 0x20)) {}

    // Inline: the filter asks four times a row, mostly of short fields.
    bool foundIn(QByteArrayView text) const {
        const qsizetype m = needle_.size();
        const qsizetype last = text.size() - m;
        if (m == 0 || last < 0) return m == 0;
        const char* h = text.data();
        qsizetype i = 0;
        if (m >= 2 && last >= 15) {
            bool found = false;
            i = candidates(h, last, found);
            if (found) return true;
        }
        for (; i <= last; ++i)
            if ((uchar(h[i]) | 0x20) == first_ && matchesAt(h + i)) return true;
        return false;
    }

    qsizetype needleSize() const { return needle_.size(); }

    // Where the needle first occurs in the text, -1 when nowhere; 0 for an
    // empty needle.
    qsizetype indexIn(QByteArrayView text) const {
        const qsizetype m = needle_.size();
        const qsizetype last = text.size() - m;
        if (m == 0) return 0;
        if (last < 0) return -1;
        const char* h = text.data();
        qsizetype i = 0;
        if (m >= 2 && last >= 15) {
            bool found = false;
            i = candidates(h, last, found);
            if (found) return i;
        }
        for (; i <= last; ++i)
            if ((uchar(h[i]) | 0x20) == first_ && matchesAt(h + i)) return i;
        return -1;
    }

    // Occurrences, each search resuming after the last one found.
    qsizetype countIn(QByteArrayView text) const {
        if (needle_.isEmpty()) return 0;
        if (needle_.size() == 1) return countByte(text);
        qsizetype count = 0;
        for (qsizetype at = indexIn(text); at >= 0; at = indexIn(text)) {
            ++count;
            text = text.sliced(at + needle_.size());
        }
        return count;
    }

private:
    // A single letter is the search typed first and found most often: one
    // branch-free pass the compiler turns into vector code.
    qsizetype countByte(QByteArrayView text) const {
        const char lowerCase = needle_[0];
        const char upperCase =
            (lowerCase >= 'a' && lowerCase <= 'z') ? char(lowerCase - 0x20) : lowerCase;
        qsizetype count = 0;
        for (const char c : text) count += (c == lowerCase) | (c == upperCase);
        return count;
    }
    static char lower(char c) { return (c >= 'A' && c <= 'Z') ? char(c + 0x20) : c; }
    bool matchesAt(const char* at) const {
        for (qsizetype k = 0; k < needle_.size(); ++k)
            if (lower(at[k]) != needle_[k]) return false;
        return true;
    }
    // Candidates from the start of the text up to `last`, where the needle
    // may start: where the first match starts (with `found` set), else
    // last + 1. Reads up to the text's end.
    qsizetype candidates(const char* h, qsizetype last, bool& found) const;
    // The first of the positions from `at` on that the mask's bits give
    // where the needle starts, as an offset from `at`; -1 when none.
    int firstAmong(const char* at, unsigned mask) const {
        for (; mask != 0; mask &= mask - 1)
            if (matchesAt(at + std::countr_zero(mask))) return std::countr_zero(mask);
        return -1;
    }
    qsizetype candidatesAvx2(const char* h, qsizetype last, bool& found) const;
    qsizetype candidatesSse2(const char* h, qsizetype from, qsizetype last, bool& found) const;
    qsizetype candidatesPortable(const char* h, qsizetype last, bool& found) const;

    QByteArrayView needle_;
    Path path_;
    uchar first_;  // the first byte with bit 0x20 set, as candidates are found
};

// Whether a needle lies within a stretch of one text, found by searching
// ahead of the stretch: the rows of a log mostly come in the order of their
// text, so a run of them costs one pass over it in long strides instead of a
// search that starts and stops at every row. A stretch out of order (rows of
// merged logs) starts the look afresh there, which costs what a search of just
// that stretch would.
class SearchAhead {
public:
    // The text runs from `text` up to `end`; the finder outlives this.
    SearchAhead(const AsciiFinder& finder, const char* text, qsizetype end)
        : finder_(finder), m_(finder.needleSize()), text_(text), end_(end) {}

    // Whether the needle lies wholly within the bytes from `begin` up to `end`.
    bool within(qsizetype begin, qsizetype end) {
        const qsizetype lastStart = end - m_;
        if (lastStart < begin) return false;
        if (begin < from_ || begin > seen_ + kLongestGap) {
            // Out of order, or far ahead (another log's rows): the look starts
            // afresh with short strides.
            restart(begin);
        } else if (begin > seen_ || (hit_ >= 0 && hit_ < begin)) {
            // What lies between the last look and the stretch matters to no
            // stretch after it either.
            from_ = seen_ = begin;
            hit_ = -1;
        }
        while (true) {
            if (hit_ >= 0) return hit_ <= lastStart;
            if (lastStart < seen_) return false;
            lookFurther(lastStart);
        }
    }

private:
    static constexpr qsizetype kLongestGap = 4096;
    static constexpr qsizetype kLongestStride = qsizetype(256) * 1024;

    void restart(qsizetype at) {
        from_ = seen_ = at;
        hit_ = -1;
        stride_ = 0;
    }
    // On to `lastStart` at least, and the further the longer the stretches
    // asked about keep to the order of the text.
    void lookFurther(qsizetype lastStart);

    const AsciiFinder& finder_;
    const qsizetype m_;
    const char* const text_;
    const qsizetype end_;
    // Every start from from_ up to seen_ was looked at; hit_, when not
    // negative, is the only one found there and the last looked at.
    qsizetype from_ = 0;
    qsizetype seen_ = 0;
    qsizetype hit_ = -1;
    qsizetype stride_ = 0;
};

}  // namespace varnel
