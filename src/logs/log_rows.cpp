#include "logs/log_rows.h"

#include <array>
#include <optional>
#include <system_error>
#include <thread>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#include <vector>

namespace varnel {

namespace {

using LogParser::Span;
using LogParser::SpanBase;

// A field as 32-bit offset and size; the top two bits of the offset say which
// buffer it is in. That caps each buffer at 2^30 UTF-16 units, which build()
// guarantees by its own, much lower, limit on the text.
struct Ref {
    quint32 at = 0;
    quint32 size = 0;
};

constexpr quint32 kBaseShift = 30;
constexpr quint32 kOffsetMask = (1u << kBaseShift) - 1;
enum : quint32 { kInText = 0, kInSide = 1, kFixedWord = 2 };

// Anything longer keeps only its last part, from a line start: a quarter of a
// billion characters is far beyond any tail the viewer reads.
constexpr qsizetype kMaxText = qsizetype(1) << 28;

enum Field { kTime, kLevel, kSource, kMessage, kRaw, kFieldCount };

struct Record {
    std::array<Ref, kFieldCount> fields;
    // time, level, source and message are all ASCII: the filter's fast path.
    bool ascii = false;
};

constexpr QStringView kFoldSeparator = u"  \u27F6  ";

bool isBlank(QChar c) {
    return c == u' ' || c == u'\t' ||
           (c.unicode() >= 0x80 && c.category() == QChar::Separator_Space);
}

QStringView trimBlanks(QStringView s) {
    while (!s.isEmpty() && isBlank(s.front())) s = s.sliced(1);
    while (!s.isEmpty() && isBlank(s.back())) s.chop(1);
    return s;
}

bool isBlankOnly(QStringView s) {
    for (QChar c : s)
        if (!isBlank(c)) return false;
    return true;
}

}  // namespace

struct LogRows::Data {
    QString text;
    QString side;
    std::vector<Record> records;

    QStringView view(Ref ref) const {
        const quint32 base = ref.at >> kBaseShift;
        const qsizetype at = ref.at & kOffsetMask;
        if (base == kFixedWord) return LogParser::fixedWord(at);
        const QString& buffer = base == kInText ? text : side;
        return QStringView(buffer).sliced(at, ref.size);
    }

    LogRowView row(const Record& r) const {
        return {view(r.fields[kTime]), view(r.fields[kLevel]), view(r.fields[kSource]),
                view(r.fields[kMessage]), view(r.fields[kRaw])};
    }
};

namespace {

Ref sideRef(qsizetype at, qsizetype size) {
    return {quint32(at) | (kInSide << kBaseShift), quint32(size)};
}

// Turns parsed lines into records and folds continuation lines into the
// time-stamped row before them. Folds are collected and written once when the
// row is complete, so a long stack trace costs linear time and space.
struct Fold {
    Ref message;  // the continuation's trimmed message
    Ref line;     // the line as read, in the text
};

class Builder {
public:
    explicit Builder(LogRows::Data& d) : d_(d) {}

    void add(QStringView line, qsizetype lineAt) {
        const LogParser::Spans spans = LogParser::parseSpans(line, d_.side);
        Record record;
        for (int f = 0; f < kFieldCount; ++f)
            record.fields[size_t(f)] = toRef(spanOf(spans, f), lineAt);

        const QStringView message = d_.view(record.fields[kMessage]);
        const QStringView trimmed = trimBlanks(message);
        const bool continuation =
            line.front().isSpace() || trimmed.startsWith(u"at ") || trimmed.startsWith(u"in ");
        const bool stamped = spans.time.size > 0;
        Ref trimmedRef = record.fields[kMessage];
        if ((trimmedRef.at >> kBaseShift) != kFixedWord) {
            trimmedRef.at += quint32(trimmed.data() - message.data());
            trimmedRef.size = quint32(trimmed.size());
        }
        const Fold fold{trimmedRef, {quint32(lineAt), quint32(line.size())}};
        if (!stamped && continuation && lastStamped_) {
            folds_.push_back(fold);
            return;
        }
        // Rows that would fold into a row before this stretch of lines, if
        // that row has a time stamp; see appendPart().
        if (!anchored_ && !stamped && continuation) {
            leading_.push_back(fold);
        } else {
            anchored_ = true;
        }
        finishLast();
        d_.records.push_back(record);
        lastStamped_ = stamped;
    }

