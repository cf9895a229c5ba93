#pragma once

#include <QString>
#include <QStringView>
#include <optional>

// A single pass over one JSON object line that picks out the values a log row
// needs, without building a document. It answers only when it is sure Qt's own
// reader would accept the line the same way; anything unusual (exponents, long
// or odd numbers, escaped keys, rare escapes, raw control characters, lone
// surrogates, deep nesting, trailing text) makes it give up so the caller can
// ask the real reader.
namespace varnel::json_fields {

struct Value {
    enum class Kind : quint8 { none, string, number, boolean };
    Kind kind = Kind::none;
    bool escaped = false;       // a string whose content needs unescape()
    bool plainInteger = false;  // a number whose decimal text is exactly as written
    bool truth = false;         // for booleans
    qsizetype pos = 0;          // string content (inside the quotes) or number text
    qsizetype size = 0;
};

struct Fields {
    Value time, level, source, message;
    Value nestedMessage;  // "fields" -> "message", when that is a string
};

// `text` must begin with '{'. Each field is the value of the first key of its
// list that gives a string, number or boolean, duplicates resolved as the last
// occurrence. Nothing when the line cannot be decided here.
std::optional<Fields> extract(QStringView text);

// The text of a string's content that extract() accepted.
QString unescape(QStringView content);

}  // namespace varnel::json_fields
