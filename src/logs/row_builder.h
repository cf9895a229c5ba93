#pragma once

// Turning lines into row records: for the files that build rows.

#include <QString>
#include <QStringView>
#include <vector>

#include "logs/row_storage.h"

namespace varnel::rows {

// A continuation line: its trimmed message, and the line as read, in the text.
struct Fold {
    Ref message;
    Ref line;
};

// Parses lines into records and folds continuation lines into the
// time-stamped row before them. Folds are collected and written once when the
// row is complete, so a long stack trace costs linear time and space.
class Builder {
public:
    explicit Builder(Flat& d) : d_(d) {}

    // One line (without its line end) that starts at `lineAt` in the text.
    void add(QStringView line, qsizetype lineAt);
    void finish() { finishLast(); }

    // Continuation lines at the start of what this builder read, before any
    // row of its own: they fold into a time-stamped row before them.
    const std::vector<Fold>& leading() const { return leading_; }

    // Appends the rows another builder made from the lines that follow this
    // builder's, over the same text.
    void appendPart(Flat& part, const Builder& partBuilder);

private:
    void finishLast();
    void fold(Record& last);
    Ref append(const QString& text);

    Flat& d_;
    std::vector<Fold> folds_;
    bool lastStamped_ = false;
    bool anchored_ = false;
    std::vector<Fold> leading_;
};

// Every line of all[from, to) that is not blank, CR LF read as LF.
void addLines(Builder& builder, QStringView all, qsizetype from, qsizetype to);

// A row's message and raw text with lines of `part` folded in.
QString foldedMessage(QStringView message, const Flat& part, const std::vector<Fold>& folds);
QString foldedRaw(QStringView raw, const Flat& part, const std::vector<Fold>& folds);

// The rows of a whole text, large ones parsed on two threads.
Flat buildFlat(QString text);

}  // namespace varnel::rows
