#include "viewer/message_layout.h"

#include <QFontMetricsF>
#include <QPainter>
#include <QTextLayout>
#include <algorithm>

namespace varnel {

namespace {

// Characters that draw nothing and join nothing. The cell font seldom has
// them, and a character the font lacks is laid out in a fallback face: the line
// then takes that face's height, so an invisible character would make its row
// taller by however much the fonts installed on the machine differ.
bool isInvisible(char16_t c) {
    return c == 0x200B || (c >= 0x2060 && c <= 0x2064) || c == 0xFEFF;
}

// Line feeds in a message (JSON messages keep them) are hard breaks.
QString prepared(QStringView text) {
    QString out;
    out.reserve(text.size());
    for (const QChar c : text) {
        if (c == u'\n')
            out.append(QChar::LineSeparator);
        else if (!isInvisible(c.unicode()))
            out.append(c);
    }
    return out;
}

// Ranges of a text moved to where they are in prepared(text), which drops the
// invisible characters.
QList<QTextLayout::FormatRange> preparedRanges(QStringView text,
                                               QList<QTextLayout::FormatRange> ranges) {
    if (std::none_of(text.begin(), text.end(), [](QChar c) { return isInvisible(c.unicode()); }))
        return ranges;
    QList<int> dropped(text.size() + 1, 0);
    for (qsizetype i = 0; i < text.size(); ++i)
        dropped[i + 1] = dropped[i] + (isInvisible(text[i].unicode()) ? 1 : 0);
    for (QTextLayout::FormatRange& range : ranges) {
        const qsizetype start = std::clamp<qsizetype>(range.start, 0, text.size());
        const qsizetype end = std::clamp<qsizetype>(range.start + range.length, start, text.size());
        range.start = int(start - dropped[start]);
        range.length = int((end - dropped[end]) - range.start);
    }
    return ranges;
}

// Lays the text out and returns its height; the layout is kept for drawing.
double layOut(QTextLayout& layout, double width) {
    QTextOption option;
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    layout.setTextOption(option);
    layout.beginLayout();
    double height = 0;
    for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
        line.setLeadingIncluded(true);
        line.setLineWidth(width);
        line.setPosition(QPointF(0, height));
        height += line.height();
    }
    layout.endLayout();
    return height;
}

bool isPrintableAscii(QStringView text) {
    for (const QChar c : text)
        if (c.unicode() < 0x20 || c.unicode() > 0x7e) return false;
    return true;
}

bool isPrintableAscii(QUtf8StringView text) {
    for (const auto c : text)
        if (uchar(c) < 0x20 || uchar(c) > 0x7e) return false;
    return true;
}

}  // namespace

MessageLayout::MessageLayout(const QFont& font) : font_(font) {
    // Most messages are short ASCII lines; in a truly fixed-pitch face their
    // width is a product, which spares a text layout per row when wrapping
    // thousands of them. Any doubt about the face turns the shortcut off.
    const QFontMetricsF metrics(font_);
    const double advance = metrics.horizontalAdvance(u'M');
    bool fixed = advance > 0;
    for (char16_t c = 0x20; c <= 0x7e && fixed; ++c)
        fixed = metrics.horizontalAdvance(QChar(c)) == advance;
    asciiAdvance_ = fixed ? advance : 0;

    QTextLayout probe(QStringLiteral("M"), font_);
    lineHeight_ = layOut(probe, 1e6);
}

MessageLayout::~MessageLayout() = default;

struct MessageLayout::LaidOut {
    QTextLayout layout;
    double height = 0;
};

double MessageLayout::measure(QStringView text, double width) const {
    // A margin of one pixel keeps rounding inside the layout from ever
    // disagreeing with the product on a line that just fits.
    if (asciiAdvance_ > 0 && double(text.size()) * asciiAdvance_ <= width - 1 &&
        isPrintableAscii(text))
        return lineHeight_;
    QTextLayout layout(prepared(text), font_);
    layout.setCacheEnabled(false);
    return layOut(layout, width);
}

double MessageLayout::measure(QUtf8StringView text, double width) const {
    if (asciiAdvance_ > 0 && double(text.size()) * asciiAdvance_ <= width - 1 &&
        isPrintableAscii(text))
        return lineHeight_;
    return measure(QStringView(text.toString()), width);
}

void MessageLayout::draw(QPainter* painter, const QRectF& cell, double width, const QString& text,
                         const QList<QTextLayout::FormatRange>& marks) const {
    const Key key{text, width};
    LaidOut* laid = laidOut_.object(key);
    if (!laid) {
        laid = new LaidOut{QTextLayout(prepared(text), font_), 0};
        laid->height = layOut(laid->layout, width);
        laidOut_.insert(key, laid);
    }
    const QPointF origin(cell.left(),
                         cell.top() + std::max(0.0, (cell.height() - laid->height) / 2));
    painter->save();
    painter->setClipRect(cell, Qt::IntersectClip);
    laid->layout.draw(painter, origin, preparedRanges(text, marks));
    painter->restore();
}

}  // namespace varnel
