#pragma once

#include <QUtf8StringView>

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

// `text` is a trimmed line. Each field is the value of the first key of its
// list that gives a string, number or boolean, duplicates resolved as the last
// occurrence. False when the line cannot be decided here, which includes every
// line that does not both begin with '{' and end with '}'; `out` then holds
// nothing of use.
bool extract(QUtf8StringView text, Fields& out);

// The content of a string that extract() accepted, unescaped into `out`, which
// has room for content.size() bytes (the text never gets longer). Its length.
qsizetype unescape(QUtf8StringView content, char* out);

}  // namespace varnel::json_fields
