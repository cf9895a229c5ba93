#pragma once

// How LogRows keeps its rows: for the files that build, change and search
// them, not for their users.

#include <QUtf8StringView>
#include <array>
#include <memory>
#include <vector>

#include "logs/log_parser.h"
#include "logs/log_rows.h"
#include "logs/log_text.h"

namespace varnel::rows {

// A field as 32-bit offset and size in bytes; the top two bits of the offset
// say which buffer it is in. That caps each buffer at 2^30 bytes, which
// build() guarantees by its own, much lower, limit on the text.
//
// Ref{} is an empty field in the text. Refs and Records take no initial
// values, so that a block of rows can be made without clearing what the
// builder is about to write.
struct Ref {
    quint32 at;
    quint32 size;
};

constexpr quint32 kBaseShift = 30;
constexpr quint32 kOffsetMask = (1u << kBaseShift) - 1;
enum : quint32 {
    kInText = 0,
    kInSide = 1,
    kFixedWord = 2,
    // Side text a builder made while the rows' own side buffer is shared: it
    // moves there once the builder is done, and no finished row refers to it.
    kInNewSide = 3,
};

inline quint32 baseOf(Ref ref) {
    return ref.at >> kBaseShift;
}
inline qsizetype offsetOf(Ref ref) {
    return qsizetype(ref.at & kOffsetMask);
}
inline Ref ref(quint32 base, qsizetype at, qsizetype size) {
    return {quint32(at) | (base << kBaseShift), quint32(size)};
}

// Anything longer keeps only its last part, from a line start: a quarter of a
// gigabyte is far beyond any tail the viewer reads.
constexpr qsizetype kMaxText = qsizetype(1) << 28;

enum Field { kTime, kLevel, kSource, kMessage, kRaw, kFieldCount };

struct Record {
    std::array<Ref, kFieldCount> fields;
    // Where the row's first line starts in the text: rows dropped at the front
    // of a moving window are found by it.
    quint32 lineAt;
    // time, level, source and message can be searched for ASCII byte by byte:
    // the filter's fast path (see LogParser::Spans).
    bool bytewise;
    // time, source and message lie within raw, in the same buffer: text raw
    // does not hold, they do not hold either.
    bool withinRaw;
};

inline QUtf8StringView view(Ref ref, const char* text, const char* side) {
    const quint32 base = baseOf(ref);
    if (base == kFixedWord) return LogParser::fixedWord(offsetOf(ref));
    return QUtf8StringView((base == kInText ? text : side) + offsetOf(ref), qsizetype(ref.size));
}

inline bool within(Ref part, Ref whole) {
    return part.size == 0 || (baseOf(part) == baseOf(whole) && part.at >= whole.at &&
                              qsizetype(part.at) + part.size <= qsizetype(whole.at) + whole.size);
}

inline LogRowView rowView(const Record& r, const char* text, const char* side) {
    return {view(r.fields[kTime], text, side), view(r.fields[kLevel], text, side),
            view(r.fields[kSource], text, side), view(r.fields[kMessage], text, side),
            view(r.fields[kRaw], text, side)};
}

// Moves a record's fields by the given shifts of the text and side buffers.
void rebase(Record& record, qsizetype textShift, qsizetype sideShift);
// Points a record's new side text at the side buffer, where it now starts at `at`.
void settleNewSide(Record& record, qsizetype at);

// Rows are kept in fixed blocks shared between versions of the rows, so that
// a version with a few rows more or less copies one block, not all of them.
constexpr qsizetype kBlockRows = 512;
struct Block {
    std::array<Record, kBlockRows> records;
};

// Where the blocks of one load come from: one allocation sized from the
// text's line count, so a load's rows are written once, into memory that
// arrives in large pages. Blocks are taken from its end down, as the room's
// upper stretch; the load's side text may grow up from its beginning, so that
// the two share the pages the blocks leave. It lives as long as any block
// made from it.
class BlockArena : public TwoEndedRoom {
public:
    explicit BlockArena(qsizetype blocks);
    // Room for `bytes` bytes, or nullptr when the arena is used up.
    void* take(qsizetype bytes);
    bool owns(const void* p) const { return holds(p); }
};

// A new block, from the arena while it lasts.
std::shared_ptr<Block> newBlock(const std::shared_ptr<BlockArena>& arena);

}  // namespace varnel::rows

namespace varnel {

struct LogRows::Data {
    std::shared_ptr<ByteStore> text = std::make_shared<ByteStore>();
    qsizetype textBegin = 0;  // text before it belongs to rows dropped at the front
    qsizetype textEnd = 0;
    std::shared_ptr<ByteStore> side = std::make_shared<ByteStore>();
    qsizetype sideEnd = 0;
    std::vector<std::shared_ptr<rows::Block>> blocks;
    qsizetype first = 0;  // slot of row 0 in blocks.front()
    qsizetype count = 0;
    std::shared_ptr<rows::BlockArena> arena;  // where new blocks come from, if anywhere

    QUtf8StringView view(rows::Ref ref) const {
        return rows::view(ref, text->data(), side->data());
    }
    LogRowView row(const rows::Record& r) const {
        return rows::rowView(r, text->data(), side->data());
    }

    const rows::Record& record(qsizetype i) const {
        const qsizetype slot = first + i;
        return blocks[size_t(slot / rows::kBlockRows)]->records[size_t(slot % rows::kBlockRows)];
    }

    // A block another version also holds is copied before it is written.
    // Inline, as are new rows: the builder asks for one with every line.
    rows::Record& writable(qsizetype i) {
        const qsizetype slot = first + i;
        std::shared_ptr<rows::Block>& block = blocks[size_t(slot / rows::kBlockRows)];
        if (block.use_count() > 1) block = std::make_shared<rows::Block>(*block);
        return block->records[size_t(slot % rows::kBlockRows)];
    }
    void pushBack(const rows::Record& r);
    // A new last row, to be written in place.
    rows::Record& emplaceBack() {
        if (first + count == qsizetype(blocks.size()) * rows::kBlockRows)
            blocks.push_back(rows::newBlock(arena));
        ++count;
        return writable(count - 1);
    }
    void pushFront(const rows::Record& r);
    void dropFront(qsizetype n);

    QByteArrayView liveText() const { return {text->data() + textBegin, textEnd - textBegin}; }

    // Makes sure `textMore` and `sideMore` bytes can be appended in place;
    // otherwise the live bytes move to new buffers with room to spare and
    // every row is pointed at them. Moving costs the live size, and the room
    // left is as large again, so appending stays linear over time.
    struct Shift {
        qsizetype text = 0;
        qsizetype side = 0;
    };
    Shift makeRoom(qsizetype textMore, qsizetype sideMore);
    // Appends, within room made before.
    qsizetype appendText(QByteArrayView bytes);
    qsizetype appendSide(QByteArrayView bytes);
};

}  // namespace varnel
