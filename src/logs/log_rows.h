#pragma once

#include <QByteArrayView>
#include <QList>
#include <QString>
#include <QUtf8StringView>
#include <memory>
#include <vector>

#include "logs/log_parser.h"
#include "logs/log_text.h"

class QThreadPool;

namespace varnel {

// A row's fields, viewing UTF-8 text owned by the LogRows it came from;
// toString() gives a field as text.
struct LogRowView {
    QUtf8StringView time;
    QUtf8StringView level;
    QUtf8StringView source;
    QUtf8StringView message;
    QUtf8StringView raw;

    LogRow toRow() const;
};

// What stands in a row's message before each line folded into it.
inline constexpr QUtf8StringView foldSeparator = "  \u27F6  ";

// The rows of one load: lines split at line feeds, blank ones skipped, each
// parsed, and continuation lines (indented, or "at ..."/"in ...") folded into
// the time-stamped row before them. A carriage return right before a line feed
// belongs to the line end, so CR LF files read like LF files. Stored compactly:
// fields are views into the loaded text or into one side buffer, not a string
// each. Cheap to move; copies share the text. Views stay valid while any copy
// lives. A text beyond 2^28 bytes keeps only its last lines.
class LogRows {
public:
    LogRows();
    // The text is read leniently (see LogText) and kept, not copied.
    static LogRows build(const LogText& text);
    static LogRows build(QStringView text);
    // The one WARN row that stands for a log that could not be read.
    static LogRows fromError(const QString& errorText);

    // Which row of which of several loads.
    struct Pick {
        qint32 part = 0;
        qint32 row = 0;
    };
    // The rows of `parts` in the order `picks` gives, each at most once. Their
    // texts are copied once into one buffer, so the result searches and shows
    // like any load; it is a view to read, not one to append to or trim.
    // Together the parts must hold less than 2^30 bytes (see memoryBytes()).
    // With a lane, the parts' texts are copied several at a time.
    static LogRows gathered(const QList<LogRows>& parts, const std::vector<Pick>& picks,
                            QThreadPool* lane = nullptr);

    struct Appended;
    struct Trimmed;
    // The rows build() gives for this text followed by `more`. Only the new
    // lines are parsed when this text is empty or ends in a line feed (their
    // continuation lines may fold into the last row); otherwise, or beyond the
    // size limit, everything is built again and `rebuilt` says so.
    Appended appended(QByteArrayView more) const;
    // The rows build() gives for this text without its first `lines` lines
    // (a line being everything up to and including a line feed).
    Trimmed withoutLeadingLines(qsizetype lines) const;
    // The last row alone, with the lines it was read from: all that lines
    // appended later can fold into.
    LogRows lastOnly() const;

    qsizetype size() const;
    bool isEmpty() const { return size() == 0; }
    // index must be below size().
    LogRowView operator[](qsizetype index) const;

    // Bytes held for the rows (text, side buffer and row records), for measuring.
    qsizetype memoryBytes() const;

    // Defined where rows are built and searched; opaque everywhere else.
    struct Data;
    const Data& data() const { return *d; }

private:
    std::shared_ptr<const Data> d;
};

struct LogRows::Appended {
    LogRows rows;
    bool rebuilt = false;      // no row can be assumed to be what it was
    bool lastChanged = false;  // the row that was last has more folded into it
    qsizetype added = 0;       // rows at the end that are new
};

struct LogRows::Trimmed {
    LogRows rows;
    qsizetype dropped = 0;    // rows gone from the front
    qsizetype rederived = 0;  // rows then put at the front: lines that had been folded into a
                              // dropped row, now rows of their own
};

}  // namespace varnel
