#include "logs/log_parser.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QJsonValue>
#include <QVariant>
#include <QtGlobal>
#include <array>
#include <bit>
#include <cstring>
#include <optional>
#include <utility>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "logs/json_fields.h"
#include "logs/log_text.h"
#include "logs/utf8.h"
#include "platform/text.h"

namespace varnel {

namespace {

constexpr qsizetype kLevelWindow = 80;
constexpr qsizetype kMaxTag = 24;
constexpr qsizetype kMaxPrefix = 40;
constexpr qsizetype kLevelStartLimit = 3;
// A code point takes at most this many bytes.
constexpr qsizetype kMaxBytes = 4;

constexpr char kEscape = 0x1B;

// fixedWord() indices.
enum Word : int { kTrace, kDebug, kInfo, kWarn, kError, kFatal, kFalse, kTrue, kWordCount };

const auto& kWords = LogParser::kFixedWords;

QRegularExpression compiled(const QString& pattern, QRegularExpression::PatternOptions options) {
    QRegularExpression re(pattern, options | QRegularExpression::UseUnicodePropertiesOption);
    if (!re.isValid()) qFatal("log pattern does not compile: %s", qPrintable(re.errorString()));
    re.optimize();
    return re;
}

// ---- the reference reading: Qt's engines, step by step, over UTF-16 ----

bool isHighSurrogate(char16_t c) {
    return c >= 0xD800 && c <= 0xDBFF;
}
bool isLowSurrogate(char16_t c) {
    return c >= 0xDC00 && c <= 0xDFFF;
}

// Code points in s, counting no further than limit + 1.
qsizetype codePoints(QStringView s, qsizetype limit) {
    qsizetype count = 0;
    for (qsizetype i = 0; i < s.size() && count <= limit; ++i) {
        if (!(isLowSurrogate(s[i].unicode()) && i > 0 && isHighSurrogate(s[i - 1].unicode())))
            ++count;
    }
    return count;
}

// The first n code points of s.
QStringView firstCodePoints(QStringView s, qsizetype n) {
    qsizetype units = 0;
    for (qsizetype count = 0; count < n && units < s.size(); ++count) {
        const bool pair = isHighSurrogate(s[units].unicode()) && units + 1 < s.size() &&
                          isLowSurrogate(s[units + 1].unicode());
        units += pair ? 2 : 1;
    }
    return s.first(units);
}

// The regular expression engine refuses broken UTF-16 outright, so both
// readings replace lone surrogates before anything else.
QString withoutLoneSurrogates(QStringView s) {
    QString out = s.toString();
    for (qsizetype i = 0; i < out.size(); ++i) {
        const char16_t c = out[i].unicode();
        if (isHighSurrogate(c) && i + 1 < out.size() && isLowSurrogate(out[i + 1].unicode())) {
            ++i;
        } else if (isHighSurrogate(c) || isLowSurrogate(c)) {
            out[i] = QChar::ReplacementCharacter;
        }
    }
    return out;
}

QString mapLevel(QString upper) {
    if (upper == u"WARNING") return QStringLiteral("WARN");
    if (upper == u"ERR") return QStringLiteral("ERROR");
    if (upper == u"CRITICAL") return QStringLiteral("FATAL");
    return upper;
}

QString jsonValueText(const QJsonValue& v) {
    if (v.isBool()) return v.toBool() ? QStringLiteral("1") : QStringLiteral("0");
    // An escape can leave a lone surrogate, which UTF-8 cannot hold.
    if (v.isString()) return withoutLoneSurrogates(v.toString());
    return v.toVariant().toString();
}

QString firstValue(const QJsonObject& object, std::initializer_list<QStringView> keys) {
    for (QStringView key : keys) {
        const QJsonValue v = object.value(key);
        if (v.isString() || v.isDouble() || v.isBool()) return jsonValueText(v);
    }
    return {};
}

std::optional<LogRow> referenceJson(const QString& cleaned) {
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(cleaned.toUtf8(), &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject()) return std::nullopt;
    const QJsonObject object = doc.object();
    LogRow row;
    row.raw = cleaned;
    row.time = firstValue(object, {u"timestamp", u"ts", u"time", u"@timestamp"});
    row.level = LogParser::normLevel(firstValue(object, {u"level", u"lvl", u"severity"}));
    row.source = firstValue(object, {u"target", u"module", u"logger", u"source", u"name"});
    row.message = firstValue(object, {u"message", u"msg", u"body"});
    if (row.message.isEmpty()) {
        const QJsonValue fields = object.value(u"fields");
        if (fields.isObject()) {
            const QJsonValue nested = fields.toObject().value(u"message");
            if (nested.isString()) row.message = withoutLoneSurrogates(nested.toString());
        }
    }
    if (row.message.isEmpty()) row.message = cleaned;
    return row;
}

struct LevelHit {
    qsizetype start = -1;  // in UTF-16 units of the window
    qsizetype length = 0;
    QString word;
};

LevelHit referenceLevel(QStringView window) {
    const QRegularExpressionMatch m = LogParser::levelRegex().match(window);
    if (!m.hasMatch()) return {};
    return {m.capturedStart(1), m.capturedLength(1), m.captured(1)};
}

// ---- the fast reading, over UTF-8 ----

QString text16(QUtf8StringView s) {
    return utf8::toString(s);
}

enum class Verdict { match, noMatch, undecided };

// "dddd-dd-dd?dd:dd:dd" in ASCII at s, ? a T or a space: eight bytes a test
// for the time stamps that begin most plain lines. False says nothing; the
// byte by byte reading decides then.
bool fixedStampAt(const char* s, qsizetype n) {
    if constexpr (std::endian::native != std::endian::little) return false;
    if (n < 19) return false;
    quint64 a;
    quint64 b;
    std::memcpy(&a, s, 8);
    std::memcpy(&b, s + 8, 8);
    // The digits: bytes 0-3 and 5-6 of a, and 0-1, 3-4 and 6-7 of b (8-9,
    // 11-12, 14-15 of the stamp).
    constexpr quint64 kDigitsA = 0x00FFFF00FFFFFFFFULL;
    constexpr quint64 kDigitsB = 0xFFFF00FFFF00FFFFULL;
    const auto byte = [](quint64 x, int k) { return char(x >> (8 * k)); };
    return (utf8::nonDigitBytes(a) & kDigitsA) == 0 && byte(a, 4) == '-' && byte(a, 7) == '-' &&
           (utf8::nonDigitBytes(b) & kDigitsB) == 0 && (byte(b, 2) == 'T' || byte(b, 2) == ' ') &&
           byte(b, 5) == ':' && s[16] == ':' && s[17] >= '0' && s[17] <= '9' && s[18] >= '0' &&
           s[18] <= '9';
}

struct StampHit {
    qsizetype captureStart = 0;
    qsizetype captureLength = 0;
    qsizetype matchLength = 0;
};

// tsRegex by hand. The pattern's optional parts never need to give anything
// back, so taking each greedily in turn is what the engine does too. A \d that
// meets a character outside ASCII might be a Unicode digit: undecided.
Verdict scanStamp(const char* s, qsizetype n, StampHit& hit) {
    qsizetype i = 0;
    bool undecided = false;
    auto digit = [&](qsizetype at) {
        if (at >= n) return false;
        const uchar c = uchar(s[at]);
        if (c >= 0x80) undecided = true;
        return c >= '0' && c <= '9';
    };
    auto digits = [&](qsizetype at, qsizetype count) {
        for (qsizetype k = 0; k < count; ++k)
            if (!digit(at + k)) return false;
        return true;
    };
    auto is = [&](qsizetype at, char c) { return at < n && s[at] == c; };

    if (is(0, '[')) ++i;
    const qsizetype capture = i;
    const bool fixedPart =
        fixedStampAt(s + i, n - i) ||
        (digits(i, 4) && is(i + 4, '-') && digits(i + 5, 2) && is(i + 7, '-') && digits(i + 8, 2) &&
         (is(i + 10, 'T') || is(i + 10, ' ')) && digits(i + 11, 2) && is(i + 13, ':') &&
         digits(i + 14, 2) && is(i + 16, ':') && digits(i + 17, 2));
    if (undecided) return Verdict::undecided;
    if (!fixedPart) return Verdict::noMatch;
    i += 19;
    if (is(i, '.') && digit(i + 1)) {
        i += 2;
        while (digit(i)) ++i;
    }
    if (undecided) return Verdict::undecided;
    if (is(i, 'Z')) {
        ++i;
    } else if (is(i, '+') || is(i, '-')) {
        const bool colon = is(i + 3, ':');
        if (digits(i + 1, 2) && digits(i + (colon ? 4 : 3), 2)) i += colon ? 6 : 5;
        if (undecided) return Verdict::undecided;
    }
    hit.captureStart = capture;
    hit.captureLength = i - capture;
    if (is(i, ']')) ++i;
    hit.matchLength = i;
    return Verdict::match;
}

// What a byte is to the level search: 1 an ASCII word character (\w), 2 one
// that can begin a level word (C D E F I T W, either case), 0 anything else.
constexpr std::array<quint8, 256> kWordBytes = [] {
    std::array<quint8, 256> table{};
    for (size_t c = '0'; c <= '9'; ++c) table[c] = 1;
    for (size_t c = 'A'; c <= 'Z'; ++c) table[c] = table[c + 0x20] = 1;
    table['_'] = 1;
    for (const char c : {'C', 'D', 'E', 'F', 'I', 'T', 'W'})
        table[size_t(uchar(c))] = table[size_t(uchar(c + 0x20))] = 2;
    return table;
}();

bool isAsciiWordChar(uchar c) {
    return kWordBytes[c] != 0;
}

// A word's characters packed one to a byte, the first in the lowest byte.
constexpr quint64 packWord(const char* word) {
    quint64 value = 0;
    for (int shift = 0; *word != 0; ++word, shift += 8) value |= quint64(uchar(*word)) << shift;
    return value;
}

// The level words in sixteen slots by a multiplicative hash of their packed
// form; this multiplier gives each a slot of its own, which building the
// table checks as it compiles. A word is then one multiply and one compare
// rather than a walk through branches.
struct LevelSlot {
    quint64 packed;  // 0 for an empty slot, which no run of three or more packs to
    int word;
};
constexpr quint64 kLevelHash = 0x8712B8BC076F3787ULL;
constexpr size_t levelSlot(quint64 packed) {
    return size_t((packed * kLevelHash) >> 60);
}
constexpr std::array<LevelSlot, 16> kLevelSlots = [] {
    std::array<LevelSlot, 16> table{};
    const std::pair<const char*, int> words[] = {
        {"TRACE", kTrace},  {"DEBUG", kDebug}, {"INFO", kInfo},
        {"WARNING", kWarn}, {"WARN", kWarn},   {"ERROR", kError},
        {"ERR", kError},    {"FATAL", kFatal}, {"CRITICAL", kFatal}};
    for (const auto& [word, index] : words) {
        LevelSlot& slot = table[levelSlot(packWord(word))];
        if (slot.packed != 0) throw "two level words share a slot: choose another multiplier";
        slot = {packWord(word), index};
    }
    return table;
}();

// The level word an ASCII run spells, as a fixed word index, or -1. The run
// may be any text, a JSON value's included.
Q_ALWAYS_INLINE int asciiLevelWord(const char* run, qsizetype size) {
    if (size < 3 || size > 8 || kWordBytes[uchar(run[0])] != 2) return -1;
    // Clearing bit 0x20 makes any byte equal to an upper-case letter only when
    // it is that letter in either case.
    quint64 packed = 0;
    if (size == 3) {
        packed =
            quint64(uchar(run[0])) | quint64(uchar(run[1])) << 8 | quint64(uchar(run[2])) << 16;
    } else if constexpr (std::endian::native == std::endian::little) {
        // Two loads that overlap, never reading past the run.
        quint32 low;
        quint32 high;
        std::memcpy(&low, run, 4);
        std::memcpy(&high, run + size - 4, 4);
        packed = quint64(low) | quint64(high) << (8 * (size - 4));
    } else {
        for (qsizetype k = size - 1; k >= 0; --k) packed = (packed << 8) | uchar(run[k]);
    }
    packed &= 0xDFDFDFDFDFDFDFDFULL;
    const LevelSlot& slot = kLevelSlots[levelSlot(packed)];
    // A space or a NUL packs as nothing: "warn " would pack as "WARN". No
    // level word holds either, so a run that ends in one is none.
    if ((packed >> (8 * (size - 1))) == 0) return -1;
    return slot.packed == packed ? slot.word : -1;
}

// Where the run of ASCII word characters at w[j] ends, at n at the latest.
// Sixteen bytes a step where the text has them: a word's end found byte by
// byte is a branch that goes the other way once per word.
qsizetype wordEnd(const char* w, qsizetype j, qsizetype n) {
#if defined(__SSE2__)
    while (n - j >= 16) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(w + j));
        // Shifted so that each range starts at the lowest signed byte, then one compare.
        const auto in = [](__m128i x, char first, int count) {
            return _mm_cmplt_epi8(_mm_add_epi8(x, _mm_set1_epi8(char(0x80 - first))),
                                  _mm_set1_epi8(char(-128 + count)));
        };
        const __m128i letter = in(_mm_or_si128(v, _mm_set1_epi8(0x20)), 'a', 26);
        const __m128i wordByte = _mm_or_si128(_mm_or_si128(letter, in(v, '0', 10)),
                                              _mm_cmpeq_epi8(v, _mm_set1_epi8('_')));
        const unsigned other = ~unsigned(_mm_movemask_epi8(wordByte)) & 0xFFFFu;
        if (other != 0) return j + std::countr_zero(other);
        j += 16;
    }
#endif
    while (j < n && isAsciiWordChar(uchar(w[j]))) ++j;
    return j;
}

