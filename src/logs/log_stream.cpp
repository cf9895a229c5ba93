#include "logs/log_stream.h"

namespace varnel {

namespace {

// A row that folds in more than this many bytes is handed on and let go, so
// that no endless run of continuation lines can hold on to memory.
constexpr qsizetype kHeldLimit = 4'000'000;

}  // namespace

LogStream::Items& LogStream::Items::operator+=(const Items& more) {
    if (more.isEmpty()) return *this;
    // Both view the same buffers when they come from one stream step; keep
    // the rows of whichever has items.
    if (list.isEmpty()) rows = more.rows;
    list += more.list;
    return *this;
}

LogStream::LogStream(RowFilter filter, Rows mode) : filter_(std::move(filter)), mode_(mode) {}

LogStream::Batch LogStream::start(const LogRows& rows) {
    Batch batch;
    const QList<qsizetype> passing = filterRows(rows, filter_);
    batch.total = rows.size();
    batch.shown = passing.size();
    last_ = LogRows();
    batch.items = take(rows, LogRows(), false, passing);
    return batch;
}

LogStream::Items LogStream::add(QByteArrayView lines) {
    if (last_.isEmpty()) {
        const LogRows rows = LogRows::build(LogText(lines));
        return take(rows, LogRows(), false, filterRows(rows, filter_));
    }
    const LogRows before = last_;
    const LogRows::Appended appended = before.appended(lines);
    return take(appended.rows, before, appended.lastChanged || appended.rebuilt,
                filterRows(appended.rows, filter_));
}

// `rows` continue `before` (its one row is rows[0]) or, when it is empty, start afresh.
LogStream::Items LogStream::take(const LogRows& rows, const LogRows& before, bool lastChanged,
                                 const QList<qsizetype>& passing) {
    Items out;
    out.rows = rows;
    auto pass = passing.cbegin();
    const auto passes = [&](qsizetype index) {
        while (pass != passing.cend() && *pass < index) ++pass;
        return pass != passing.cend() && *pass == index;
    };
    const auto rowItem = [&](qsizetype i) { out.list.append({Item::Kind::row, rows[i]}); };
    const qsizetype last = rows.size() - 1;
    qsizetype from = 0;
    if (!before.isEmpty() && !rows.isEmpty()) {
        from = 1;
        const bool shown = passes(0);
        if (mode_ == Rows::whole) {
            if (last > 0 && shown) rowItem(0);
        } else if (lastChanged && lastShown_) {
            const LogRowView old = before[0];
            const LogRowView now = rows[0];
            LogRowView gained;
            gained.message = now.message.sliced(old.message.size());
            gained.raw = now.raw.sliced(qMin(now.raw.size(), old.raw.size() + 1));
            out.list.append({Item::Kind::continuation, gained});
        } else if (lastChanged && shown) {
            // Hidden until its folded lines brought the search text in.
            rowItem(0);
            lastShown_ = true;
        }
    }
    out.list.reserve(out.list.size() + passing.size());
    for (qsizetype i = from; i <= last; ++i) {
        const bool shown = passes(i);
        if (shown && (mode_ == Rows::atOnce || i < last)) rowItem(i);
        if (mode_ == Rows::atOnce) lastShown_ = shown;
    }
    last_ = rows.lastOnly();
    if (!last_.isEmpty() && last_[0].raw.size() > kHeldLimit) out += end();
    return out;
}

LogStream::Items LogStream::quiet() {
    return mode_ == Rows::whole ? end() : Items();
}

LogStream::Items LogStream::end() {
    Items out;
    if (mode_ == Rows::whole && !last_.isEmpty() && !filterRows(last_, filter_).isEmpty()) {
        out.rows = last_;
        out.list.append({Item::Kind::row, last_[0]});
    }
    last_ = LogRows();
    lastShown_ = false;
    return out;
}

}  // namespace varnel
