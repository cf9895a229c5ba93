#include "logs/log_rows.h"

#include <array>
#include <optional>
#include <system_error>
#include <thread>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#include <vector>

#include "platform/text.h"

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
    // Where the row's first line starts in the text: rows dropped at the front
    // of a moving window are found by it.
    quint32 lineAt = 0;
    // time, level, source and message are all ASCII: the filter's fast path.
    bool ascii = false;
};

// Rows are kept in fixed blocks shared between versions of the rows, so that
// a version with a few rows more or less copies one block, not all of them.
constexpr qsizetype kBlockRows = 512;
struct Block {
    std::array<Record, kBlockRows> records;
};

// Characters that versions of the rows share. Only ever appended to, and only
// within the capacity reserved, so the buffer never moves while any version
// holds views into it.
struct Chars {
    QString s;
};

constexpr QStringView kFoldSeparator = u"  \u27F6  ";

// The text and rows of one load as the builder makes them: plain buffers.
struct Flat {
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

}  // namespace

struct LogRows::Data {
    std::shared_ptr<Chars> text = std::make_shared<Chars>();
    qsizetype textBegin = 0;  // text before it belongs to rows dropped at the front
    qsizetype textEnd = 0;
    std::shared_ptr<Chars> side = std::make_shared<Chars>();
    qsizetype sideEnd = 0;
    std::vector<std::shared_ptr<Block>> blocks;
    qsizetype first = 0;  // slot of row 0 in blocks.front()
    qsizetype count = 0;

    QStringView view(Ref ref) const {
        const quint32 base = ref.at >> kBaseShift;
        const qsizetype at = ref.at & kOffsetMask;
        if (base == kFixedWord) return LogParser::fixedWord(at);
        const QString& buffer = base == kInText ? text->s : side->s;
        return QStringView(buffer).sliced(at, ref.size);
    }

    LogRowView row(const Record& r) const {
        return {view(r.fields[kTime]), view(r.fields[kLevel]), view(r.fields[kSource]),
                view(r.fields[kMessage]), view(r.fields[kRaw])};
    }

    const Record& record(qsizetype i) const {
        const qsizetype slot = first + i;
        return blocks[size_t(slot / kBlockRows)]->records[size_t(slot % kBlockRows)];
    }

    // A block another version also holds is copied before it is written.
    Record& writable(qsizetype i) {
        const qsizetype slot = first + i;
        std::shared_ptr<Block>& block = blocks[size_t(slot / kBlockRows)];
        if (block.use_count() > 1) block = std::make_shared<Block>(*block);
        return block->records[size_t(slot % kBlockRows)];
    }

    void pushBack(const Record& r) {
        if (first + count == qsizetype(blocks.size()) * kBlockRows)
            blocks.push_back(std::make_shared<Block>());
        ++count;
        writable(count - 1) = r;
    }

    void pushFront(const Record& r) {
        if (first == 0) {
            blocks.insert(blocks.begin(), std::make_shared<Block>());
            first = kBlockRows;
        }
        --first;
        ++count;
        writable(0) = r;
    }

    void dropFront(qsizetype n) {
        first += n;
        count -= n;
        const qsizetype whole = count == 0 ? qsizetype(blocks.size()) : first / kBlockRows;
        blocks.erase(blocks.begin(), blocks.begin() + whole);
        first = count == 0 ? 0 : first % kBlockRows;
    }

    QStringView liveText() const {
        return QStringView(text->s).sliced(textBegin, textEnd - textBegin);
    }

    // Makes sure `textMore` and `sideMore` characters can be appended in place;
    // otherwise the live characters move to new buffers with room to spare and
    // every row is pointed at them. Moving costs the live size, and the room
    // left is as large again, so appending stays linear over time.
    void makeRoom(qsizetype textMore, qsizetype sideMore);
};

namespace {

bool roomIn(const Chars& chars, qsizetype end, qsizetype more) {
    return chars.s.size() == end && chars.s.isDetached() &&
           chars.s.capacity() - chars.s.size() >= more;
}

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
    explicit Builder(Flat& d) : d_(d) {}

