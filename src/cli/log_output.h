#pragma once

#include <QString>
#include <QStringView>

#include "logs/log_parser.h"
#include "logs/log_presentation.h"

namespace varnel::cli {

// A JSON string literal, quotes included; text outside ASCII is written as is.
QString jsonString(QStringView text);

// One row as a JSON object with the keys time, level, source, message and raw, in that order.
QString rowJson(const LogRow& row);

// Whether terminal colours are wanted: only on a terminal, and never when NO_COLOR is set.
bool wantColour(bool outIsTerminal);

// Lays rows out in aligned columns. The columns widen as wider rows arrive, so
// rows printed later (while following) stay aligned with earlier ones where they can.
class RowFormatter {
public:
    explicit RowFormatter(bool colour) : colour_(colour) {}

    // Widens the columns for a batch before any of it is printed.
    void fit(const LogRow& row);
    // One line, or several when the message holds line breaks; ends with a line feed.
    QString row(const LogRow& row);
    // Text that belongs to the row printed last, indented under its message.
    QString continuation(QStringView text) const;

private:
    qsizetype messageColumn() const;

    bool colour_;
    qsizetype time_ = 0;
    qsizetype level_ = 0;
    qsizetype source_ = 0;
};

}  // namespace varnel::cli
