#pragma once

#include <QString>
#include <QStringView>
#include <QUtf8StringView>

// What the log table puts into a cell, a tool tip and the follow notice: laying
// text out costs more than linearly in its length, so nothing the table draws
// may grow with a log line.
namespace varnel {

// Characters of one message a cell lays out: a screenful when wrapped in a
// normal column, and a few milliseconds of layout at worst.
inline constexpr qsizetype cellCharacterCap = 2000;

// A row's message as a cell shows it: its head, and how many characters
// (UTF-16 code units, as the text is drawn) follow.
struct CellText {
    QUtf8StringView head;
    qsizetype more = 0;

    // The head, then " … N more characters" when something was left out.
    QString toString() const;
};

// The head holds at most `cap` code units and ends at a character's end.
CellText cellText(QUtf8StringView message, qsizetype cap = cellCharacterCap);

// A raw line (or the lines of a folded row) for a tool tip: long lines broken
// into pieces a screen can hold, at most a few of them, and then how many
// characters were left for the detail view.
QString tooltipText(QStringView raw);

// "1 new row ↓", "12 new rows ↓".
QString newRowsText(qsizetype count);

}  // namespace varnel