    void add(QStringView line, qsizetype lineAt) {
        const LogParser::Spans spans = LogParser::parseSpans(line, d_.side);
        Record record;
        record.lineAt = quint32(lineAt);
        for (int f = 0; f < kFieldCount; ++f)
            record.fields[size_t(f)] = toRef(spanOf(spans, f), lineAt);

        const QStringView message = d_.view(record.fields[kMessage]);
        const QStringView trimmed = text::trimBlanks(message);
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

    // Continuation lines at the start of what this builder read, before any
    // row of its own: they fold into a time-stamped row before them.
    const std::vector<Fold>& leading() const { return leading_; }

    // Appends the rows another builder made from the lines that follow this
    // builder's, over the same text.
    void appendPart(Flat& part, const Builder& partBuilder) {
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

    Flat& d_;
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
        if (!text::isBlankOnly(line)) builder.add(line, at);
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

namespace {

void rebase(Ref& ref, qsizetype textShift, qsizetype sideShift) {
    const quint32 base = ref.at >> kBaseShift;
    if (base == kFixedWord) return;
    if (ref.size == 0) {
        // An empty field may sit anywhere, even in text that has gone.
        ref.at = base << kBaseShift;
        return;
    }
    const qsizetype shift = base == kInText ? textShift : sideShift;
    ref.at = quint32(qsizetype(ref.at & kOffsetMask) + shift) | (base << kBaseShift);
}

void rebase(Record& record, qsizetype textShift, qsizetype sideShift) {
    for (Ref& ref : record.fields) rebase(ref, textShift, sideShift);
    record.lineAt = quint32(qsizetype(record.lineAt) + textShift);
}

std::shared_ptr<Chars> charsWithRoom(QStringView live, qsizetype more) {
    auto chars = std::make_shared<Chars>();
    chars->s.reserve(live.size() + std::max(live.size(), more) + more + 4096);
    chars->s.append(live);
    return chars;
}

// Rows that are continuation lines of the row before them are folded into it,
// exactly as the builder does when it meets them one after the other.
struct FoldedText {
    QString message;
    QString raw;
};

FoldedText foldInto(LogRowView last, const Flat& part, const std::vector<Fold>& folds) {
    FoldedText out{last.message.toString(), last.raw.toString()};
    for (const Fold& f : folds) {
        out.message += kFoldSeparator;
        out.message += part.view(f.message);
        out.raw += u'\n';
        out.raw += QStringView(part.text).sliced(f.line.at, f.line.size);
    }
    return out;
}

bool asciiRow(const LogRowView& v) {
    return QtPrivate::isAscii(v.time) && QtPrivate::isAscii(v.level) &&
           QtPrivate::isAscii(v.source) && QtPrivate::isAscii(v.message);
}

}  // namespace

void LogRows::Data::makeRoom(qsizetype textMore, qsizetype sideMore) {
    if (roomIn(*text, textEnd, textMore) && roomIn(*side, sideEnd, sideMore)) return;
    // Side text of the dropped rows is dead; the live rows' side text starts
    // at the lowest side offset any of them uses.
    qsizetype sideFrom = sideEnd;
    for (qsizetype i = 0; i < count; ++i)
        for (const Ref& ref : record(i).fields)
            if ((ref.at >> kBaseShift) == kInSide && ref.size > 0)
                sideFrom = std::min(sideFrom, qsizetype(ref.at & kOffsetMask));
    text = charsWithRoom(liveText(), textMore);
    side = charsWithRoom(QStringView(side->s).sliced(sideFrom, sideEnd - sideFrom), sideMore);
    std::vector<std::shared_ptr<Block>> old = std::move(blocks);
    const qsizetype oldFirst = first;
    const qsizetype textShift = -textBegin;
    blocks.clear();
    first = 0;
    const qsizetype n = count;
    count = 0;
    for (qsizetype i = 0; i < n; ++i) {
        const qsizetype slot = oldFirst + i;
        Record r = old[size_t(slot / kBlockRows)]->records[size_t(slot % kBlockRows)];
        rebase(r, textShift, -sideFrom);
        pushBack(r);
    }
    textEnd -= textBegin;
    textBegin = 0;
    sideEnd -= sideFrom;
}

LogRows::LogRows() : d(std::make_shared<Data>()) {}

namespace {

std::shared_ptr<LogRows::Data> fromFlat(Flat&& flat) {
    auto data = std::make_shared<LogRows::Data>();
    data->textEnd = flat.text.size();
    data->text->s = std::move(flat.text);
    data->sideEnd = flat.side.size();
    flat.side.squeeze();
    data->side->s = std::move(flat.side);
    data->blocks.reserve((flat.records.size() + kBlockRows - 1) / kBlockRows);
    for (const Record& r : flat.records) data->pushBack(r);
    return data;
}

}  // namespace

LogRows LogRows::build(QString text) {
    if (text.size() > kMaxText) {
        const qsizetype lineEnd = text.indexOf(u'\n', text.size() - kMaxText);
        text.remove(0, lineEnd >= 0 ? lineEnd + 1 : text.size() - kMaxText);
    }
    Flat flat;
    flat.text = std::move(text);
    const QStringView all(flat.text);
    Builder builder(flat);

    // The second half of the lines is parsed on another thread into its own
    // records and side buffer (sharing the text), then appended.
    const qsizetype middle =
        all.size() >= kParallelFrom ? all.indexOf(u'\n', all.size() / 2) + 1 : 0;
    if (middle > 0) {
        Flat part;
        part.text = flat.text;
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
    LogRows rows;
    rows.d = fromFlat(std::move(flat));
    return rows;
}

LogRows LogRows::fromError(const QString& errorText) {
    Flat flat;
    flat.text = errorText;
    Record record;
    const Ref whole{0, quint32(errorText.size())};
    record.fields[kMessage] = whole;
    record.fields[kRaw] = whole;
    record.fields[kLevel] = {quint32(3) | (kFixedWord << kBaseShift), 4};
    record.ascii = QtPrivate::isAscii(QStringView(errorText));
    flat.records.push_back(record);
    LogRows rows;
    rows.d = fromFlat(std::move(flat));
    return rows;
}

LogRows::Appended LogRows::appended(QStringView more) const {
    const QStringView live = d->liveText();
    if (more.isEmpty()) return {*this, false, false, 0};
    if ((!live.isEmpty() && live.back() != u'\n') || live.size() + more.size() > kMaxText) {
        QString whole = live.toString();
        whole.append(more);
        LogRows rows = build(std::move(whole));
        return {rows, true, false, rows.size()};
    }

    Flat part;
    part.text = more.toString();
    Builder builder(part);
    addLines(builder, part.text, 0, part.text.size());

    const std::vector<Fold>& leading = builder.leading();
    const bool fold = !leading.empty() && size() > 0 && !(*this)[size() - 1].time.isEmpty();
    FoldedText folded;
    if (fold) folded = foldInto((*this)[size() - 1], part, leading);

    auto data = std::make_shared<Data>(*d);
    data->makeRoom(part.text.size(), part.side.size() + folded.message.size() + folded.raw.size());
    const qsizetype textShift = data->textEnd;
    data->text->s.append(part.text);
    data->textEnd += part.text.size();
    const qsizetype sideShift = data->sideEnd;
    data->side->s.append(part.side);
    data->sideEnd += part.side.size();

    if (fold) {
        Record& last = data->writable(data->count - 1);
        last.fields[kMessage] = sideRef(data->sideEnd, folded.message.size());
        data->side->s.append(folded.message);
        data->sideEnd += folded.message.size();
        last.fields[kRaw] = sideRef(data->sideEnd, folded.raw.size());
        data->side->s.append(folded.raw);
        data->sideEnd += folded.raw.size();
        last.ascii = asciiRow(data->row(last));
    }
    const size_t skip = fold ? leading.size() : 0;
    for (size_t i = skip; i < part.records.size(); ++i) {
        Record r = part.records[i];
        rebase(r, textShift, sideShift);
        data->pushBack(r);
    }
    LogRows rows;
    rows.d = std::move(data);
    return {rows, false, fold, qsizetype(part.records.size() - skip)};
}

LogRows::Trimmed LogRows::withoutLeadingLines(qsizetype lines) const {
    if (lines <= 0) return {*this, 0, 0};
    const QStringView text(d->text->s);
    qsizetype at = d->textBegin;
    for (qsizetype n = 0; n < lines && at < d->textEnd; ++n) {
        const qsizetype lineEnd = text.indexOf(u'\n', at);
        at = lineEnd < 0 || lineEnd >= d->textEnd ? d->textEnd : lineEnd + 1;
    }

    // Rows whose first line is gone go; the lines left over from the first
    // surviving row's predecessor (its folded continuation lines) are read
    // again on their own, as a load that starts with them would read them.
    qsizetype low = 0;
    qsizetype high = d->count;
    while (low < high) {
        const qsizetype mid = (low + high) / 2;
        if (qsizetype(d->record(mid).lineAt) < at)
            low = mid + 1;
        else
            high = mid;
    }
    const qsizetype dropped = low;
    const qsizetype orphansEnd = dropped < d->count ? d->record(dropped).lineAt : d->textEnd;

    Flat part;
    part.text = text.sliced(at, orphansEnd - at).toString();
    Builder builder(part);
    addLines(builder, part.text, 0, part.text.size());

    auto data = std::make_shared<Data>(*d);
    data->dropFront(dropped);
    data->textBegin = at;
    data->makeRoom(0, part.side.size());
    const qsizetype textShift = data->textBegin;
    const qsizetype sideShift = data->sideEnd;
    data->side->s.append(part.side);
    data->sideEnd += part.side.size();
    for (auto r = part.records.rbegin(); r != part.records.rend(); ++r) {
        Record record = *r;
        rebase(record, textShift, sideShift);
        data->pushFront(record);
    }
    LogRows rows;
    rows.d = std::move(data);
    return {rows, dropped, qsizetype(part.records.size())};
}

qsizetype LogRows::size() const {
    return d->count;
}

LogRowView LogRows::operator[](qsizetype index) const {
    return d->row(d->record(index));
}

qsizetype LogRows::memoryBytes() const {
    return qsizetype(sizeof(Data)) + d->text->s.capacity() * 2 + d->side->s.capacity() * 2 +
           qsizetype(d->blocks.size() * sizeof(Block));
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

QList<qsizetype> filterRows(const LogRows& rows, const QString& levelChoice, const QString& search,
                            qsizetype from, qsizetype to) {
    to = to < 0 ? rows.size() : std::min(to, rows.size());
    const LogRows::Data& d = *rows.d;
    const bool anyLevel = levelChoice == u"All levels";
    const QString needle = search.toLower();
    const bool asciiNeedle = QtPrivate::isAscii(QStringView(needle));
    const AsciiFinder finder(needle);
    QList<qsizetype> shown;
    for (qsizetype i = from; i < to; ++i) {
        const Record& record = d.record(i);
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
