#pragma once

#include <QFont>
#include <QRectF>
#include <QString>
#include <QStringView>
#include <QUtf8StringView>

class QPainter;

namespace varnel {

// Lays a message out on several lines for the wrapped table: at word
// boundaries, and inside a word only when the word alone is wider than the box.
// Measuring and drawing share this one layout, so a row is always as tall as
// what is drawn in it.
class MessageLayout {
public:
    explicit MessageLayout(const QFont& font);

    const QFont& font() const { return font_; }
    // Height of one laid-out line, font leading included.
    double lineHeight() const { return lineHeight_; }

    // Height of the text in a box `width` wide, font leading included.
    double measure(QStringView text, double width) const;
    // The same for a row's UTF-8 text, which needs no conversion when it fits on one line.
    double measure(QUtf8StringView text, double width) const;

    // Draws with the painter's pen, lines starting at the box's top left.
    void draw(QPainter* painter, const QRectF& box, QStringView text) const;

private:
    QFont font_;
    double asciiAdvance_ = 0;  // > 0 when every printable ASCII glyph has this advance
    double lineHeight_ = 0;
};

}  // namespace varnel
