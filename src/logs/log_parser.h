#pragma once

#include <QByteArray>
#include <QRegularExpression>
#include <QString>
#include <QStringView>
#include <QUtf8StringView>
#include <iterator>

#include "logs/json_fields.h"

namespace varnel {

class ByteStore;

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

// Character limits (80 for the level search, 24 for a bracketed tag, 40 for a
// component prefix) and the "first three positions" of a level word are all
// counted in Unicode code points: a surrogate pair is one character, so no limit
// ever cuts one in half. For ASCII this is the plain character count.
//
// A line holding a lone surrogate (broken UTF-16) is read as if each were
// U+FFFD, and so is a lone surrogate that a JSON escape spells: fields are text
// that UTF-8 can hold.
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

// The same reading done step by step with Qt's JSON reader and regular
// expressions only. parse() takes hand-written shortcuts over UTF-8 and falls
// back to these engines where a shortcut cannot decide; this is what it must
// always agree with.
LogRow parseReference(QStringView line);

// Where a field of a parsed line lives, so that callers keeping many rows can
// store offsets instead of strings.
enum class SpanBase : quint8 {
    line,  // a slice of the line handed to Parser::parse
    side,  // a slice of the side buffer handed to Parser::parse
    word,  // one of the fixed words, pos is its index for fixedWord()
};

struct Span {
    qsizetype pos = 0;
    qsizetype size = 0;
    SpanBase base = SpanBase::line;
};

struct Spans {
    Span time, level, source, message, raw;
    // time, level, source and message hold no character whose lower case is
    // ASCII other than ASCII itself (U+0130 and U+212A are the only two): an
    // ASCII search that ignores ASCII case finds in them what a search of
    // the lower-cased text finds.
    bool bytewise = true;
    // True when the hand-written reading decided the line alone, without
    // falling back to an engine; tests use it to see the shortcuts are taken.
    bool decidedFast = true;
};

// What the one pass that found a line's end learnt about it.
struct LineFacts {
    bool ascii = false;      // no byte above 0x7F
    bool escape = true;      // may hold ESC
    bool lineFeeds = false;  // may hold line feeds (the line was not split at them)
};

// The words a Span with base `word` names: the six levels, then "0" and "1"
// (JSON false and true).
inline constexpr QUtf8StringView kFixedWords[] = {"TRACE", "DEBUG", "INFO", "WARN",
                                                  "ERROR", "FATAL", "0",    "1"};
inline QUtf8StringView fixedWord(qsizetype index) {
    return index >= 0 && index < qsizetype(std::size(kFixedWords)) ? kFixedWords[index]
                                                                   : QUtf8StringView();
}

inline QUtf8StringView resolve(const Span& span, QUtf8StringView line, QUtf8StringView side) {
    switch (span.base) {
        case SpanBase::line:
            return line.sliced(span.pos, span.size);
        case SpanBase::side:
            return side.sliced(span.pos, span.size);
        case SpanBase::word:
            return fixedWord(span.pos);
    }
    return {};
}

// parse() over UTF-8, with every field a slice of the line where it can be.
// Text that had to be made (ANSI-stripped lines, unescaped JSON strings,
// folded case) is appended to `side`. Keeps a scratch buffer between lines.
class Parser {
public:
    // `line` must be valid UTF-8. The facts come by reference: callers build
    // them from flags a byte at a time, which a whole-word copy into a
    // register would have to wait for.
    Spans parse(QUtf8StringView line, const LineFacts& facts, ByteStore& side);

private:
    QByteArray scratch_;
    json_fields::Reader json_;
};

// parse() by a parser kept from line to line, as rows are built: what a line
// reads as never depends on the lines read before it.
LogRow parse(QStringView line, Parser& parser);

}  // namespace LogParser

}  // namespace varnel
