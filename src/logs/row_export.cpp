#include "logs/row_export.h"

#include <QByteArray>

#include "logs/utf8.h"

namespace varnel {

namespace {

// Every character that matters here is ASCII, so the UTF-8 bytes are read as they are.
void appendCsvField(QByteArray& out, QUtf8StringView text) {
    const QByteArrayView field = utf8::bytes(text);
    const bool formula = !field.isEmpty() && QByteArrayView("=+-@\t\r").contains(field.front());
    const bool quoted = formula || field.contains(',') || field.contains('"') ||
                        field.contains('\n') || field.contains('\r');
    if (quoted) out += '"';
    if (formula) out += '\'';
    for (const char c : field) {
        if (c == '"') out += '"';
        out += c;
    }
    if (quoted) out += '"';
}

}  // namespace

ExportFormat exportFormatFor(QStringView fileName) {
    return fileName.endsWith(u".csv", Qt::CaseInsensitive) ? ExportFormat::csv
                                                           : ExportFormat::rawLines;
}

QByteArray exportRows(const LogRows& rows, const QList<qsizetype>& shown, ExportFormat format,
                      const RowLogs& logs) {
    QByteArray out;
    if (format == ExportFormat::rawLines) {
        for (const qsizetype index : shown) {
            out += utf8::bytes(rows[index].raw);
            out += '\n';
        }
        return out;
    }
    const bool withLog = !logs.logOf.isEmpty();
    out += withLog ? "Log,Time,Level,Source,Message\r\n" : "Time,Level,Source,Message\r\n";
    for (const qsizetype index : shown) {
        const LogRowView row = rows[index];
        if (withLog) {
            appendCsvField(out,
                           QUtf8StringView(logs.titles.value(logs.logOf.value(index)).toUtf8()));
            out += ',';
        }
        appendCsvField(out, row.time);
        out += ',';
        appendCsvField(out, row.level);
        out += ',';
        appendCsvField(out, row.source);
        out += ',';
        appendCsvField(out, row.message);
        out += "\r\n";
    }
    return out;
}

}  // namespace varnel