    void finish() { finishLast(); }

    // Appends the rows another builder made from the lines that follow this
    // builder's, over the same text.
    void appendPart(LogRows::Data& part, const Builder& partBuilder) {
        const quint32 shift = quint32(d_.side.size());
        d_.side.append(part.side);
        auto rebase = [shift](Ref& ref) {
            if ((ref.at >> kBaseShift) == kInSide) ref.at += shift;
        };
        for (Record& record : part.records)
            for (Ref& ref : record.fields) rebase(ref);
        size_t skip = 0;
        if (lastStamped_ && !d_.records.empty() && !partBuilder.leading_.empty()) {
            folds_ = partBuilder.leading_;
            for (Fold& f : folds_) rebase(f.message);
            skip = folds_.size();
            finishLast();
        }
        d_.records.insert(d_.records.end(), part.records.begin() + qsizetype(skip),
                          part.records.end());
        if (part.records.size() > skip) lastStamped_ = partBuilder.lastStamped_;
    }

private:
    static const Span& spanOf(const LogParser::Spans& s, int field) {
        switch (field) {
            case kTime:
                return s.time;
            case kLevel:
                return s.level;
            case kSource:
                return s.source;
            case kMessage:
                return s.message;
            default:
                return s.raw;
        }
    }

    static Ref toRef(const Span& span, qsizetype lineAt) {
        switch (span.base) {
            case SpanBase::line:
                return {quint32(lineAt + span.pos) | (kInText << kBaseShift), quint32(span.size)};
            case SpanBase::side:
                return sideRef(span.pos, span.size);
            case SpanBase::word:
                return {quint32(span.pos) | (kFixedWord << kBaseShift),
                        quint32(LogParser::fixedWord(span.pos).size())};
        }
        return {};
    }

    void finishLast() {
        if (d_.records.empty()) return;
        Record& last = d_.records.back();
        if (!folds_.empty()) fold(last);
        const LogRowView v = d_.row(last);
        last.ascii = QtPrivate::isAscii(v.time) && QtPrivate::isAscii(v.level) &&
                     QtPrivate::isAscii(v.source) && QtPrivate::isAscii(v.message);
    }

    void fold(Record& last) {
        QString message = d_.view(last.fields[kMessage]).toString();
        for (const Fold& f : folds_) {
            message += kFoldSeparator;
            message += d_.view(f.message);
        }
        last.fields[kMessage] = append(message);

        // The raw lines usually follow each other in the text, and then the
        // folded raw text is just a longer slice of it.
        Ref raw = last.fields[kRaw];
        bool contiguous = (raw.at >> kBaseShift) == kInText && raw.size > 0;
        qsizetype end = qsizetype(raw.at & kOffsetMask) + raw.size;
        for (const Fold& f : folds_) {
            if (!contiguous) break;
            contiguous = f.line.at == end + 1 && d_.text[end] == u'\n';
            end = qsizetype(f.line.at) + f.line.size;
        }
        if (contiguous) {
            raw.size = quint32(end - qsizetype(raw.at & kOffsetMask));
            last.fields[kRaw] = raw;
        } else {
            QString joined = d_.view(raw).toString();
            for (const Fold& f : folds_) {
                joined += u'\n';
                joined += QStringView(d_.text).sliced(f.line.at, f.line.size);
            }
            last.fields[kRaw] = append(joined);
        }
        folds_.clear();
    }

