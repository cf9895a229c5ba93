#pragma once

#include <QString>
#include <QtGlobal>

#include "logs/log_reader.h"
#include "logs/log_rows.h"

namespace varnel {

// What one look at a followed log changed, in the order to apply it to a
// list of the previous rows.
struct LogFollowChange {
    enum class Kind {
        nothing,   // the rows are as they were
        grown,     // the fields below say what changed
        reloaded,  // the rows were read afresh: assume nothing
    };
    Kind kind = Kind::nothing;
    qsizetype dropped = 0;     // first, rows gone from the front as the window moved
    qsizetype rederived = 0;   // then rows put at the front (lines of a dropped row)
    bool lastChanged = false;  // then the last row gained folded lines; it is now at
                               // rows().size() - added - 1
    qsizetype added = 0;       // then rows added at the end
};

// One followed log and the rows a full load of its tail would give now,
// kept up to date at the cost of what changed: a look at an unchanged file is
// one stat, and lines appended are the only ones read and parsed. Whatever
// cannot be continued with certainty (another file at the path, a cut, a
// UTF-16 log, a last line without its line feed, a failed read) is read whole
// again.
class LogFollow {
public:
    explicit LogFollow(QString path = {}, quint64 maxBytes = 4'000'000);

    // Reads the tail afresh.
    LogFollowChange load();
    // Brings the rows up to date with the file.
    LogFollowChange update();

    const QString& path() const { return reader_.path(); }
    const LogRows& rows() const { return rows_; }
    // The file was longer than the window.
    bool truncated() const { return truncated_; }

private:
    LogReader reader_;
    quint64 maxBytes_;
    LogRows rows_;
    bool truncated_ = false;
    bool continuable_ = false;  // the rows stand for the file's bytes [windowStart_, offset)
    quint64 windowStart_ = 0;
};

}  // namespace varnel