// levelRegex by hand. Both \b's make the word a whole run of word characters,
// and a run spells at most one of the alternatives. No character outside
// ASCII is caseless-equal to a letter of a level word, so a word is always a
// run of ASCII letters; but a character outside ASCII next to it may be a word
// character to the engine (and then there is no \b): undecided.
Verdict scanLevel(const char* w, qsizetype n, qsizetype& start, qsizetype& length, int& word) {
    qsizetype i = 0;
    while (i < n) {
        if (!isAsciiWordChar(uchar(w[i]))) {
            ++i;
            continue;
        }
        const qsizetype j = wordEnd(w, i + 1, n);
        word = j - i >= 3 && j - i <= 8 && kWordBytes[uchar(w[i])] == 2
                   ? asciiLevelWord(w + i, j - i)
                   : -1;
        if (word >= 0) {
            if ((i > 0 && uchar(w[i - 1]) >= 0x80) || (j < n && uchar(w[j]) >= 0x80))
                return Verdict::undecided;
            start = i;
            length = j - i;
            return Verdict::match;
        }
        i = j;
    }
    return Verdict::noMatch;
}

// ANSI sequences removed; the pattern begins with ESC, so a failed attempt can
// only resume at the next ESC. The text without them is written to `buffer`,
// which only ever grows, and returned as a view of it.
QByteArrayView stripEscapes(QByteArrayView text, QByteArray& buffer) {
    constexpr qsizetype kStep = 16;
    const char* p = text.data();
    const qsizetype n = text.size();
    // Whole stores may go up to a step past what is kept; the text never grows.
    if (buffer.size() < n + kStep) buffer.resize(n + kStep);
    char* const begin = buffer.data();
    char* o = begin;
    for (qsizetype i = 0; i < n;) {
        i = utf8::copyUntil(p + i, p + n, kEscape, o) - p;
        if (i == n) break;
        if (i + 1 >= n || p[i + 1] != '[') {
            *o++ = kEscape;
            ++i;
            continue;
        }
        qsizetype j = i + 2;
        while (j < n && ((p[j] >= '0' && p[j] <= '9') || p[j] == ';')) ++j;
        const char end = j < n ? p[j] : 0;
        if ((end >= 'A' && end <= 'Z') || (end >= 'a' && end <= 'z')) {
            i = j + 1;
        } else {
            // Not a sequence: what was skipped is text, and the search goes on after it.
            std::memcpy(o, p + i, size_t(j - i));
            o += j - i;
            i = j;
        }
    }
    return {begin, o - begin};
}

