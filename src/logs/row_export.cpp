#include "logs/row_export.h"

#include <QString>

namespace varnel {

namespace {

void appendCsvField(QString& out, QStringView field) {
    const bool formula = !field.isEmpty() && QStringView(u"=+-@\t\r").contains(field.front());
    const bool quoted = formula || field.contains(u',') || field.contains(u'"') ||
                        field.contains(u'\n') || field.contains(u'\r');
    if (quoted) out += u'"';
    if (formula) out += u'\'';
    for (const QChar c : field) {
        if (c == u'"') out += u'"';
        out += c;
    }
    if (quoted) out += u'"';
}

}  // namespace

ExportFormat exportFormatFor(QStringView fileName) {
    return fileName.endsWith(u".csv", Qt::CaseInsensitive) ? ExportFormat::csv
                                                           : ExportFormat::rawLines;
}

QByteArray exportRows(const LogRows& rows, const QList<qsizetype>& shown, ExportFormat format) {
    QString out;
    if (format == ExportFormat::rawLines) {
        for (const qsizetype index : shown) {
            out += rows[index].raw;
            out += u'\n';
        }
        return out.toUtf8();
    }
    out += QStringLiteral("Time,Level,Source,Message\r\n");
    for (const qsizetype index : shown) {
        const LogRowView row = rows[index];
        appendCsvField(out, row.time);
        out += u',';
        appendCsvField(out, row.level);
        out += u',';
        appendCsvField(out, row.source);
        out += u',';
        appendCsvField(out, row.message);
        out += QStringLiteral("\r\n");
    }
    return out.toUtf8();
}

}  // namespace varnel
