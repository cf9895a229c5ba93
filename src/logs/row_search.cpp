#include "logs/row_search.h"

#include <algorithm>

#include "logs/ascii_search.h"
#include "logs/row_storage.h"
#include "logs/utf8.h"

namespace varnel {

namespace {

char16_t asciiLower(char16_t c) {
    return (c >= u'A' && c <= u'Z') ? char16_t(c + 0x20) : c;
}

// Joins a range to the last one when they touch.
void addRange(QList<MatchRange>& ranges, qsizetype start, qsizetype end) {
    if (!ranges.isEmpty() && ranges.last().start + ranges.last().length >= start) {
        MatchRange& last = ranges.last();
        last.length = std::max(end, last.start + last.length) - last.start;
        return;
    }
    ranges.append({start, end - start});
}

// Occurrences of a lower-case needle in text that is lower-cased already.
qsizetype countLowered(QStringView lowered, QStringView needle) {
    qsizetype count = 0;
    for (qsizetype at = lowered.indexOf(needle); at >= 0;
         at = lowered.indexOf(needle, at + needle.size()))
        ++count;
    return count;
}

// The search as rows are searched for it: ASCII needles byte by byte in rows
// whose fields allow it, everything else by lower-casing the field.
class RowFinder {
public:
    RowFinder(const LogRows& rows, const QString& search)
        : d_(rows.data()),
          needle_(search.toLower()),
          ascii_(QtPrivate::isAscii(QStringView(needle_))),
          asciiBytes_(ascii_ ? needle_.toLatin1() : QByteArray()),
          finder_(asciiBytes_),
          text_(d_.text->data()),
          side_(d_.side->data()) {}

    bool empty() const { return needle_.isEmpty(); }

    bool holds(qsizetype index) const {
        const rows::Record& record = d_.record(index);
        if (ascii_ && record.bytewise) {
            for (const int field : kSearched)
                if (finder_.foundIn(bytes(record.fields[field]))) return true;
            return false;
        }
        for (const int field : kSearched)
            if (lowered(record.fields[field]).contains(needle_)) return true;
        return false;
    }

    qsizetype count(qsizetype index) const {
        const rows::Record& record = d_.record(index);
        qsizetype total = 0;
        if (ascii_ && record.bytewise) {
            // One look at the line rules most rows out at once.
            if (record.withinRaw && !finder_.foundIn(bytes(record.fields[rows::kRaw])))
                return finder_.countIn(bytes(record.fields[rows::kLevel]));
            for (const int field : kSearched) total += finder_.countIn(bytes(record.fields[field]));
            return total;
        }
        for (const int field : kSearched)
            total += countLowered(lowered(record.fields[field]), needle_);
        return total;
    }

private:
    static constexpr int kSearched[] = {rows::kTime, rows::kLevel, rows::kSource, rows::kMessage};

    QByteArrayView bytes(rows::Ref ref) const { return utf8::bytes(rows::view(ref, text_, side_)); }
    QString lowered(rows::Ref ref) const {
        return rows::view(ref, text_, side_).toString().toLower();
    }

    const LogRows::Data& d_;
    QString needle_;
    bool ascii_;
    QByteArray asciiBytes_;
    AsciiFinder finder_;
    const char* text_;
    const char* side_;
};

}  // namespace

QList<MatchRange> matchRanges(QStringView text, QStringView search) {
    QList<MatchRange> ranges;
    if (search.isEmpty() || text.isEmpty()) return ranges;
    const QString needle = search.toString().toLower();
    const qsizetype m = needle.size();

    if (QtPrivate::isAscii(text)) {
        // ASCII lower-cases to ASCII, one unit for one: no copy needed.
        if (!QtPrivate::isAscii(QStringView(needle))) return ranges;
        for (qsizetype i = 0; i + m <= text.size();) {
            qsizetype k = 0;
            while (k < m && asciiLower(text[i + k].unicode()) == needle[k].unicode()) ++k;
            if (k == m) {
                addRange(ranges, i, i + m);
                i += m;
            } else {
                ++i;
            }
        }
        return ranges;
    }

    // Lower-cased character by character, each unit remembering the
    // character of the text it came from.
    QString lowered;
    lowered.reserve(text.size());
    QList<qsizetype> starts;
    QList<qsizetype> ends;
    starts.reserve(text.size());
    ends.reserve(text.size());
    for (qsizetype i = 0; i < text.size();) {
        const bool pair =
            text[i].isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate();
        const qsizetype length = pair ? 2 : 1;
        const qsizetype before = lowered.size();
        if (text[i].unicode() < 0x80)
            lowered.append(QChar(asciiLower(text[i].unicode())));
        else
            lowered.append(text.sliced(i, length).toString().toLower());
        for (qsizetype k = before; k < lowered.size(); ++k) {
            starts.append(i);
            ends.append(i + length);
        }
        i += length;
    }
    for (qsizetype at = lowered.indexOf(needle); at >= 0; at = lowered.indexOf(needle, at + m))
        addRange(ranges, starts[at], ends[at + m - 1]);
    return ranges;
}

qsizetype countMatches(const LogRows& rows, const QList<qsizetype>& shown, const QString& search) {
    const RowFinder finder(rows, search);
    if (finder.empty()) return 0;
    qsizetype total = 0;
    for (const qsizetype index : shown) total += finder.count(index);
    return total;
}

qsizetype nextMatchingRow(const LogRows& rows, const QList<qsizetype>& shown, const QString& search,
                          qsizetype from, RowDirection direction) {
    const RowFinder finder(rows, search);
    const qsizetype n = shown.size();
    if (finder.empty() || n == 0) return -1;
    const bool forward = direction == RowDirection::forward;
    const qsizetype step = forward ? 1 : n - 1;
    const qsizetype start = std::clamp<qsizetype>(from, -1, n) + (forward ? 1 : -1);
    qsizetype row = start >= n ? 0 : start < 0 ? n - 1 : start;
    for (qsizetype looked = 0; looked < n; ++looked, row = (row + step) % n)
        if (finder.holds(shown[row])) return row;
    return -1;
}

QString matchCountText(qsizetype count) {
    return count == 1 ? QStringLiteral("1 match") : QStringLiteral("%1 matches").arg(count);
}

}  // namespace varnel