bool hasLowerAscii(QUtf8StringView s) {
    for (const char c : utf8::bytes(s))
        if (c >= 'a' && c <= 'z') return true;
    return false;
}

// Builds the Spans of one line: `cleaned` is where the cleaned line is read
// from, and cleanedAt/cleanedBase say where it lives for the caller; `ascii`
// says it holds no byte above ASCII.
class SpanMaker {
public:
    SpanMaker(QUtf8StringView cleaned, qsizetype cleanedAt, LogParser::SpanBase cleanedBase,
              bool ascii, ByteStore& side, LogParser::Spans& out)
        : cleaned_(cleaned),
          at_(cleanedAt),
          base_(cleanedBase),
          ascii_(ascii),
          side_(side),
          out_(out) {}

    LogParser::Span slice(QUtf8StringView part) const {
        return sliceAt(part.data() - cleaned_.data(), part.size());
    }
    // The part of the cleaned line that starts `pos` bytes in.
    LogParser::Span sliceAt(qsizetype pos, qsizetype size) const {
        if (size == 0) return {};
        return {at_ + pos, size, base_};
    }

    LogParser::Span made(QByteArrayView text) const {
        if (text.isEmpty()) return {};
        if (utf8::lowersToAscii(QUtf8StringView(text))) out_.bytewise = false;
        return {side_.append(text), text.size(), LogParser::SpanBase::side};
    }
    LogParser::Span madeText(const QString& text) const { return made(utf8::encode(text)); }

