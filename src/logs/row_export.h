#pragma once

#include <QByteArray>
#include <QList>
#include <QStringList>
#include <QStringView>

#include "logs/log_rows.h"

namespace varnel {

enum class ExportFormat {
    rawLines,  // the lines as logged, folded lines included
    csv,       // Time, Level, Source, Message as the table has them
};

// CSV for a name ending in ".csv" (any case), raw lines for anything else.
ExportFormat exportFormatFor(QStringView fileName);

// Which log each row came from, for rows of several logs merged.
struct RowLogs {
    QStringList titles;
    QList<qint32> logOf;  // per row: an index into titles
};

// The rows at `shown` (indices into `rows`), in that order, as UTF-8. CSV
// follows RFC 4180 (a header line, CR LF, quotes where needed), and a field
// that a spreadsheet would take for a formula starts with an apostrophe: log
// text is anybody's text. With `logs`, CSV starts each row with its log's title.
QByteArray exportRows(const LogRows& rows, const QList<qsizetype>& shown, ExportFormat format,
                      const RowLogs& logs = {});

}  // namespace varnel
