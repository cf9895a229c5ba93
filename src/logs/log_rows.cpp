#include "logs/log_rows.h"

#include "logs/row_builder.h"
#include "logs/row_storage.h"

namespace varnel {

using namespace rows;

LogRow LogRowView::toRow() const {
    return {time.toString(), level.toString(), source.toString(), message.toString(),
            raw.toString()};
}

LogRows::LogRows() : d(std::make_shared<Data>()) {}

LogRows LogRows::build(QString text) {
    LogRows rows;
    rows.d = Data::fromFlat(buildFlat(std::move(text)));
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
    rows.d = Data::fromFlat(std::move(flat));
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

    // Continuation lines at the start of `more` fold into a time-stamped last row.
    const std::vector<Fold>& leading = builder.leading();
    const bool fold = !leading.empty() && size() > 0 && !(*this)[size() - 1].time.isEmpty();
    QString message;
    QString raw;
    if (fold) {
        message = foldedMessage((*this)[size() - 1].message, part, leading);
        raw = foldedRaw((*this)[size() - 1].raw, part, leading);
    }

    auto data = std::make_shared<Data>(*d);
    data->makeRoom(part.text.size(), part.side.size() + message.size() + raw.size());
    const qsizetype textShift = data->textEnd;
    data->text->s.append(part.text);
    data->textEnd += part.text.size();
    const qsizetype sideShift = data->sideEnd;
    data->appendSide(part.side);

    if (fold) {
        Record& last = data->writable(data->count - 1);
        last.fields[kMessage] = data->appendSide(message);
        last.fields[kRaw] = data->appendSide(raw);
        last.ascii = isAsciiRow(data->row(last));
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
    data->appendSide(part.side);
    for (auto r = part.records.rbegin(); r != part.records.rend(); ++r) {
        Record record = *r;
        rebase(record, textShift, sideShift);
        data->pushFront(record);
    }
    LogRows rows;
    rows.d = std::move(data);
    return {rows, dropped, qsizetype(part.records.size())};
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
    return qsizetype(sizeof(Data)) + d->text->s.capacity() * 2 + d->side->s.capacity() * 2 +
           qsizetype(d->blocks.size() * sizeof(Block));
}

}  // namespace varnel
