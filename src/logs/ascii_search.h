#pragma once

#include <QStringView>

namespace varnel {

// Finds a lower-case ASCII needle in ASCII text, ignoring case: for ASCII,
// lower-casing the text first gives exactly this. Candidates are found many
// positions at a time by their first two characters with bit 0x20 set (equal
// letters in any case agree there, a few other pairs too), then checked.
class AsciiFinder {
public:
    enum class Path {
        sse2,      // x86's vector instructions, where the build has them
        portable,  // plain code the compiler turns into vector code on any target
    };
    // sse2 where the build has it, else portable.
    static Path fastest();

    explicit AsciiFinder(QStringView needle, Path path = fastest())
        : needle_(needle), path_(path) {}

    // Inline: the filter asks four times a row, mostly of short fields.
    bool foundIn(QStringView text) const {
        const qsizetype m = needle_.size();
        const qsizetype last = text.size() - m;
        if (m == 0 || last < 0) return m == 0;
        const char16_t* h = text.utf16();
        qsizetype i = 0;
        if (m >= 2 && last >= 7) {
            bool found = false;
            i = path_ == Path::sse2 ? candidatesSse2(h, last, found)
                                    : candidatesPortable(h, last, found);
            if (found) return true;
        }
        for (; i <= last; ++i)
            if (matchesAt(h + i)) return true;
        return false;
    }

private:
    static char16_t lower(char16_t c) { return (c >= u'A' && c <= u'Z') ? char16_t(c + 0x20) : c; }
    bool matchesAt(const char16_t* at) const {
        for (qsizetype k = 0; k < needle_.size(); ++k)
            if (lower(at[k]) != needle_[k].unicode()) return false;
        return true;
    }
    qsizetype candidatesSse2(const char16_t* h, qsizetype last, bool& found) const;
    qsizetype candidatesPortable(const char16_t* h, qsizetype last, bool& found) const;

    QStringView needle_;
    Path path_;
};

}  // namespace varnel
