#include "logs/log_rows.h"

#include <cstring>
#include <functional>

#include "logs/row_builder.h"
#include "logs/row_storage.h"
#include "logs/utf8.h"
#include "platform/background.h"

namespace varnel {

using namespace rows;

LogRow LogRowView::toRow() const {
    return {time.toString(), level.toString(), source.toString(), message.toString(),
            raw.toString()};
}

LogRows::LogRows() : d(std::make_shared<Data>()) {}

LogRows LogRows::build(const LogText& text) {
    auto data = std::make_shared<Data>();
    QByteArrayView bytes = text.bytes();
    qsizetype lineFeeds = text.lineFeeds();
    if (bytes.size() > kMaxText) {
        const qsizetype lineFeed = bytes.indexOf('\n', bytes.size() - kMaxText);
        bytes = bytes.sliced(lineFeed >= 0 ? lineFeed + 1 : bytes.size() - kMaxText);
        lineFeeds = -1;
    }
    const qsizetype begin = text.store() ? bytes.data() - text.store()->data() : 0;
    if (text.store() && begin + bytes.size() <= qsizetype(kOffsetMask)) {
        data->text = text.store();
        data->textBegin = begin;
        data->textEnd = begin + bytes.size();
    } else {
        data->text = std::make_shared<ByteStore>(bytes.size());
        data->textEnd = data->appendText(bytes) + bytes.size();
    }
    // Every row is written once, into blocks counted from the lines there are.
    const qsizetype lines = (lineFeeds >= 0 ? lineFeeds : utf8::countLineFeeds(bytes)) + 1;
    const qsizetype blocks = (lines + kBlockRows - 1) / kBlockRows;
    data->arena = std::make_shared<BlockArena>(blocks);
    data->blocks.reserve(size_t(blocks));
    // Side text goes below the blocks, in their memory while both fit.
    data->side = std::make_shared<ByteStore>(data->arena, bytes.size() / 2 + 4096);
    Builder builder(*data, *data->side, kInSide);
    builder.addLines(data->textBegin, data->textEnd);
    builder.finish();
    data->sideEnd = data->side->size();
    LogRows rows;
    rows.d = std::move(data);
    return rows;
}

LogRows LogRows::build(QStringView text) {
    return build(LogText(utf8::encode(text)));
}

LogRows LogRows::fromError(const QString& errorText) {
    auto data = std::make_shared<Data>();
    const QByteArray bytes = utf8::encode(errorText);
    data->text = std::make_shared<ByteStore>(bytes.size());
    data->textEnd = data->appendText(bytes) + bytes.size();
    Record record{};
    const Ref whole = ref(kInText, 0, bytes.size());
    record.fields[kMessage] = whole;
    record.fields[kRaw] = whole;
    record.fields[kLevel] = ref(kFixedWord, 3, 4);  // WARN
    record.bytewise = !utf8::lowersToAscii(QUtf8StringView(bytes));
    data->pushBack(record);
    LogRows rows;
    rows.d = std::move(data);
    return rows;
}

LogRows LogRows::gathered(const QList<LogRows>& parts, const std::vector<Pick>& picks,
                          QThreadPool* lane) {
    // One copy of every part's live text and side text, each part at its own
    // offset, is cheaper to search and show than a row that has to say which
    // part's buffers it lives in.
    auto data = std::make_shared<Data>();
    std::vector<Data::Shift> shifts;
    shifts.reserve(size_t(parts.size()));
    for (const LogRows& part : parts) {
        shifts.push_back({data->textEnd - part.d->textBegin, data->sideEnd});
        data->textEnd += part.d->textEnd - part.d->textBegin;
        data->sideEnd += part.d->sideEnd;
    }
    data->text = std::make_shared<ByteStore>(data->textEnd);
    data->side = std::make_shared<ByteStore>(data->sideEnd);
    char* text = data->text->extend(data->textEnd);
    char* side = data->side->extend(data->sideEnd);
    // Most of the cost is the kernel handing out fresh pages, which threads
    // can share.
    std::vector<std::function<void()>> copies;
    for (qsizetype i = 0; i < parts.size(); ++i) {
        copies.push_back([&, i] {
            const Data& from = *parts[i].d;
            const QByteArrayView live = from.liveText();
            const Data::Shift shift = shifts[size_t(i)];
            if (!live.isEmpty())
                std::memcpy(text + from.textBegin + shift.text, live.data(), size_t(live.size()));
            if (from.sideEnd > 0)
                std::memcpy(side + shift.side, from.side->data(), size_t(from.sideEnd));
        });
    }
    if (lane)
        allAtOnce(*lane, copies);
    else
        for (const auto& copy : copies) copy();

    const qsizetype blocks = (qsizetype(picks.size()) + kBlockRows - 1) / kBlockRows;
    data->arena = std::make_shared<BlockArena>(blocks);
    data->blocks.reserve(size_t(blocks));
    for (const Pick& pick : picks) {
        Record record = parts[pick.part].d->record(pick.row);
        rebase(record, shifts[size_t(pick.part)].text, shifts[size_t(pick.part)].side);
        data->pushBack(record);
    }
    LogRows rows;
    rows.d = std::move(data);
    return rows;
}

LogRows::Appended LogRows::appended(QByteArrayView more) const {
    const QByteArrayView live = d->liveText();
    if (more.isEmpty()) return {*this, false, false, 0};
    if ((!live.isEmpty() && live.back() != '\n') || live.size() + more.size() > kMaxText) {
        QByteArray whole = live.toByteArray();
        whole.append(more);
        LogRows rows = build(LogText(whole));
        return {rows, true, false, rows.size()};
    }

    auto data = std::make_shared<Data>(*d);
    data->makeRoom(more.size(), 0);
    const qsizetype from = data->appendText(more);
    const qsizetype before = data->count;
    // The side buffer is shared with this version: what the new lines need
    // is made aside and moved over once its size is known.
    ByteStore side(more.size() / 2 + 256);
    Builder builder(*data, side, kInNewSide);
    builder.continueLastRow();
    builder.addLines(from, data->textEnd);
    builder.finish();
    data->makeRoom(0, side.size());
    const qsizetype sideAt = data->appendSide(QByteArrayView(side.data(), side.size()));
    const bool lastChanged = builder.lastRowChanged();
    for (qsizetype i = lastChanged ? before - 1 : before; i < data->count; ++i)
        settleNewSide(data->writable(i), sideAt);

    LogRows rows;
    rows.d = std::move(data);
    return {rows, false, lastChanged, rows.size() - before};
}

LogRows::Trimmed LogRows::withoutLeadingLines(qsizetype lines) const {
    if (lines <= 0) return {*this, 0, 0};
    const char* text = d->text->data();
    qsizetype at = d->textBegin;
    for (qsizetype n = 0; n < lines && at < d->textEnd; ++n) {
        const void* lineFeed = std::memchr(text + at, '\n', size_t(d->textEnd - at));
        at = lineFeed == nullptr ? d->textEnd : static_cast<const char*>(lineFeed) - text + 1;
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

    Data part;
    part.text = d->text;
    ByteStore side(256);
    Builder builder(part, side, kInNewSide);
    builder.addLines(at, orphansEnd);
    builder.finish();

    auto data = std::make_shared<Data>(*d);
    data->dropFront(dropped);
    data->textBegin = at;
    const Data::Shift shift = data->makeRoom(0, side.size());
    const qsizetype sideAt = data->appendSide(QByteArrayView(side.data(), side.size()));
    for (qsizetype i = part.count - 1; i >= 0; --i) {
        Record record = part.record(i);
        rebase(record, shift.text, shift.side);
        settleNewSide(record, sideAt);
        data->pushFront(record);
    }
    LogRows rows;
    rows.d = std::move(data);
    return {rows, dropped, part.count};
}

LogRows LogRows::lastOnly() const {
    if (d->count <= 1) return *this;
    auto data = std::make_shared<Data>(*d);
    data->dropFront(d->count - 1);
    data->textBegin = data->record(0).lineAt;
    LogRows rows;
    rows.d = std::move(data);
    return rows;
}

qsizetype LogRows::size() const {
    return d->count;
}

LogRowView LogRows::operator[](qsizetype index) const {
    return d->row(d->record(index));
}

qsizetype LogRows::memoryBytes() const {
    return qsizetype(sizeof(Data)) + (d->textEnd - d->textBegin) + d->sideEnd +
           qsizetype(d->blocks.size() * sizeof(Block));
}

}  // namespace varnel
