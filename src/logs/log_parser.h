#pragma once

#include <QRegularExpression>
#include <QString>
#include <QStringView>

namespace varnel {

// One log line taken apart. Levels are one of TRACE DEBUG INFO WARN ERROR FATAL,
// or (from JSON) any other word upper-cased, or empty.
struct LogRow {
    QString time;
    QString level;
    QString source;
    QString message;
    QString raw;

    bool operator==(const LogRow&) const = default;
};

namespace LogParser {

// The three patterns, compiled once on first use and shared by every thread.
const QRegularExpression& tsRegex();
const QRegularExpression& levelRegex();
const QRegularExpression& ansiRegex();

// Removes terminal control sequences (ESC [ digits/semicolons letter).
QString stripANSI(QStringView text);

// WARNING -> WARN, ERR -> ERROR, CRITICAL -> FATAL; anything else upper-cased.
QString normLevel(QStringView text);

// Never fails: what is not recognised lands in the message.
LogRow parse(QStringView line);

}  // namespace LogParser

}  // namespace varnel