    Ref append(const QString& text) {
        const Ref ref = sideRef(d_.side.size(), text.size());
        d_.side.append(text);
        return ref;
    }

    LogRows::Data& d_;
    std::vector<Fold> folds_;
    bool lastStamped_ = false;
    bool anchored_ = false;
    std::vector<Fold> leading_;
};

void addLines(Builder& builder, QStringView all, qsizetype from, qsizetype to) {
    qsizetype at = from;
    while (at < to) {
        qsizetype lineEnd = all.indexOf(u'\n', at);
        if (lineEnd < 0 || lineEnd > to) lineEnd = to;
        QStringView line = all.sliced(at, lineEnd - at);
        // A carriage return before the line feed belongs to the line end.
        if (line.endsWith(u'\r')) line.chop(1);
        if (!isBlankOnly(line)) builder.add(line, at);
        at = lineEnd + 1;
    }
    builder.finish();
}

// Below this a second thread costs more than it saves.
constexpr qsizetype kParallelFrom = qsizetype(1) << 18;

}  // namespace

LogRow LogRowView::toRow() const {
    return {time.toString(), level.toString(), source.toString(), message.toString(),
            raw.toString()};
}

LogRows::LogRows() : d(std::make_shared<Data>()) {}

LogRows LogRows::build(QString text) {
    if (text.size() > kMaxText) {
        const qsizetype lineEnd = text.indexOf(u'\n', text.size() - kMaxText);
        text.remove(0, lineEnd >= 0 ? lineEnd + 1 : text.size() - kMaxText);
    }
    auto data = std::make_shared<Data>();
    data->text = std::move(text);
    const QStringView all(data->text);
    Builder builder(*data);

    // The second half of the lines is parsed on another thread into its own
    // records and side buffer (sharing the text), then appended.
    const qsizetype middle =
        all.size() >= kParallelFrom ? all.indexOf(u'\n', all.size() / 2) + 1 : 0;
    if (middle > 0) {
        Data part;
        part.text = data->text;
        Builder partBuilder(part);
        std::optional<std::thread> worker;
        try {
            worker.emplace([&] { addLines(partBuilder, all, middle, all.size()); });
        } catch (const std::system_error&) {
            addLines(partBuilder, all, middle, all.size());
        }
        addLines(builder, all, 0, middle);
        if (worker) worker->join();
        builder.appendPart(part, partBuilder);
    } else {
        addLines(builder, all, 0, all.size());
    }
    data->records.shrink_to_fit();
    data->side.squeeze();
    LogRows rows;
    rows.d = std::move(data);
    return rows;
}

LogRows LogRows::fromError(const QString& errorText) {
    auto data = std::make_shared<Data>();
    data->text = errorText;
    Record record;
    const Ref whole{0, quint32(errorText.size())};
    record.fields[kMessage] = whole;
    record.fields[kRaw] = whole;
    record.fields[kLevel] = {quint32(3) | (kFixedWord << kBaseShift), 4};
    record.ascii = QtPrivate::isAscii(QStringView(errorText));
    data->records.push_back(record);
    LogRows rows;
    rows.d = std::move(data);
    return rows;
}

qsizetype LogRows::size() const {
    return qsizetype(d->records.size());
}

LogRowView LogRows::operator[](qsizetype index) const {
    return d->row(d->records[size_t(index)]);
}

qsizetype LogRows::memoryBytes() const {
    return qsizetype(sizeof(Data)) + d->text.capacity() * 2 + d->side.capacity() * 2 +
           qsizetype(d->records.capacity() * sizeof(Record));
}

namespace {

// Finds an ASCII lower-case needle in ASCII text, ignoring case: for ASCII,
// lower-casing the text first gives exactly this. Candidates are found eight
// positions at a time by their first two characters with bit 0x20 set (equal
// letters in any case agree there, a few other pairs too), then checked.
class AsciiFinder {
public:
    explicit AsciiFinder(QStringView needle) : needle_(needle) {}

