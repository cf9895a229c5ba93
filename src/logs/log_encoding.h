#pragma once

#include <QByteArrayView>
#include <QString>

// How log bytes become text, shared by every reader of logs so that a tail
// read whole and a log followed piece by piece decode alike.
namespace varnel::LogEncoding {

enum class Kind { utf8, utf16le, utf16be };

// By the file's first bytes: FF FE or FE FF make it UTF-16, anything else
// (fewer than two bytes included) UTF-8.
Kind detect(QByteArrayView head);

// A file this short may still turn out UTF-16 once its second byte arrives.
bool undecided(QByteArrayView head);

// Bytes of a line feed's code unit.
inline qsizetype unitSize(Kind kind) {
    return kind == Kind::utf8 ? 1 : 2;
}

// Just past the last line feed in `bytes`, which start on a code unit; 0 when
// there is none.
qsizetype wholeLinesEnd(QByteArrayView bytes, Kind kind);

// The longest start of `bytes` that does not end inside a character, for
// cutting a line too long to hold whole.
qsizetype characterBoundary(QByteArrayView bytes, Kind kind);

// Never fails: UTF-16 that is not valid (a lone surrogate, an odd byte) is read
// as UTF-8 instead, and UTF-8 errors become U+FFFD. Every byte-order mark is
// removed, wherever it stands.
QString decode(QByteArrayView bytes, Kind kind);

// The bytes as UTF-8 for LogText, which reads UTF-8 leniently itself: UTF-8
// stays as it is, UTF-16 is decoded as decode() does and written as UTF-8.
QByteArray toUtf8(QByteArray bytes, Kind kind);

}  // namespace varnel::LogEncoding
