#include "logs/row_storage.h"

#include <algorithm>
#include <new>

namespace varnel::rows {

namespace {

void rebase(Ref& ref, qsizetype textShift, qsizetype sideShift) {
    const quint32 base = baseOf(ref);
    if (base != kInText && base != kInSide) return;
    if (ref.size == 0) {
        // An empty field may sit anywhere, even in text that has gone.
        ref.at = base << kBaseShift;
        return;
    }
    const qsizetype shift = base == kInText ? textShift : sideShift;
    ref.at = quint32(offsetOf(ref) + shift) | (base << kBaseShift);
}

std::shared_ptr<ByteStore> storeWithRoom(QByteArrayView live, qsizetype more) {
    auto store =
        std::make_shared<ByteStore>(live.size() + std::max(live.size(), more) + more + 4096);
    store->append(live);
    return store;
}

constexpr qsizetype kAlign = 16;

// Blocks (with their shared pointer's count) from the arena while it lasts.
template <typename T>
struct ArenaAllocator {
    using value_type = T;
    std::shared_ptr<BlockArena> arena;

    explicit ArenaAllocator(std::shared_ptr<BlockArena> a) : arena(std::move(a)) {}
    template <typename U>
    ArenaAllocator(const ArenaAllocator<U>& other) : arena(other.arena) {}

    T* allocate(size_t n) {
        if (void* p = arena->take(qsizetype(n) * qsizetype(sizeof(T)))) return static_cast<T*>(p);
        return static_cast<T*>(::operator new(n * sizeof(T)));
    }
    void deallocate(T* p, size_t) {
        // Memory from the arena goes with the arena.
        if (!arena->owns(p)) ::operator delete(p);
    }
    template <typename U>
    bool operator==(const ArenaAllocator<U>& other) const {
        return arena == other.arena;
    }
};

}  // namespace

void rebase(Record& record, qsizetype textShift, qsizetype sideShift) {
    for (Ref& r : record.fields) rebase(r, textShift, sideShift);
    record.lineAt = quint32(qsizetype(record.lineAt) + textShift);
}

void settleNewSide(Record& record, qsizetype at) {
    for (Ref& r : record.fields)
        if (baseOf(r) == kInNewSide) r = ref(kInSide, offsetOf(r) + at, r.size);
}

BlockArena::BlockArena(qsizetype blocks)
    : TwoEndedRoom(blocks * ((qsizetype(sizeof(Block)) + 64 + kAlign - 1) / kAlign * kAlign)) {}

void* BlockArena::take(qsizetype bytes) {
    return takeUpper((bytes + kAlign - 1) / kAlign * kAlign);
}

std::shared_ptr<Block> newBlock(const std::shared_ptr<BlockArena>& arena) {
    // Records need no initial value: a slot is written before it is read.
    if (arena) return std::allocate_shared_for_overwrite<Block>(ArenaAllocator<Block>(arena));
    return std::make_shared_for_overwrite<Block>();
}

}  // namespace varnel::rows

namespace varnel {

using namespace rows;

void LogRows::Data::pushBack(const Record& r) {
    emplaceBack() = r;
}

void LogRows::Data::pushFront(const Record& r) {
    if (first == 0) {
        blocks.insert(blocks.begin(), newBlock(arena));
        first = kBlockRows;
    }
    --first;
    ++count;
    writable(0) = r;
}

void LogRows::Data::dropFront(qsizetype n) {
    first += n;
    count -= n;
    const qsizetype whole = count == 0 ? qsizetype(blocks.size()) : first / kBlockRows;
    blocks.erase(blocks.begin(), blocks.begin() + whole);
    first = count == 0 ? 0 : first % kBlockRows;
}

LogRows::Data::Shift LogRows::Data::makeRoom(qsizetype textMore, qsizetype sideMore) {
    if (text->roomAfter(textEnd, textMore) && side->roomAfter(sideEnd, sideMore)) return {};
    // Side text of the dropped rows is dead; the live rows' side text starts
    // at the lowest side offset any of them uses.
    qsizetype sideFrom = sideEnd;
    for (qsizetype i = 0; i < count; ++i)
        for (const Ref& r : record(i).fields)
            if (baseOf(r) == kInSide && r.size > 0) sideFrom = std::min(sideFrom, offsetOf(r));
    text = storeWithRoom(liveText(), textMore);
    side = storeWithRoom(QByteArrayView(side->data() + sideFrom, sideEnd - sideFrom), sideMore);
    const Shift shift{-textBegin, -sideFrom};
    std::vector<std::shared_ptr<Block>> old = std::move(blocks);
    const qsizetype oldFirst = first;
    blocks.clear();
    first = 0;
    const qsizetype n = count;
    count = 0;
    for (qsizetype i = 0; i < n; ++i) {
        const qsizetype slot = oldFirst + i;
        Record r = old[size_t(slot / kBlockRows)]->records[size_t(slot % kBlockRows)];
        rebase(r, shift.text, shift.side);
        pushBack(r);
    }
    textEnd -= textBegin;
    textBegin = 0;
    sideEnd -= sideFrom;
    return shift;
}

qsizetype LogRows::Data::appendText(QByteArrayView bytes) {
    const qsizetype at = text->append(bytes);
    textEnd += bytes.size();
    return at;
}

qsizetype LogRows::Data::appendSide(QByteArrayView bytes) {
    const qsizetype at = side->append(bytes);
    sideEnd += bytes.size();
    return at;
}

}  // namespace varnel
