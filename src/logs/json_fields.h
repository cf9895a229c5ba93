#pragma once

#include <QUtf8StringView>
#include <array>

// A single pass over one JSON object line that picks out the values a log row
// needs, without building a document. It answers only when it is sure Qt's own
// reader would accept the line the same way; anything unusual (exponents, long
// or odd numbers, escaped keys, rare escapes, raw control characters, byte-order
// marks, deep nesting, trailing text) makes it give up so the caller can ask
// the real reader. The line must be valid UTF-8.
namespace varnel::json_fields {

// Value{} is "no value". Left without initial values so that a reader can
// keep one for every key it looks for without clearing them for each line.
struct Value {
    enum class Kind : quint8 { none, string, number, boolean };
    Kind kind;
    bool escaped;       // a string whose content needs unescape()
    bool plainInteger;  // a number whose decimal text is exactly as written
    bool truth;         // for booleans
    qsizetype pos;      // string content (inside the quotes) or number text, in bytes
    qsizetype size;
};

struct Fields {
    Value time, level, source, message;
    Value nestedMessage;  // "fields" -> "message", when that is a string
};

// Reads the JSON lines of one log. Its lines mostly share their keys and their
// layout and differ only in their values, so the reader keeps how the last few
// lines it read are laid out: the bytes between their values (keys,
// punctuation, nulls, nested braces) and which value gives each field. A line
// laid out the same way is read by comparing those bytes and reading only its
// values; any other line is read key by key, and its layout takes the place of
// the one used longest ago. Where few lines share a layout, comparing costs
// more than it saves, and the reader reads key by key for a while.
class Reader {
public:
    // `text` is a trimmed line. Each field is the value of the first key of its
    // list that gives a string, number or boolean, duplicates resolved as the
    // last occurrence. False when the line cannot be decided here, which
    // includes every line that does not both begin with '{' and end with '}';
    // `out` then holds nothing of use.
    bool extract(QUtf8StringView text, Fields& out);

    static constexpr int kLayouts = 8;
    static constexpr int kMaxValues = 24;
    // Bytes between values, all together; a layout takes lines of any length.
    static constexpr qsizetype kMaxBytes = 320;

private:
    struct Layout {
        // For each value (string, number or boolean) in order: the bytes
        // before it, where it goes, and its kind; then the bytes after the last.
        struct Step {
            quint16 from;  // in `bytes`
            quint16 size;
            Value::Kind kind;
            qint8 field;  // time, level, source, message, nested message, or -1
        };
        int values = 0;
        // The line's first bytes, up to eight of them before the first
        // value, and which of the eight those are.
        quint64 head = 0;
        quint64 headMask = 0;
        std::array<Step, kMaxValues + 1> steps;
        std::array<bool, 5> given;  // by a value; the others are none
        quint8 numbers = 0;         // the fields given by numbers, as bits
        // A vector step may read up to sixteen bytes past any run of them.
        std::array<char, kMaxBytes + 16> bytes;
    };

    // True when a layout read the line. `worth` says what that saved, or, when
    // none did, what trying them cost (negative).
    bool read(QUtf8StringView text, Fields& out, int& worth);
    void learn(QUtf8StringView text, const Value* values, int count, const Fields& fields);
    // Puts the layout in `slot` first in order_.
    void makeLatest(int slot);

    std::array<Layout, kLayouts> layouts_;
    std::array<quint8, kLayouts> order_{};  // indexes into layouts_, the latest used first
    int count_ = 0;
    // How many steps from the start two layouts share: the same bytes, kind
    // and field. A line that parts from one layout goes on with another that
    // shares what was read, without reading it again.
    std::array<std::array<quint8, kLayouts>, kLayouts> shared_{};
    // For each layout, the others from the one that shares the most.
    std::array<std::array<quint8, kLayouts - 1>, kLayouts> alike_{};
    // What layouts have saved lately, less what they cost: a line read by one
    // adds what it saved, a line that none fits takes away what it cost. Spent,
    // the next lines are read key by key for a while.
    int credit_ = 64;  // as after a rest
    int resting_ = 0;  // lines still to read key by key
};

// The content of a string that extract() accepted, unescaped into `out`, which
// has room for content.size() bytes (the text never gets longer). Its length.
qsizetype unescape(QUtf8StringView content, char* out);

}  // namespace varnel::json_fields
