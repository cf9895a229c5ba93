#pragma once

// How LogRows keeps its rows: for the files that build, change and search
// them, not for their users.

#include <QString>
#include <QStringView>
#include <array>
#include <memory>
#include <vector>

#include "logs/log_parser.h"
#include "logs/log_rows.h"

namespace varnel::rows {

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

inline quint32 baseOf(Ref ref) {
    return ref.at >> kBaseShift;
}
inline qsizetype offsetOf(Ref ref) {
    return qsizetype(ref.at & kOffsetMask);
}
inline Ref sideRef(qsizetype at, qsizetype size) {
    return {quint32(at) | (kInSide << kBaseShift), quint32(size)};
}

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

inline QStringView view(Ref ref, const QString& text, const QString& side) {
    const quint32 base = baseOf(ref);
    if (base == kFixedWord) return LogParser::fixedWord(offsetOf(ref));
    return QStringView(base == kInText ? text : side).sliced(offsetOf(ref), ref.size);
}

inline LogRowView rowView(const Record& r, const QString& text, const QString& side) {
    return {view(r.fields[kTime], text, side), view(r.fields[kLevel], text, side),
            view(r.fields[kSource], text, side), view(r.fields[kMessage], text, side),
            view(r.fields[kRaw], text, side)};
}

bool isAsciiRow(const LogRowView& v);

// Moves a record's fields by the given shifts of the text and side buffers.
void rebase(Record& record, qsizetype textShift, qsizetype sideShift);

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

// The text and rows of one load as the builder makes them: plain buffers.
struct Flat {
    QString text;
    QString side;
    std::vector<Record> records;

    QStringView view(Ref ref) const { return rows::view(ref, text, side); }
    LogRowView row(const Record& r) const { return rowView(r, text, side); }
};

}  // namespace varnel::rows

namespace varnel {

struct LogRows::Data {
    std::shared_ptr<rows::Chars> text = std::make_shared<rows::Chars>();
    qsizetype textBegin = 0;  // text before it belongs to rows dropped at the front
    qsizetype textEnd = 0;
    std::shared_ptr<rows::Chars> side = std::make_shared<rows::Chars>();
    qsizetype sideEnd = 0;
    std::vector<std::shared_ptr<rows::Block>> blocks;
    qsizetype first = 0;  // slot of row 0 in blocks.front()
    qsizetype count = 0;

    static std::shared_ptr<Data> fromFlat(rows::Flat&& flat);

    QStringView view(rows::Ref ref) const { return rows::view(ref, text->s, side->s); }
    LogRowView row(const rows::Record& r) const { return rows::rowView(r, text->s, side->s); }

    const rows::Record& record(qsizetype i) const {
        const qsizetype slot = first + i;
        return blocks[size_t(slot / rows::kBlockRows)]->records[size_t(slot % rows::kBlockRows)];
    }

    // A block another version also holds is copied before it is written.
    rows::Record& writable(qsizetype i);
    void pushBack(const rows::Record& r);
    void pushFront(const rows::Record& r);
    void dropFront(qsizetype n);

    QStringView liveText() const {
        return QStringView(text->s).sliced(textBegin, textEnd - textBegin);
    }

    // Makes sure `textMore` and `sideMore` characters can be appended in place;
    // otherwise the live characters move to new buffers with room to spare and
    // every row is pointed at them. Moving costs the live size, and the room
    // left is as large again, so appending stays linear over time.
    void makeRoom(qsizetype textMore, qsizetype sideMore);
    // Appends to the side buffer, within room made before.
    rows::Ref appendSide(QStringView more);
};

}  // namespace varnel
