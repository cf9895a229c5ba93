#include "logs/log_stream.h"

namespace varnel {

namespace {

// A row that folds in more than this is handed on and let go, so that no
// endless run of continuation lines can hold on to memory.
constexpr qsizetype kHeldLimit = 4'000'000;

LogStream::Item rowItem(const LogRowView& row) {
    return {LogStream::Item::Kind::row, row.toRow()};
}

}  // namespace

LogStream::LogStream(RowFilter filter, Rows mode) : filter_(std::move(filter)), mode_(mode) {}

LogStream::Batch LogStream::start(const LogRows& rows) {
    Batch batch;
    batch.total = rows.size();
    batch.shown = filterRows(rows, filter_).size();
    last_ = LogRows();
    batch.items = take(rows, LogRows(), false);
    return batch;
}

QList<LogStream::Item> LogStream::add(QStringView lines) {
    if (last_.isEmpty()) return take(LogRows::build(lines.toString()), LogRows(), false);
    const LogRows before = last_;
    const LogRows::Appended appended = before.appended(lines);
    return take(appended.rows, before, appended.lastChanged || appended.rebuilt);
}

// `rows` continue `before` (its one row is rows[0]) or, when it is empty, start afresh.
QList<LogStream::Item> LogStream::take(const LogRows& rows, const LogRows& before,
                                       bool lastChanged) {
    QList<Item> out;
    const QList<qsizetype> passing = filterRows(rows, filter_);
    auto pass = passing.cbegin();
    const auto passes = [&](qsizetype index) {
        while (pass != passing.cend() && *pass < index) ++pass;
        return pass != passing.cend() && *pass == index;
    };
    const qsizetype last = rows.size() - 1;
    qsizetype from = 0;
    if (!before.isEmpty() && !rows.isEmpty()) {
        from = 1;
        const bool shown = passes(0);
        if (mode_ == Rows::whole) {
            if (last > 0 && shown) out.append(rowItem(rows[0]));
        } else if (lastChanged && lastShown_) {
            const LogRowView old = before[0];
            const LogRowView now = rows[0];
            out.append({Item::Kind::continuation,
                        {{},
                         {},
                         {},
                         now.message.mid(old.message.size()).toString(),
                         now.raw.mid(old.raw.size() + 1).toString()}});
        } else if (lastChanged && shown) {
            // Hidden until its folded lines brought the search text in.
            out.append(rowItem(rows[0]));
            lastShown_ = true;
        }
    }
    for (qsizetype i = from; i <= last; ++i) {
        const bool shown = passes(i);
        if (shown && (mode_ == Rows::atOnce || i < last)) out.append(rowItem(rows[i]));
        if (mode_ == Rows::atOnce) lastShown_ = shown;
    }
    last_ = rows.lastOnly();
    if (!last_.isEmpty() && last_[0].raw.size() > kHeldLimit) out += end();
    return out;
}

QList<LogStream::Item> LogStream::quiet() {
    return mode_ == Rows::whole ? end() : QList<Item>();
}

QList<LogStream::Item> LogStream::end() {
    QList<Item> out;
    if (mode_ == Rows::whole && !last_.isEmpty() && !filterRows(last_, filter_).isEmpty())
        out.append(rowItem(last_[0]));
    last_ = LogRows();
    lastShown_ = false;
    return out;
}

}  // namespace varnel
