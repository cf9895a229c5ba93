// Any text, as UTF-8 bytes and as raw UTF-16 (lone surrogates included): the
// fast reading must give exactly the engines' row; rows built from the bytes,
// read leniently, must be the rows built line by line the plain way from the
// decoded text; and every row printed as JSON must read back as itself, and as
// terminal text must hold no control.
#include <QJsonDocument>
#include <QJsonObject>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "cli/log_output.h"
#include "cli/terminal_text.h"
#include "logs/log_filter.h"
#include "logs/log_parser.h"
#include "logs/log_rows.h"
#include "logs/utf8.h"
#include "platform/text.h"

namespace {

using varnel::LogRow;

void fail(const char* what, const LogRow& a, const LogRow& b) {
    std::fprintf(stderr, "%s\n[%s|%s|%s|%s|%s]\n[%s|%s|%s|%s|%s]\n", what, qPrintable(a.time),
                 qPrintable(a.level), qPrintable(a.source), qPrintable(a.message),
                 qPrintable(a.raw), qPrintable(b.time), qPrintable(b.level), qPrintable(b.source),
                 qPrintable(b.message), qPrintable(b.raw));
    std::abort();
}

void requireSameRow(const QString& line) {
    const LogRow fast = varnel::LogParser::parse(line);
    const LogRow reference = varnel::LogParser::parseReference(line);
    if (fast != reference) fail("rows differ", fast, reference);
}

// Splitting, skipping blank lines and folding continuation lines, one string
// per field, with the engines' reading of each line.
QList<LogRow> plainRows(const QString& text) {
    QList<LogRow> rows;
    for (QString line : text.split(u'\n')) {
        if (line.endsWith(u'\r')) line.chop(1);
        if (varnel::text::isBlankOnly(line)) continue;
        const LogRow row = varnel::LogParser::parseReference(line);
        const QString message = varnel::text::trimBlanks(row.message).toString();
        const bool continuation =
            line.front().isSpace() || message.startsWith(u"at ") || message.startsWith(u"in ");
        if (row.time.isEmpty() && continuation && !rows.isEmpty() && !rows.back().time.isEmpty()) {
            rows.back().message += QStringLiteral("  \u27F6  ") + message;
            rows.back().raw += u'\n' + line;
        } else {
            rows.append(row);
        }
    }
    return rows;
}

void requirePrintable(const varnel::LogRowView& row) {
    varnel::cli::TextBuffer json;
    varnel::cli::appendRowJson(json, row);
    const QJsonObject object =
        QJsonDocument::fromJson(QByteArray(json.data(), json.size())).object();
    const LogRow back{object.value(u"time").toString(), object.value(u"level").toString(),
                      object.value(u"source").toString(), object.value(u"message").toString(),
                      object.value(u"raw").toString()};
    if (back != row.toRow()) fail("JSON does not read back", back, row.toRow());
    varnel::cli::TextBuffer text;
    varnel::cli::appendTerminalSafe(text, varnel::utf8::bytes(row.raw), varnel::cli::Tabs::show);
    for (qsizetype i = 0; i < text.size(); ++i) {
        const auto c = uchar(text.data()[i]);
        const bool c1 = c == 0xC2 && i + 1 < text.size() && uchar(text.data()[i + 1]) <= 0x9F;
        if (c < 0x20 || c == 0x7F || c1) std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArrayView bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    requireSameRow(QString::fromUtf8(bytes));
    QString units(qsizetype(size / 2), Qt::Uninitialized);
    std::memcpy(units.data(), data, (size / 2) * 2);
    requireSameRow(units);

    const varnel::LogRows rows = varnel::LogRows::build(varnel::LogText(bytes));
    const QList<LogRow> plain = plainRows(varnel::utf8::decode(bytes));
    if (rows.size() != plain.size()) std::abort();
    for (qsizetype i = 0; i < rows.size(); ++i) {
        if (rows[i].toRow() != plain[i]) fail("built rows differ", rows[i].toRow(), plain[i]);
        requirePrintable(rows[i]);
    }
    const QString needle = QString::fromUtf8(bytes.first(qMin<qsizetype>(3, bytes.size())));
    const QList<qsizetype> shown = varnel::filterRows(rows, {varnel::LevelChoice::all, needle});
    if (shown.size() > rows.size()) std::abort();
    return 0;
}
