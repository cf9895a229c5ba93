// Any line, as UTF-8 and as raw UTF-16 (lone surrogates included): the fast
// reading must give exactly the engines' row, and building and filtering rows
// from the same text must stay within their buffers.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "logs/log_filter.h"
#include "logs/log_parser.h"
#include "logs/log_rows.h"

namespace {

void requireSameRow(const QString& line) {
    const varnel::LogRow fast = varnel::LogParser::parse(line);
    const varnel::LogRow reference = varnel::LogParser::parseReference(line);
    if (fast == reference) return;
    std::fprintf(stderr, "rows differ\nfast: [%s|%s|%s|%s|%s]\n ref: [%s|%s|%s|%s|%s]\n",
                 qPrintable(fast.time), qPrintable(fast.level), qPrintable(fast.source),
                 qPrintable(fast.message), qPrintable(fast.raw), qPrintable(reference.time),
                 qPrintable(reference.level), qPrintable(reference.source),
                 qPrintable(reference.message), qPrintable(reference.raw));
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QString utf8 = QString::fromUtf8(reinterpret_cast<const char*>(data), qsizetype(size));
    requireSameRow(utf8);

    QString units(qsizetype(size / 2), Qt::Uninitialized);
    std::memcpy(units.data(), data, (size / 2) * 2);
    requireSameRow(units);

    const varnel::LogRows rows = varnel::LogRows::build(utf8);
    qsizetype chars = 0;
    for (qsizetype i = 0; i < rows.size(); ++i)
        chars += rows[i].message.size() + rows[i].raw.size();
    const QString needle = utf8.left(3);
    const QList<qsizetype> shown = varnel::filterRows(rows, {varnel::LevelChoice::all, needle});
    if (shown.size() > rows.size() || chars < 0) std::abort();
    return 0;
}
