#pragma once

#include <QCache>
#include <QFont>
#include <QList>
#include <QRectF>
#include <QString>
#include <QStringView>
#include <QTextLayout>
#include <QUtf8StringView>

class QPainter;

namespace varnel {

// Lays a message out on several lines for the wrapped table: at word
// boundaries, and inside a word only when the word alone is wider than the box.
// Measuring and drawing share this one layout, so a row is always as tall as
// what is drawn in it. Callers keep texts short (cellText()): wrapping a line
// without break points costs time that grows faster than its length.
class MessageLayout {
public:
    explicit MessageLayout(const QFont& font);
    ~MessageLayout();
    MessageLayout(const MessageLayout&) = delete;
    MessageLayout& operator=(const MessageLayout&) = delete;

    const QFont& font() const { return font_; }
    // Height of one laid-out line, font leading included.
    double lineHeight() const { return lineHeight_; }

    // Height of the text in a box `width` wide, font leading included.
    double measure(QStringView text, double width) const;
    // The same for a row's UTF-8 text, which needs no conversion when it fits on one line.
    double measure(QUtf8StringView text, double width) const;

    // Draws with the painter's pen in a box `width` wide at the cell's left,
    // centred in its height and clipped to it. The layout is kept for the
    // next paint of the same text at the same width: scrolling repaints the
    // same few rows many times.
    // `marks` are ranges of `text` painted with their format behind it.
    void draw(QPainter* painter, const QRectF& cell, double width, const QString& text,
              const QList<QTextLayout::FormatRange>& marks = {}) const;

private:
    struct Key {
        QString text;
        double width = 0;
        bool operator==(const Key&) const = default;
        friend size_t qHash(const Key& key, size_t seed = 0) {
            return qHashMulti(seed, key.text, key.width);
        }
    };

    struct LaidOut;

    QFont font_;
    double asciiAdvance_ = 0;  // > 0 when every printable ASCII glyph has this advance
    double lineHeight_ = 0;
    // Enough for every row a tall screen shows, twice over.
    mutable QCache<Key, LaidOut> laidOut_{160};
};

}  // namespace varnel
