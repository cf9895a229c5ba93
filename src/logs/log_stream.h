#pragma once

#include <QByteArrayView>
#include <QList>

#include "logs/log_filter.h"
#include "logs/log_rows.h"

namespace varnel {

// The rows of a followed log as a stream that is only ever added to, for a
// terminal or a pipe: a row handed on is never taken back, and none is handed
// on twice. Only the last row is kept, so the stream runs in bounded memory
// however much it is fed.
class LogStream {
public:
    enum class Rows {
        // Each row as soon as its line is read; lines later folded into a row
        // already handed on come as a continuation of it.
        atOnce,
        // Each row once it is whole: the last one waits until a row after it
        // starts, the log goes quiet or the text ends. Lines that would fold
        // into it after that come as rows of their own.
        whole,
    };

    struct Item {
        enum class Kind { row, continuation };
        Kind kind = Kind::row;
        // For a continuation, `message` is what the row's message gained (from
        // a fold separator on) and `raw` the lines folded in.
        LogRowView row;
    };

    // Items handed on at once, viewing rows they keep alive.
    struct Items {
        QList<Item> list;
        LogRows rows;  // what the views look into

        bool isEmpty() const { return list.isEmpty(); }
        qsizetype size() const { return list.size(); }
        Items& operator+=(const Items& more);
    };

    struct Batch {
        Items items;
        qsizetype total = 0;  // rows read
        qsizetype shown = 0;  // of them, rows that pass the filter
    };

    LogStream(RowFilter filter, Rows mode);

    // The rows read first, all at once (a log's tail).
    Batch start(const LogRows& rows);
    // Whole lines, each with its line feed, that follow what came before
    // (UTF-8, read as LogText reads it).
    Items add(QByteArrayView lines);
    // Nothing arrived for a while: a held row is as whole as it gets.
    Items quiet();
    // The text ends here: what follows, if anything, starts a text of its own.
    Items end();

private:
    Items take(const LogRows& rows, const LogRows& before, bool lastChanged,
               const QList<qsizetype>& passing);

    RowFilter filter_;
    Rows mode_;
    LogRows last_;            // the last row alone, that later lines may fold into
    bool lastShown_ = false;  // it was handed on (atOnce) or passes the filter (whole)
};

}  // namespace varnel
