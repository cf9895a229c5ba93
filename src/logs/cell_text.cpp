#include "logs/cell_text.h"

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
    if (more == 0) return head.toString();
    return head.toString() + u' ' + moreCharacters(more);
}

CellText cellText(QStringView message, qsizetype cap) {
    const qsizetype cut = cutAt(message, cap);
    return {message.first(cut), message.size() - cut};
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