    // A JSON string's content that has escapes, unescaped.
    LogParser::Span unescaped(QUtf8StringView content) const {
        const qsizetype at = side_.size();
        char* out = side_.extend(content.size());
        const qsizetype size = json_fields::unescape(content, out);
        side_.truncate(at + size);
        if (size == 0) return {};
        if (utf8::lowersToAscii(utf8::view(out, size))) out_.bytewise = false;
        return {at, size, LogParser::SpanBase::side};
    }

    static LogParser::Span word(int index) { return {index, 1, LogParser::SpanBase::word}; }

    // normLevel(text); `text` is a slice of the cleaned line when inCleaned.
    LogParser::Span level(QUtf8StringView text, bool inCleaned) const {
        if (text.isEmpty()) return {};
        if ((inCleaned && ascii_) || utf8::isAscii(text)) {
            const int index =
                asciiLevelWord(reinterpret_cast<const char*>(text.data()), text.size());
            if (index >= 0) return word(index);
            if (!hasLowerAscii(text)) return inCleaned ? slice(text) : made(utf8::bytes(text));
            // Upper-cased straight into the side buffer, which `text` is never in.
            const qsizetype at = side_.size();
            char* out = side_.extend(text.size());
            for (const char c : utf8::bytes(text))
                *out++ = c >= 'a' && c <= 'z' ? char(c - 0x20) : c;
            return {at, text.size(), LogParser::SpanBase::side};
        }
        const QString normalised = LogParser::normLevel(text16(text));
        const QByteArray encoded = utf8::encode(normalised);
        for (int i = kTrace; i <= kFatal; ++i)
            if (QUtf8StringView(encoded) == kWords[size_t(i)]) return word(i);
        if (inCleaned && QByteArrayView(encoded) == utf8::bytes(text)) return slice(text);
        return made(QByteArrayView(encoded));
    }

