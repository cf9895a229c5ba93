#pragma once

#include <QList>
#include <QString>
#include <optional>

#include "logs/log_parser.h"
#include "logs/log_rows.h"
#include "logs/log_tail.h"

namespace varnel::cli {

// Something to print while following a log.
struct FollowItem {
    enum class Kind {
        row,           // a row of its own
        continuation,  // lines folded into the row printed last: `message` holds what they
                       // add to its message, `raw` the lines themselves
    };
    Kind kind = Kind::row;
    LogRow row;

    bool operator==(const FollowItem&) const = default;
};

struct FollowStep {
    enum class Kind {
        nothing,  // no change
        grown,    // `items` are what the log gained
        restart,  // the log no longer continues what was read: `items` are all its rows
        failed,   // the log cannot be read (any more): `items` hold its warning row
    };
    Kind kind = Kind::nothing;
    QList<FollowItem> items;
    // For the status line after a restart.
    qsizetype shown = 0;
    qsizetype total = 0;
    bool truncated = false;
};

// Turns successive reads of one log into what is new in each, under one level choice and
// search text. A row already printed cannot be taken back: when later lines fold into it
// they come as a continuation, and when it was still being written it is printed again whole.
class LogFollower {
public:
    LogFollower(QString levelChoice, QString search);

    // The first read: exactly the rows the viewer would show.
    FollowStep start(const LogTail& tail);

    // A later read. `replaced`: the file is not the one read before, or it shrank.
    FollowStep update(const LogTail& tail, bool replaced);

private:
    FollowStep restartWith(const LogTail& tail, FollowStep::Kind kind);
    QList<FollowItem> itemsFrom(const LogRows& rows, qsizetype first) const;

    QString level_;
    QString search_;
    std::optional<QString> error_;
    QString text_;
    LogRows rows_;
    bool lastShown_ = false;  // whether the last of rows_ passed the filter and was printed
};

}  // namespace varnel::cli
