#include "logs/cell_text.h"

#include <algorithm>

#include "logs/utf8.h"

namespace varnel {

namespace {

constexpr qsizetype tooltipLineChars = 120;
constexpr int tooltipLines = 16;

QString moreCharacters(qsizetype more) {
    return more == 1 ? QStringLiteral("\u2026 1 more character")
                     : QStringLiteral("\u2026 %1 more characters").arg(more);
}

// Where to cut a text after at most `cap` characters without splitting a pair.
qsizetype cutAt(QStringView text, qsizetype cap) {
    if (text.size() <= cap) return text.size();
    return cap > 0 && text[cap - 1].isHighSurrogate() ? cap - 1 : cap;
}

}  // namespace

QString CellText::toString() const {
    if (more == 0) return utf8::toString(head);
    return utf8::toString(head) + u' ' + moreCharacters(more);
}

CellText cellText(QUtf8StringView message, qsizetype cap) {
    // A byte is at most one code unit, so a short message needs no counting.
    if (message.size() <= cap) return {message, 0};
    const char* bytes = message.data();
    const qsizetype size = message.size();
    qsizetype at = 0;
    qsizetype units = 0;
    while (at < size) {
        const uchar lead = uchar(bytes[at]);
        const int length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        const int width = length == 4 ? 2 : 1;
        if (units + width > cap) break;
        units += width;
        at += length;
    }
    qsizetype more = 0;
    for (qsizetype i = at; i < size; ++i) {
        const uchar c = uchar(bytes[i]);
        more += ((c & 0xC0) != 0x80) + (c >= 0xF0);
    }
    return {message.first(std::min(at, size)), more};
}

QString tooltipText(QStringView raw) {
    QString out;
    qsizetype at = 0;
    for (int line = 0; line < tooltipLines && at < raw.size(); ++line) {
        QStringView rest = raw.sliced(at);
        const qsizetype feed = rest.indexOf(u'\n');
        qsizetype take =
            feed >= 0 && feed <= tooltipLineChars ? feed : cutAt(rest, tooltipLineChars);
        // A long line breaks after its last blank in the second half of the
        // piece, so words stay whole where they can.
        if (take < rest.size() && rest[take] != u'\n') {
            const qsizetype blank = rest.first(take).lastIndexOf(u' ');
            if (blank >= tooltipLineChars / 2) take = blank + 1;
        }
        if (line > 0) out += u'\n';
        out += rest.first(take);
        at += take;
        if (at < raw.size() && raw[at] == u'\n') ++at;
    }
    if (at < raw.size()) out += u'\n' + moreCharacters(raw.size() - at);
    return out;
}

QString newRowsText(qsizetype count) {
    return count == 1 ? QStringLiteral("1 new row \u2193")
                      : QStringLiteral("%1 new rows \u2193").arg(count);
}

}  // namespace varnel
