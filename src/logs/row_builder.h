#pragma once

// Turning lines into row records: for the files that build rows.

#include <QByteArray>
#include <QUtf8StringView>
#include <vector>

#include "logs/log_parser.h"
#include "logs/row_storage.h"
#include "logs/utf8.h"

namespace varnel::rows {

// Parses the lines of the rows' text into records, written straight into the
// rows, and folds continuation lines into the time-stamped row before them.
// Folds are collected and written once when the row is complete, so a long
// stack trace costs linear time and space.
class Builder {
public:
    // Side text goes to the rows' own side buffer (kInSide), or, while that
    // is shared, to `side` (kInNewSide) for the caller to move over.
    Builder(LogRows::Data& d, ByteStore& side, quint32 sideBase);

    // Lines that follow go on from the rows there are: continuation lines
    // fold into a time-stamped last row.
    void continueLastRow();
    // Every line of the text in [from, to) that is not blank, CR LF read as LF.
    void addLines(qsizetype from, qsizetype to);
    void finish() { finishLast(); }

    // The row that was last before continueLastRow() has lines folded into it.
    bool lastRowChanged() const { return lastRowChanged_; }

private:
    struct Fold {
        Ref message;  // its trimmed message
        Ref line;     // the line as read
        bool bytewise = true;
    };

    void add(QUtf8StringView line, quint32 lineBase, qsizetype lineAt, qsizetype textAt,
             const utf8::LineScan& scan);
    void finishLast();
    void fold(Record& last);
    QUtf8StringView view(Ref ref) const;
    Ref toRef(const LogParser::Span& span, quint32 lineBase, qsizetype lineAt) const;

    LogRows::Data& d_;
    ByteStore& side_;
    quint32 sideBase_;
    LogParser::Parser parser_;
    QByteArray repaired_;
    std::vector<Fold> folds_;
    bool lastStamped_ = false;
    qsizetype continued_ = -1;  // the row continueLastRow() went on from
    bool lastRowChanged_ = false;
};

}  // namespace varnel::rows
