#include "logs/row_storage.h"

#include <algorithm>

namespace varnel::rows {

bool isAsciiRow(const LogRowView& v) {
    return QtPrivate::isAscii(v.time) && QtPrivate::isAscii(v.level) &&
           QtPrivate::isAscii(v.source) && QtPrivate::isAscii(v.message);
}

namespace {

void rebase(Ref& ref, qsizetype textShift, qsizetype sideShift) {
    const quint32 base = baseOf(ref);
    if (base == kFixedWord) return;
    if (ref.size == 0) {
        // An empty field may sit anywhere, even in text that has gone.
        ref.at = base << kBaseShift;
        return;
    }
    const qsizetype shift = base == kInText ? textShift : sideShift;
    ref.at = quint32(offsetOf(ref) + shift) | (base << kBaseShift);
}

bool roomIn(const Chars& chars, qsizetype end, qsizetype more) {
    return chars.s.size() == end && chars.s.isDetached() &&
           chars.s.capacity() - chars.s.size() >= more;
}

std::shared_ptr<Chars> charsWithRoom(QStringView live, qsizetype more) {
    auto chars = std::make_shared<Chars>();
    chars->s.reserve(live.size() + std::max(live.size(), more) + more + 4096);
    chars->s.append(live);
    return chars;
}

}  // namespace

void rebase(Record& record, qsizetype textShift, qsizetype sideShift) {
    for (Ref& ref : record.fields) rebase(ref, textShift, sideShift);
    record.lineAt = quint32(qsizetype(record.lineAt) + textShift);
}

}  // namespace varnel::rows

namespace varnel {

using namespace rows;

std::shared_ptr<LogRows::Data> LogRows::Data::fromFlat(Flat&& flat) {
    auto data = std::make_shared<Data>();
    data->textEnd = flat.text.size();
    data->text->s = std::move(flat.text);
    data->sideEnd = flat.side.size();
    flat.side.squeeze();
    data->side->s = std::move(flat.side);
    data->blocks.reserve((flat.records.size() + kBlockRows - 1) / kBlockRows);
    for (const Record& r : flat.records) data->pushBack(r);
    return data;
}

Record& LogRows::Data::writable(qsizetype i) {
    const qsizetype slot = first + i;
    std::shared_ptr<Block>& block = blocks[size_t(slot / kBlockRows)];
    if (block.use_count() > 1) block = std::make_shared<Block>(*block);
    return block->records[size_t(slot % kBlockRows)];
}

void LogRows::Data::pushBack(const Record& r) {
    if (first + count == qsizetype(blocks.size()) * kBlockRows)
        blocks.push_back(std::make_shared<Block>());
    ++count;
    writable(count - 1) = r;
}

void LogRows::Data::pushFront(const Record& r) {
    if (first == 0) {
        blocks.insert(blocks.begin(), std::make_shared<Block>());
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

void LogRows::Data::makeRoom(qsizetype textMore, qsizetype sideMore) {
    if (roomIn(*text, textEnd, textMore) && roomIn(*side, sideEnd, sideMore)) return;
    // Side text of the dropped rows is dead; the live rows' side text starts
    // at the lowest side offset any of them uses.
    qsizetype sideFrom = sideEnd;
    for (qsizetype i = 0; i < count; ++i)
        for (const Ref& ref : record(i).fields)
            if (baseOf(ref) == kInSide && ref.size > 0)
                sideFrom = std::min(sideFrom, offsetOf(ref));
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

Ref LogRows::Data::appendSide(QStringView more) {
    const Ref ref = sideRef(sideEnd, more.size());
    side->s.append(more);
    sideEnd += more.size();
    return ref;
}

}  // namespace varnel