    bool foundIn(QStringView text) const {
        const qsizetype m = needle_.size();
        const qsizetype last = text.size() - m;
        if (m == 0 || last < 0) return m == 0;
        const char16_t* h = text.utf16();
        qsizetype i = 0;
#if defined(__SSE2__)
        if (m >= 2) {
            const __m128i bit = _mm_set1_epi16(0x20);
            const __m128i first = _mm_set1_epi16(short(needle_[0].unicode() | 0x20));
            const __m128i second = _mm_set1_epi16(short(needle_[1].unicode() | 0x20));
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
                    if (matchesAt(h + i + lane)) return true;
                    mask &= ~(3u << (2 * lane));
                }
            }
        }
#endif
        for (; i <= last; ++i)
            if (matchesAt(h + i)) return true;
        return false;
    }

private:
    static char16_t lower(char16_t c) {
        return (c >= u'A' && c <= u'Z') ? char16_t(c + 0x20) : c;
    }

    bool matchesAt(const char16_t* at) const {
        for (qsizetype k = 0; k < needle_.size(); ++k)
            if (lower(at[k]) != needle_[k].unicode()) return false;
        return true;
    }

    QStringView needle_;
};

bool lowerContains(QStringView field, const QString& needle) {
    return field.toString().toLower().contains(needle);
}

}  // namespace

QList<qsizetype> filterRows(const LogRows& rows, const QString& levelChoice,
                            const QString& search) {
    const LogRows::Data& d = *rows.d;
    const bool anyLevel = levelChoice == u"All levels";
    const QString needle = search.toLower();
    const bool asciiNeedle = QtPrivate::isAscii(QStringView(needle));
    const AsciiFinder finder(needle);
    QList<qsizetype> shown;
    for (size_t i = 0; i < d.records.size(); ++i) {
        const Record& record = d.records[i];
        if (!anyLevel && d.view(record.fields[kLevel]) != levelChoice) continue;
        bool pass = needle.isEmpty();
        if (!pass) {
            const LogRowView v = d.row(record);
            if (record.ascii) {
                // ASCII text lower-cases to ASCII, which never holds other letters.
                pass = asciiNeedle && (finder.foundIn(v.time) || finder.foundIn(v.level) ||
                                       finder.foundIn(v.source) || finder.foundIn(v.message));
            } else {
                pass = lowerContains(v.time, needle) || lowerContains(v.level, needle) ||
                       lowerContains(v.source, needle) || lowerContains(v.message, needle);
            }
        }
        if (pass) shown.append(qsizetype(i));
    }
    return shown;
}

const QStringList& levelChoices() {
    static const QStringList choices = {QStringLiteral("All levels"), QStringLiteral("ERROR"),
                                        QStringLiteral("FATAL"),      QStringLiteral("WARN"),
                                        QStringLiteral("INFO"),       QStringLiteral("DEBUG"),
                                        QStringLiteral("TRACE")};
    return choices;
}

QString statusLine(qsizetype shown, qsizetype total, bool truncated, const QString& currentPath) {
    QString line = QStringLiteral("%1 of %2 lines").arg(shown).arg(total);
    if (truncated) line += QStringLiteral(" \u00B7 showing last 4 MB");
    if (!currentPath.isEmpty()) line += QStringLiteral(" \u00B7 ") + currentPath;
    return line;
}

SystemColor levelColor(QStringView level) {
    if (level == u"ERROR" || level == u"FATAL") return SystemColor::red;
    if (level == u"WARN") return SystemColor::orange;
    if (level == u"INFO") return SystemColor::green;
    if (level == u"DEBUG" || level == u"TRACE") return SystemColor::secondaryLabel;
    return SystemColor::label;
}

SystemColor messageColor(QStringView level) {
    return level == u"ERROR" || level == u"FATAL" ? SystemColor::red : SystemColor::label;
}

}  // namespace varnel
