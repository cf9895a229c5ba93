#include "logs/log_parser.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QJsonValue>
#include <QVariant>
#include <QtGlobal>
#include <array>
#include <optional>

#include "logs/json_fields.h"
#include "platform/text.h"

namespace varnel {

namespace {

using text::trimBlanks;

constexpr qsizetype kLevelWindow = 80;
constexpr qsizetype kMaxTag = 24;
constexpr qsizetype kMaxPrefix = 40;
constexpr qsizetype kLevelStartLimit = 3;

constexpr char16_t kEscape = 0x1B;

// fixedWord() indices.
enum Word : int { kTrace, kDebug, kInfo, kWarn, kError, kFatal, kFalse, kTrue, kWordCount };

const std::array<QStringView, kWordCount> kWords = {u"TRACE", u"DEBUG", u"INFO", u"WARN",
                                                    u"ERROR", u"FATAL", u"0",    u"1"};

QRegularExpression compiled(const QString& pattern, QRegularExpression::PatternOptions options) {
    QRegularExpression re(pattern, options | QRegularExpression::UseUnicodePropertiesOption);
    if (!re.isValid()) qFatal("log pattern does not compile: %s", qPrintable(re.errorString()));
    re.optimize();
    return re;
}

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

// normLevel() as a fixed word, or -1 when the result is some other text.
int levelWordIndex(QStringView normalised) {
    for (int i = kTrace; i <= kFatal; ++i)
        if (normalised == kWords[size_t(i)]) return i;
    return -1;
}

QString mapLevel(QString upper) {
    if (upper == u"WARNING") return QStringLiteral("WARN");
    if (upper == u"ERR") return QStringLiteral("ERROR");
    if (upper == u"CRITICAL") return QStringLiteral("FATAL");
    return upper;
}

// ---- the reference reading: Qt's engines, step by step ----

QString jsonValueText(const QJsonValue& v) {
    if (v.isBool()) return v.toBool() ? QStringLiteral("1") : QStringLiteral("0");
    if (v.isString()) return v.toString();
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
            if (nested.isString()) row.message = nested.toString();
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

bool startsEarly(QStringView window, qsizetype start) {
    return codePoints(window.first(start), kLevelStartLimit) < kLevelStartLimit;
}

// ---- the fast reading ----

enum class Verdict { match, noMatch, undecided };

struct StampHit {
    qsizetype captureStart = 0;
    qsizetype captureLength = 0;
    qsizetype matchLength = 0;
};

// tsRegex by hand. The pattern's optional parts never need to give anything
// back, so taking each greedily in turn is what the engine does too. A \d that
// meets a character outside ASCII might be a Unicode digit: undecided.
Verdict scanStamp(QStringView s, StampHit& hit) {
    const qsizetype n = s.size();
    qsizetype i = 0;
    bool undecided = false;
    auto digit = [&](qsizetype at) {
        if (at >= n) return false;
        const char16_t c = s[at].unicode();
        if (c >= 0x80) undecided = true;
        return c >= u'0' && c <= u'9';
    };
    auto digits = [&](qsizetype at, qsizetype count) {
        for (qsizetype k = 0; k < count; ++k)
            if (!digit(at + k)) return false;
        return true;
    };
    auto is = [&](qsizetype at, char16_t c) { return at < n && s[at].unicode() == c; };

    if (is(0, u'[')) ++i;
    const qsizetype capture = i;
    const bool fixedPart = digits(i, 4) && is(i + 4, u'-') && digits(i + 5, 2) && is(i + 7, u'-') &&
                           digits(i + 8, 2) && (is(i + 10, u'T') || is(i + 10, u' ')) &&
                           digits(i + 11, 2) && is(i + 13, u':') && digits(i + 14, 2) &&
                           is(i + 16, u':') && digits(i + 17, 2);
    if (undecided) return Verdict::undecided;
    if (!fixedPart) return Verdict::noMatch;
    i += 19;
    if (is(i, u'.') && digit(i + 1)) {
        i += 2;
        while (digit(i)) ++i;
    }
    if (undecided) return Verdict::undecided;
    if (is(i, u'Z')) {
        ++i;
    } else if (is(i, u'+') || is(i, u'-')) {
        const bool colon = is(i + 3, u':');
        if (digits(i + 1, 2) && digits(i + (colon ? 4 : 3), 2)) i += colon ? 6 : 5;
        if (undecided) return Verdict::undecided;
    }
    hit.captureStart = capture;
    hit.captureLength = i - capture;
    if (is(i, u']')) ++i;
    hit.matchLength = i;
    return Verdict::match;
}

bool isAsciiWordChar(char16_t c) {
    const char16_t lower = c | 0x20;
    return (lower >= u'a' && lower <= u'z') || (c >= u'0' && c <= u'9') || c == u'_';
}

// The level word a whole ASCII word run spells, as a fixed word index, or -1.
int asciiLevelWord(QStringView run) {
    if (run.size() < 3 || run.size() > 8) return -1;
    // Upper-cased and packed one byte per letter, so each word is one compare.
    quint64 packed = 0;
    for (qsizetype k = 0; k < run.size(); ++k) {
        const char16_t c = run[k].unicode();
        packed = (packed << 8) | ((c >= u'a' && c <= u'z') ? c - 0x20 : c & 0xFF);
        if (c > 0x7F) return -1;
    }
    constexpr auto pack = [](const char* word) {
        quint64 value = 0;
        for (; *word != 0; ++word) value = (value << 8) | quint64(*word);
        return value;
    };
    switch (packed) {
        case pack("TRACE"):
            return kTrace;
        case pack("DEBUG"):
            return kDebug;
        case pack("INFO"):
            return kInfo;
        case pack("WARNING"):
        case pack("WARN"):
            return kWarn;
        case pack("ERROR"):
        case pack("ERR"):
            return kError;
        case pack("FATAL"):
        case pack("CRITICAL"):
            return kFatal;
        default:
            return -1;
    }
}

// levelRegex over an all-ASCII window: both \b's make the word a whole run of
// word characters, and a run spells at most one of the alternatives.
int scanLevel(QStringView window, qsizetype& start, qsizetype& length) {
    const qsizetype n = window.size();
    qsizetype i = 0;
    while (i < n) {
        if (!isAsciiWordChar(window[i].unicode())) {
            ++i;
            continue;
        }
        qsizetype j = i + 1;
        while (j < n && isAsciiWordChar(window[j].unicode())) ++j;
        const int word = asciiLevelWord(window.sliced(i, j - i));
        if (word >= 0) {
            start = i;
            length = j - i;
            return word;
        }
        i = j;
    }
    return -1;
}

// ANSI sequences removed by hand; the pattern begins with ESC, so a failed
// attempt can only resume at the next ESC.
QString stripEscapes(QStringView text) {
    QString out;
    out.reserve(text.size());
    const qsizetype n = text.size();
    qsizetype copied = 0;
    qsizetype i = text.indexOf(QChar(kEscape));
    while (i >= 0) {
        qsizetype j = i + 1;
        if (j < n && text[j] == u'[') {
            ++j;
            while (j < n && ((text[j] >= u'0' && text[j] <= u'9') || text[j] == u';')) ++j;
            const char16_t c = j < n ? text[j].unicode() : 0;
            if ((c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z')) {
                out.append(text.sliced(copied, i - copied));
                copied = j + 1;
                i = j + 1;
            } else {
                i = j;
            }
        } else {
            i = j;
        }
        i = i < n ? text.indexOf(QChar(kEscape), i) : -1;
    }
    out.append(text.sliced(copied));
    return out;
}

// Builds the Spans of one line: `cleaned` is where the cleaned line is read
// from, and cleanedAt/cleanedBase say where it lives for the caller.
class SpanMaker {
public:
    SpanMaker(QStringView cleaned, qsizetype cleanedAt, LogParser::SpanBase cleanedBase,
              QString& side)
        : cleaned_(cleaned), at_(cleanedAt), base_(cleanedBase), side_(side) {}

    LogParser::Span slice(QStringView part) const {
        if (part.isEmpty()) return {};
        return {at_ + (part.data() - cleaned_.data()), part.size(), base_};
    }

    LogParser::Span made(QStringView text) const {
        if (text.isEmpty()) return {};
        LogParser::Span span{side_.size(), text.size(), LogParser::SpanBase::side};
        side_.append(text);
        return span;
    }

    static LogParser::Span word(int index) { return {index, 1, LogParser::SpanBase::word}; }

    // normLevel(text); `text` is a slice of the cleaned line when inCleaned.
    LogParser::Span level(QStringView text, bool inCleaned) const {
        if (text.isEmpty()) return {};
        if (QtPrivate::isAscii(text) && text.size() <= 8) {
            const int index = asciiLevelWord(text);
            if (index >= 0) return word(index);
        }
        bool upperAlready = true;
        for (QChar c : text) {
            if (c.unicode() >= 0x80 || (c >= u'a' && c <= u'z')) {
                upperAlready = false;
                break;
            }
        }
        if (upperAlready) return inCleaned ? slice(text) : made(text);
        const QString normalised = LogParser::normLevel(text);
        const int index = levelWordIndex(normalised);
        if (index >= 0) return word(index);
        if (inCleaned && normalised == text) return slice(text);
        return made(normalised);
    }

    QStringView cleaned() const { return cleaned_; }

private:
    QStringView cleaned_;
    qsizetype at_;
    LogParser::SpanBase base_;
    QString& side_;
};

// The JSON steps; false when the line is not a JSON object.
bool jsonSpans(const SpanMaker& make, LogParser::Spans& out) {
    const QStringView cleaned = make.cleaned();
    const std::optional<json_fields::Fields> fields = json_fields::extract(cleaned);
    if (!fields) {
        out.decidedFast = false;
        const std::optional<LogRow> row = referenceJson(cleaned.toString());
        if (!row) return false;
        out.time = make.made(row->time);
        out.level = make.level(row->level, false);
        out.source = make.made(row->source);
        out.message = row->message == cleaned ? out.raw : make.made(row->message);
        return true;
    }

    auto text = [&](const json_fields::Value& v) -> LogParser::Span {
        switch (v.kind) {
            case json_fields::Value::Kind::none:
                return {};
            case json_fields::Value::Kind::boolean:
                return SpanMaker::word(v.truth ? kTrue : kFalse);
            case json_fields::Value::Kind::number:
                return make.slice(cleaned.sliced(v.pos, v.size));
            case json_fields::Value::Kind::string: {
                const QStringView content = cleaned.sliced(v.pos, v.size);
                return v.escaped ? make.made(json_fields::unescape(content)) : make.slice(content);
            }
        }
        return {};
    };

    out.time = text(fields->time);
    out.source = text(fields->source);
    const json_fields::Value& level = fields->level;
    if (level.kind == json_fields::Value::Kind::string && level.escaped) {
        out.level = make.level(json_fields::unescape(cleaned.sliced(level.pos, level.size)), false);
    } else if (level.kind == json_fields::Value::Kind::boolean) {
        out.level = SpanMaker::word(level.truth ? kTrue : kFalse);
    } else if (level.kind != json_fields::Value::Kind::none) {
        out.level = make.level(cleaned.sliced(level.pos, level.size), true);
    }
    out.message = text(fields->message);
    if (out.message.size == 0) out.message = text(fields->nestedMessage);
    if (out.message.size == 0) out.message = out.raw;
    return true;
}

void plainSpans(const SpanMaker& make, bool ascii, LogParser::Spans& out) {
    QStringView rest = make.cleaned();

    StampHit stamp;
    Verdict verdict = scanStamp(rest, stamp);
    if (verdict == Verdict::undecided) {
        out.decidedFast = false;
        const QRegularExpressionMatch m = LogParser::tsRegex().match(rest);
        verdict = m.hasMatch() ? Verdict::match : Verdict::noMatch;
        if (m.hasMatch()) stamp = {m.capturedStart(1), m.capturedLength(1), m.capturedLength(0)};
    }
    if (verdict == Verdict::match) {
        out.time = make.slice(rest.sliced(stamp.captureStart, stamp.captureLength));
        rest = trimBlanks(rest.sliced(stamp.matchLength));
    }

    if (!rest.isEmpty() && rest.front() == u'[') {
        // A tag longer than this many units has more than kMaxTag code points.
        const qsizetype reach = qMin(rest.size(), 2 * kMaxTag + 2);
        const qsizetype close = rest.first(reach).indexOf(u']');
        if (close >= 0) {
            const QStringView tag = rest.sliced(1, close - 1);
            if (codePoints(tag, kMaxTag) <= kMaxTag && !tag.contains(u' ')) {
                out.source = make.slice(tag);
                rest = trimBlanks(rest.sliced(close + 1));
            }
        }
    }

    const QStringView window =
        ascii ? rest.first(qMin(rest.size(), kLevelWindow)) : firstCodePoints(rest, kLevelWindow);
    qsizetype start = -1;
    qsizetype length = 0;
    if (ascii || QtPrivate::isAscii(window)) {
        const int word = scanLevel(window, start, length);
        if (word >= 0) out.level = SpanMaker::word(word);
    } else {
        out.decidedFast = false;
        const LevelHit hit = referenceLevel(window);
        start = hit.start;
        length = hit.length;
        if (hit.start >= 0) out.level = make.level(window.sliced(hit.start, hit.length), true);
    }
    if (start >= 0 && startsEarly(window, start)) rest = trimBlanks(rest.sliced(start + length));

    if (out.source.size == 0) {
        // The first ": " matters only when what comes before it could be short
        // enough, and a space before it rules the candidate out, so looking
        // up to the first space is enough.
        const qsizetype reach = qMin(rest.size(), 2 * kMaxPrefix + 2);
        const qsizetype space = rest.first(reach).indexOf(u' ');
        if (space >= 2 && rest[space - 1] == u':') {
            const QStringView candidate = rest.first(space - 1);
            if (codePoints(candidate, kMaxPrefix) <= kMaxPrefix) {
                out.source = make.slice(candidate);
                rest = rest.sliced(space + 1);
            }
        }
    }

    if (rest.contains(u'\n')) {
        QString message = rest.toString();
        message.replace(u'\n', u' ');
        out.message = make.made(message);
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
    return stripEscapes(text);
}

QString normLevel(QStringView text) {
    return mapLevel(text.toString().toUpper());
}

QStringView fixedWord(qsizetype index) {
    return index >= 0 && index < kWordCount ? kWords[size_t(index)] : QStringView();
}

Spans parseSpans(QStringView line, QString& side) {
    Spans out;
    const bool ascii = QtPrivate::isAscii(line);
    const bool broken = !ascii && !line.isValidUtf16();
    QString cleanedText;
    QStringView cleaned;
    qsizetype cleanedAt = 0;
    SpanBase base = SpanBase::line;
    if (broken || line.contains(QChar(kEscape))) {
        cleanedText = stripEscapes(broken ? QStringView(withoutLoneSurrogates(line)) : line);
        cleaned = QStringView(cleanedText).trimmed();
        // The cleaned line goes to the side buffer before anything else, so a
        // slice of it is a slice of the side buffer too.
        base = SpanBase::side;
        cleanedAt = side.size() + (cleaned.data() - cleanedText.constData());
        side.append(cleanedText);
    } else {
        cleaned = line.trimmed();
        cleanedAt = cleaned.data() - line.data();
    }
    const SpanMaker make(cleaned, cleanedAt, base, side);
    out.raw = make.slice(cleaned);
    if (!cleaned.isEmpty() && cleaned.front() == u'{' && jsonSpans(make, out)) return out;
    plainSpans(make, ascii, out);
    return out;
}

LogRow parse(QStringView line) {
    QString side;
    const Spans s = parseSpans(line, side);
    auto text = [&](const Span& span) { return resolve(span, line, side).toString(); };
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
        rest = trimBlanks(rest.sliced(stamp.capturedLength(0)));
    }

    if (rest.startsWith(u'[')) {
        const qsizetype close = rest.indexOf(u']');
        if (close >= 0) {
            const QStringView tag = rest.sliced(1, close - 1);
            if (codePoints(tag, kMaxTag) <= kMaxTag && !tag.contains(u' ')) {
                row.source = tag.toString();
                rest = trimBlanks(rest.sliced(close + 1));
            }
        }
    }

    const QStringView window = firstCodePoints(rest, kLevelWindow);
    const LevelHit level = referenceLevel(window);
    if (level.start >= 0) {
        row.level = normLevel(level.word);
        if (startsEarly(window, level.start))
            rest = trimBlanks(rest.sliced(level.start + level.length));
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