    QUtf8StringView cleaned() const { return cleaned_; }

private:
    QUtf8StringView cleaned_;
    qsizetype at_;
    LogParser::SpanBase base_;
    bool ascii_;
    ByteStore& side_;
    LogParser::Spans& out_;
};

// The JSON steps; false when the line is not a JSON object.
bool jsonSpans(const SpanMaker& make, json_fields::Reader& reader, LogParser::Spans& out) {
    const QUtf8StringView cleaned = make.cleaned();
    json_fields::Fields fields;
    if (!reader.extract(cleaned, fields)) {
        out.decidedFast = false;
        const std::optional<LogRow> row = referenceJson(text16(cleaned));
        if (!row) return false;
        out.time = make.madeText(row->time);
        out.level = make.level(QUtf8StringView(utf8::encode(row->level)), false);
        out.source = make.madeText(row->source);
        out.message = row->message == row->raw ? out.raw : make.madeText(row->message);
        return true;
    }

    auto text = [&](const json_fields::Value& v) -> LogParser::Span {
        switch (v.kind) {
            case json_fields::Value::Kind::none:
                return {};
            case json_fields::Value::Kind::boolean:
                return SpanMaker::word(v.truth ? kTrue : kFalse);
            case json_fields::Value::Kind::number:
                return make.sliceAt(v.pos, v.size);
            case json_fields::Value::Kind::string:
                return v.escaped ? make.unescaped(cleaned.sliced(v.pos, v.size))
                                 : make.sliceAt(v.pos, v.size);
        }
        return {};
    };

    out.time = text(fields.time);
    out.source = text(fields.source);
    const json_fields::Value& level = fields.level;
    if (level.kind == json_fields::Value::Kind::string && level.escaped) {
        QByteArray unescaped(level.size, Qt::Uninitialized);
        unescaped.truncate(
            json_fields::unescape(cleaned.sliced(level.pos, level.size), unescaped.data()));
        out.level = make.level(QUtf8StringView(unescaped), false);
    } else if (level.kind == json_fields::Value::Kind::boolean) {
        out.level = SpanMaker::word(level.truth ? kTrue : kFalse);
    } else if (level.kind != json_fields::Value::Kind::none) {
        out.level = make.level(cleaned.sliced(level.pos, level.size), true);
    }
    out.message = text(fields.message);
    if (out.message.size == 0) out.message = text(fields.nestedMessage);
    if (out.message.size == 0) out.message = out.raw;
    return true;
}

