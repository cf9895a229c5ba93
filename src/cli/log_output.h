#pragma once

#include <QByteArrayView>
#include <QString>
#include <QStringView>

#include "cli/text_buffer.h"
#include "logs/log_presentation.h"
#include "logs/log_rows.h"

namespace varnel::cli {

// A JSON string literal, quotes included; text outside ASCII is written as is.
QString jsonString(QStringView text);
// The same for valid UTF-8, appended to `out`.
void appendJsonString(TextBuffer& out, QByteArrayView utf8);

// One row as a JSON object with the keys time, level, source, message and raw,
// in that order, and a line feed; with a log's title, "log" comes first.
void appendRowJson(TextBuffer& out, const LogRowView& row, QByteArrayView log = {});

// Whether terminal colours are wanted: only on a terminal, and never when NO_COLOR is set.
bool wantColour(bool outIsTerminal);

// Lays rows out in aligned columns. The columns widen as wider rows arrive, so
// rows printed later (while following) stay aligned with earlier ones where they can.
class RowFormatter {
public:
    explicit RowFormatter(bool colour) : colour_(colour) {}

    // Widens the columns for a batch before any of it is printed. Rows of
    // several logs carry their log's title, shown in a column of its own first.
    void fit(const LogRowView& row, QByteArrayView log = {});
    // One line, or several when the message holds line breaks; ends with a line feed.
    void row(TextBuffer& out, const LogRowView& row, QByteArrayView log = {});
    // Text that belongs to the row printed last, indented under its message.
    void continuation(TextBuffer& out, QUtf8StringView text) const;

private:
    qsizetype messageColumn() const;
    // One cell written at `o`, padded to its column; where it ends.
    char* cell(char* o, QUtf8StringView text, qsizetype textWidth, qsizetype width,
               SystemColor colour, bool bold) const;

    bool colour_;
    qsizetype log_ = 0;
    qsizetype time_ = 0;
    qsizetype level_ = 0;
    qsizetype source_ = 0;
};

}  // namespace varnel::cli