void plainSpans(const SpanMaker& make, bool ascii, bool lineFeeds, LogParser::Spans& out) {
    QUtf8StringView rest = make.cleaned();
    const auto at = [](QUtf8StringView s) { return reinterpret_cast<const char*>(s.data()); };

    StampHit stamp;
    Verdict verdict = scanStamp(at(rest), rest.size(), stamp);
    if (verdict == Verdict::undecided) {
        out.decidedFast = false;
        const QString rest16 = text16(rest);
        const QRegularExpressionMatch m = LogParser::tsRegex().match(rest16);
        verdict = m.hasMatch() ? Verdict::match : Verdict::noMatch;
        if (m.hasMatch()) {
            const qsizetype start = utf8::bytesForUnits(rest, m.capturedStart(1));
            stamp = {start, utf8::bytesForUnits(rest, m.capturedEnd(1)) - start,
                     utf8::bytesForUnits(rest, m.capturedLength(0))};
        }
    }
    if (verdict == Verdict::match) {
        out.time = make.slice(rest.sliced(stamp.captureStart, stamp.captureLength));
        rest = utf8::trimBlanks(rest.sliced(stamp.matchLength));
    }

    if (!rest.isEmpty() && rest.front() == '[') {
        // A tag longer than this many bytes has more than kMaxTag code points.
        const qsizetype reach = qMin(rest.size(), kMaxBytes * kMaxTag + 2);
        const qsizetype close = utf8::indexOf(utf8::bytes(rest.first(reach)), ']');
        if (close >= 0) {
            const QUtf8StringView tag = rest.sliced(1, close - 1);
            if (utf8::indexOf(utf8::bytes(tag), ' ') < 0 &&
                (ascii ? tag.size() : utf8::codePoints(tag, kMaxTag)) <= kMaxTag) {
                out.source = make.slice(tag);
                rest = utf8::trimBlanks(rest.sliced(close + 1));
            }
        }
    }

    const QUtf8StringView window = ascii ? rest.first(qMin(rest.size(), kLevelWindow))
                                         : utf8::firstCodePoints(rest, kLevelWindow);
    qsizetype start = -1;
    qsizetype length = 0;
    int word = -1;
    const Verdict level = scanLevel(at(window), window.size(), start, length, word);
    if (level == Verdict::match) {
        out.level = SpanMaker::word(word);
    } else if (level == Verdict::undecided) {
        out.decidedFast = false;
        const LevelHit hit = referenceLevel(text16(window));
        if (hit.start >= 0) {
            start = utf8::bytesForUnits(window, hit.start);
            length = utf8::bytesForUnits(window, hit.start + hit.length) - start;
            out.level = make.level(window.sliced(start, length), true);
        }
    }
    if (start >= 0 && (ascii ? start : utf8::codePoints(window.first(start), kLevelStartLimit)) <
                          kLevelStartLimit)
        rest = utf8::trimBlanks(rest.sliced(start + length));

    if (out.source.size == 0) {
        // The first ": " matters only when what comes before it could be short
        // enough, and a space before it rules the candidate out, so looking
        // up to the first space is enough.
        const qsizetype reach = qMin(rest.size(), kMaxBytes * kMaxPrefix + 2);
        const qsizetype space = utf8::indexOf(utf8::bytes(rest.first(reach)), ' ');
        if (space >= 2 && at(rest)[space - 1] == ':') {
            const QUtf8StringView candidate = rest.first(space - 1);
            if ((ascii ? candidate.size() : utf8::codePoints(candidate, kMaxPrefix)) <=
                kMaxPrefix) {
                out.source = make.slice(candidate);
                rest = rest.sliced(space + 1);
            }
        }
    }

    if (lineFeeds && utf8::indexOf(utf8::bytes(rest), '\n') >= 0) {
        QByteArray message = utf8::bytes(rest).toByteArray();
        message.replace('\n', ' ');
        out.message = make.made(QByteArrayView(message));
    } else {
        out.message = make.slice(rest);
    }
}

}  // namespace

namespace LogParser {

const QRegularExpression& tsRegex() {
    static const QRegularExpression re = compiled(
        QStringLiteral(
            R"(^\[?(\d{4}-\d{2}-\d{2}[T ]\d{2}:\d{2}:\d{2}(?:\.\d+)?(?:Z|[+-]\d{2}:?\d{2})?)\]?)"),
        QRegularExpression::NoPatternOption);
    return re;
}

const QRegularExpression& levelRegex() {
    static const QRegularExpression re =
        compiled(QStringLiteral(R"(\b(TRACE|DEBUG|INFO|WARNING|WARN|ERROR|ERR|FATAL|CRITICAL)\b)"),
                 QRegularExpression::CaseInsensitiveOption);
    return re;
}

const QRegularExpression& ansiRegex() {
    static const QRegularExpression re =
        compiled(QStringLiteral("\x1b\\[[0-9;]*[A-Za-z]"), QRegularExpression::NoPatternOption);
    return re;
}

QString stripANSI(QStringView text) {
    QByteArray buffer;
    return QString::fromUtf8(stripEscapes(utf8::encode(text), buffer));
}

QString normLevel(QStringView text) {
    return mapLevel(text.toString().toUpper());
}

Spans Parser::parse(QUtf8StringView line, const LineFacts& facts, ByteStore& side) {
    Spans out;
    QUtf8StringView cleaned;
    qsizetype cleanedAt = 0;
    SpanBase base = SpanBase::line;
    if (facts.escape && utf8::indexOf(utf8::bytes(line), kEscape) >= 0) {
        cleaned = utf8::trimmed(QUtf8StringView(stripEscapes(utf8::bytes(line), scratch_)));
        // The cleaned line goes to the side buffer before anything else, and is
        // read from the scratch copy, which stays put while the side grows.
        base = SpanBase::side;
        cleanedAt = side.append(utf8::bytes(cleaned));
    } else {
        cleaned = utf8::trimmed(line);
        cleanedAt = cleaned.data() - line.data();
    }
    const SpanMaker make(cleaned, cleanedAt, base, facts.ascii, side, out);
    out.raw = make.slice(cleaned);
    if (cleaned.isEmpty() || cleaned.front() != '{' || !jsonSpans(make, json_, out))
        plainSpans(make, facts.ascii, facts.lineFeeds, out);
    if (!facts.ascii && out.bytewise) {
        const QUtf8StringView sideText(side.data(), side.size());
        for (const Span* span : {&out.time, &out.level, &out.source, &out.message})
            if (utf8::lowersToAscii(resolve(*span, line, sideText))) out.bytewise = false;
    }
    return out;
}

LogRow parse(QStringView line) {
    Parser parser;
    return parse(line, parser);
}

LogRow parse(QStringView line, Parser& parser) {
    const QString whole = line.isValidUtf16() ? line.toString() : withoutLoneSurrogates(line);
    const QByteArray bytes = utf8::encode(whole);
    ByteStore side;
    const Spans s = parser.parse(QUtf8StringView(bytes),
                                 {utf8::isAscii(QUtf8StringView(bytes)), true, true}, side);
    const QUtf8StringView sideText(side.data(), side.size());
    auto text = [&](const Span& span) {
        return utf8::toString(resolve(span, QUtf8StringView(bytes), sideText));
    };
    return {text(s.time), text(s.level), text(s.source), text(s.message), text(s.raw)};
}

LogRow parseReference(QStringView line) {
    QString text = withoutLoneSurrogates(line);
    text.replace(ansiRegex(), QString());
    const QString cleaned = text.trimmed();

    if (cleaned.startsWith(u'{')) {
        if (std::optional<LogRow> row = referenceJson(cleaned)) return *row;
    }

    LogRow row;
    row.raw = cleaned;
    QStringView rest = cleaned;

    const QRegularExpressionMatch stamp = tsRegex().match(rest);
    if (stamp.hasMatch()) {
        row.time = stamp.captured(1);
        rest = text::trimBlanks(rest.sliced(stamp.capturedLength(0)));
    }

    if (rest.startsWith(u'[')) {
        const qsizetype close = rest.indexOf(u']');
        if (close >= 0) {
            const QStringView tag = rest.sliced(1, close - 1);
            if (codePoints(tag, kMaxTag) <= kMaxTag && !tag.contains(u' ')) {
                row.source = tag.toString();
                rest = text::trimBlanks(rest.sliced(close + 1));
            }
        }
    }

    const QStringView window = firstCodePoints(rest, kLevelWindow);
    const LevelHit level = referenceLevel(window);
    if (level.start >= 0) {
        row.level = normLevel(level.word);
        if (codePoints(window.first(level.start), kLevelStartLimit) < kLevelStartLimit)
            rest = text::trimBlanks(rest.sliced(level.start + level.length));
    }

    if (row.source.isEmpty()) {
        const qsizetype colon = rest.indexOf(u": ");
        if (colon >= 0) {
            const QStringView candidate = rest.first(colon);
            if (!candidate.isEmpty() && codePoints(candidate, kMaxPrefix) <= kMaxPrefix &&
                !candidate.contains(u' ')) {
                row.source = candidate.toString();
                rest = rest.sliced(colon + 2);
            }
        }
    }

    row.message = rest.toString();
    row.message.replace(u'\n', u' ');
    return row;
}

}  // namespace LogParser

}  // namespace varnel
