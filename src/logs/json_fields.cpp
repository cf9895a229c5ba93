#include "logs/json_fields.h"

#include <array>
#include <bit>
#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "logs/utf8.h"

namespace varnel::json_fields {

namespace {

// Slots for the keys a row reads: each field's keys side by side, in the
// order the field tries them.
enum Slot : int {
    kTimestamp,
    kTs,
    kTime,
    kAtTimestamp,
    kLevel,
    kLvl,
    kSeverity,
    kTarget,
    kModule,
    kLogger,
    kSource,
    kName,
    kMessage,
    kMsg,
    kBody,
    kFields,
    kSlotCount,
    kNoSlot = -1,
};

template <size_t N>
bool is(const char* key, qsizetype size, const char (&word)[N]) {
    return size == qsizetype(N - 1) && std::memcmp(key, word, N - 1) == 0;
}

int topLevelSlot(const char* key, qsizetype size) {
    switch (size) {
        case 2:
            return is(key, size, "ts") ? kTs : kNoSlot;
        case 3:
            if (is(key, size, "lvl")) return kLvl;
            if (is(key, size, "msg")) return kMsg;
            return kNoSlot;
        case 4:
            if (is(key, size, "time")) return kTime;
            if (is(key, size, "name")) return kName;
            if (is(key, size, "body")) return kBody;
            return kNoSlot;
        case 5:
            return is(key, size, "level") ? kLevel : kNoSlot;
        case 6:
            if (is(key, size, "target")) return kTarget;
            if (is(key, size, "module")) return kModule;
            if (is(key, size, "logger")) return kLogger;
            if (is(key, size, "source")) return kSource;
            if (is(key, size, "fields")) return kFields;
            return kNoSlot;
        case 7:
            return is(key, size, "message") ? kMessage : kNoSlot;
        case 8:
            return is(key, size, "severity") ? kSeverity : kNoSlot;
        case 9:
            return is(key, size, "timestamp") ? kTimestamp : kNoSlot;
        case 10:
            return is(key, size, "@timestamp") ? kAtTimestamp : kNoSlot;
        default:
            return kNoSlot;
    }
}

// Far below Qt's own nesting limit, so a line this deep is always left to it.
constexpr int kMaxDepth = 32;
// Up to 15 digits a double holds the number exactly, so neither overflow nor
// rounding can make Qt's reading differ from the digits as written.
constexpr qsizetype kMaxDigits = 15;

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// The four hex digits after "\u" at p, or -1.
int hexQuad(const char* p) {
    int value = 0;
    for (int i = 0; i < 4; ++i) {
        const int digit = hexValue(p[i]);
        if (digit < 0) return -1;
        value = value * 16 + digit;
    }
    return value;
}

// Bytes that end a run of plain string content: the quote, the backslash,
// controls, and anything above ASCII (looked at one by one for byte-order marks).
bool special(char c) {
    return c == '"' || c == '\\' || uchar(c) < 0x20 || uchar(c) >= 0x80;
}

// The first special byte from p on, or end; the text runs from begin to end.
const char* skipPlain(const char* begin, const char* p, const char* end) {
#if defined(__SSE2__)
    const __m128i quote = _mm_set1_epi8('"');
    const __m128i backslash = _mm_set1_epi8('\\');
    const __m128i space = _mm_set1_epi8(0x20);
    const auto specials = [&](const char* at) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
        // Signed: bytes above 0x7F count as below the space too.
        const __m128i hit =
            _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(v, quote), _mm_cmpeq_epi8(v, backslash)),
                         _mm_cmplt_epi8(v, space));
        return unsigned(_mm_movemask_epi8(hit));
    };
    for (; end - p >= 16; p += 16)
        if (const unsigned mask = specials(p)) return p + std::countr_zero(mask);
    // The last values of a line start within its last sixteen bytes: one more
    // step that ends at the end, leaving out the bytes it reads again.
    if (p != end && end - begin >= 16) {
        const char* at = end - 16;
        const unsigned mask = specials(at) >> (p - at);
        return mask != 0 ? p + std::countr_zero(mask) : end;
    }
#else
    (void)begin;
#endif
    while (p != end && !special(*p)) ++p;
    return p;
}

// Past a run of ASCII digits, which the last brace ends at the latest.
const char* skipDigits(const char* p, const char* end) {
    if constexpr (std::endian::native == std::endian::little) {
        for (; end - p >= 8; p += 8) {
            quint64 v;
            std::memcpy(&v, p, 8);
            if (const quint64 other = utf8::nonDigitBytes(v))
                return p + std::countr_zero(other) / 8;
        }
    }
    while (isDigit(*p)) ++p;
    return p;
}

enum class Mode { top, nested, other };

// The value of each key a row reads, by slot. A slot holds a value only while
// its bit is in `present`, so nothing needs clearing for each line.
struct Found {
    std::array<Value, kSlotCount> values;
    quint32 present = 0;
    Value nested{};  // "fields" -> "message", when that is a string

    // After a value was read into its slot: the last occurrence of a key
    // wins, and null, an object or an array give nothing.
    void mark(int slot) {
        if (values[size_t(slot)].kind == Value::Kind::none)
            present &= ~(1u << slot);
        else
            present |= 1u << slot;
    }

    // The value of the first key present among the slots from `from` to
    // `to`, which are in the order the field tries its keys. False when that
    // is a number whose text only Qt can give.
    bool first(Slot from, Slot to, Value& out) const {
        const quint32 keys = present & ((2u << to) - (1u << from));
        if (keys == 0) {
            out = Value{};
            return true;
        }
        out = values[size_t(std::countr_zero(keys))];
        return out.kind != Value::Kind::number || out.plainInteger;
    }
};

// The text begins with '{' and ends with '}'. Every step that looks for
// something other than a closing brace therefore stops at the last byte at the
// latest, and only the steps that can pass a closing brace (the end of a string
// or of a nested object or array) ask where the text ends. Each step takes the
// position it starts at and gives the one after what it read, or nullptr when
// the text is not what it reads, so the position lives in a register rather
// than in the scanner.
class Scanner {
public:
    explicit Scanner(QUtf8StringView text)
        : begin_(reinterpret_cast<const char*>(text.data())), end_(begin_ + text.size()) {}

    bool run(Fields& out) {
        // Anything after the object would hold the last brace: no white space only.
        return object(begin_, 1, Mode::top) == end_ && choose(out);
    }

private:
    static bool isSpace(char c) {
        return uchar(c) <= ' ' && (c == ' ' || c == '\t' || c == '\n' || c == '\r');
    }
    // Called at white space, which between tokens is mostly a single space.
    static const char* skipSpace(const char* p) {
        ++p;
        while (isSpace(*p)) ++p;
        return p;
    }
    // Past white space to the next character, which must be `c`.
    static const char* expect(const char* p, char c) {
        if (*p == c) return p + 1;
        if (isSpace(*p)) p = skipSpace(p);
        return *p == c ? p + 1 : nullptr;
    }

    const char* string(const char* p, Value& out) const {
        ++p;  // the opening quote
        const char* start = p;
        bool escaped = false;
        while (true) {
            p = skipPlain(begin_, p, end_);
            if (p == end_) return nullptr;
            const char c = *p;
            if (c == '"') {
                out.kind = Value::Kind::string;
                out.escaped = escaped;
                out.pos = start - begin_;
                out.size = p - start;
                return p + 1;
            }
            if (c == '\\') {
                escaped = true;
                if (end_ - p < 2) return nullptr;
                switch (p[1]) {
                    case '"':
                    case '\\':
                    case '/':
                    case 'b':
                    case 'f':
                    case 'n':
                    case 'r':
                    case 't':
                        p += 2;
                        continue;
                    case 'u': {
                        if (end_ - p < 6) return nullptr;
                        const int unit = hexQuad(p + 2);
                        // Surrogates, paired or not, are left to Qt's reader.
                        if (unit < 0 || (unit >= 0xD800 && unit <= 0xDFFF)) return nullptr;
                        p += 6;
                        continue;
                    }
                    default:
                        return nullptr;
                }
            }
            if (uchar(c) < 0x20) return nullptr;
            // Above ASCII: a byte-order mark is left to Qt's reader; anything
            // else is plain content.
            if (uchar(c) == 0xEF && end_ - p >= 3 && uchar(p[1]) == 0xBB && uchar(p[2]) == 0xBF)
                return nullptr;
            ++p;
        }
    }

    const char* number(const char* p, Value& out) const {
        const char* start = p;
        if (*p == '-') ++p;
        if (!isDigit(*p)) return nullptr;
        const char* digits = p;
        if (*p == '0') {
            ++p;
            if (isDigit(*p)) return nullptr;
        } else {
            p = skipDigits(p, end_);
        }
        if (p - digits > kMaxDigits) return nullptr;
        bool fraction = false;
        if (*p == '.') {
            ++p;
            const char* fractionStart = p;
            p = skipDigits(p, end_);
            const qsizetype count = p - fractionStart;
            if (count == 0 || count > kMaxDigits) return nullptr;
            fraction = true;
        }
        if (*p == 'e' || *p == 'E') return nullptr;
        out.kind = Value::Kind::number;
        out.pos = start - begin_;
        out.size = p - start;
        // Qt prints -0 as "0"; leave that one to it.
        out.plainInteger = !fraction && !(out.size == 2 && start[0] == '-');
        return p;
    }

    template <size_t N>
    const char* literal(const char* p, const char (&word)[N]) const {
        if (end_ - p < qsizetype(N - 1) || std::memcmp(p, word, N - 1) != 0) return nullptr;
        return p + N - 1;
    }

    // After a value: white space, then one of the structural characters. A
    // nested object or array may have closed with the last brace.
    const char* atValueEnd(const char* p) const {
        if (p == end_) return nullptr;
        if (isSpace(*p)) p = skipSpace(p);
        return *p == ',' || *p == '}' || *p == ']' ? p : nullptr;
    }

    const char* value(const char* p, int depth, Value& out, Mode childMode) {
        switch (*p) {
            case '"':
                p = string(p, out);
                break;
            case '{':
                p = depth >= kMaxDepth ? nullptr : object(p, depth + 1, childMode);
                break;
            case '[':
                p = depth >= kMaxDepth ? nullptr : array(p, depth + 1);
                break;
            case 't':
                p = literal(p, "true");
                out.kind = Value::Kind::boolean;
                out.truth = true;
                break;
            case 'f':
                p = literal(p, "false");
                out.kind = Value::Kind::boolean;
                out.truth = false;
                break;
            case 'n':
                p = literal(p, "null");
                break;
            default:
                p = number(p, out);
                break;
        }
        return p == nullptr ? nullptr : atValueEnd(p);
    }

    const char* array(const char* p, int depth) {
        ++p;
        if (isSpace(*p)) p = skipSpace(p);
        if (*p == ']') return p + 1;
        while (true) {
            Value ignored{};
            p = value(p, depth, ignored, Mode::other);
            if (p == nullptr) return nullptr;
            if (*p == ']') return p + 1;
            if (*p != ',') return nullptr;
            ++p;
            if (isSpace(*p)) p = skipSpace(p);
        }
    }

    const char* object(const char* p, int depth, Mode mode) {
        ++p;
        if (isSpace(*p)) p = skipSpace(p);
        if (*p == '}') return p + 1;
        while (true) {
            if (*p != '"') return nullptr;
            Value key;  // string() sets what is read of it
            p = string(p, key);
            if (p == nullptr) return nullptr;
            p = expect(p, ':');
            if (p == nullptr) return nullptr;
            if (isSpace(*p)) p = skipSpace(p);

            int slot = kNoSlot;
            bool nestedMessage = false;
            if (mode != Mode::other) {
                // An escaped key could spell a key we want; the real reader decides.
                if (key.escaped) return nullptr;
                const char* name = begin_ + key.pos;
                if (mode == Mode::top) {
                    slot = topLevelSlot(name, key.size);
                } else {
                    nestedMessage = is(name, key.size, "message");
                }
            }

            // The last "fields" wins, so what an earlier one held is gone.
            if (slot == kFields) found_.nested = Value{};
            // Read straight into where the value is kept: a copy of a Value
            // just written field by field would wait for those writes, as
            // one wide read cannot take its bytes from several narrow ones.
            Value scratch;
            Value& v =
                slot >= 0 ? found_.values[size_t(slot)] : (nestedMessage ? found_.nested : scratch);
            v.kind = Value::Kind::none;  // what null, an object or an array leave
            if (*p == '"') {
                // Most values are strings or numbers: read here rather than
                // through a call. Neither ends at the last byte, the brace, and
                // what may follow is looked at below.
                p = string(p, v);
                if (p != nullptr && isSpace(*p)) p = skipSpace(p);
            } else if (*p == '-' || isDigit(*p)) {
                p = number(p, v);
                if (p != nullptr && isSpace(*p)) p = skipSpace(p);
            } else {
                p = value(p, depth, v, slot == kFields ? Mode::nested : Mode::other);
            }
            if (p == nullptr) return nullptr;
            if (slot >= 0) found_.mark(slot);
            if (nestedMessage && v.kind != Value::Kind::string) found_.nested = Value{};

            if (*p == '}') return p + 1;
            if (*p != ',') return nullptr;
            ++p;
            if (isSpace(*p)) p = skipSpace(p);
        }
    }

    bool choose(Fields& out) const {
        out.nestedMessage = found_.nested;
        return found_.first(kTimestamp, kAtTimestamp, out.time) &&
               found_.first(kLevel, kSeverity, out.level) &&
               found_.first(kTarget, kName, out.source) &&
               found_.first(kMessage, kBody, out.message);
    }

    const char* begin_;
    const char* end_;
    Found found_;
};

}  // namespace

bool extract(QUtf8StringView text, Fields& out) {
    // An object Qt accepts ends with its brace once white space is trimmed.
    if (text.size() < 2 || text.front() != '{' || text.back() != '}') return false;
    return Scanner(text).run(out);
}

qsizetype unescape(QUtf8StringView content, char* out) {
    const char* p = reinterpret_cast<const char*>(content.data());
    const char* end = p + content.size();
    char* o = out;
    while (p != end) {
        // The room given is enough: what is written is never longer than what is read.
        p = utf8::copyUntil(p, end, '\\', o);
        if (p == end) break;
        const char kind = p[1];
        p += 2;
        switch (kind) {
            case 'b':
                *o++ = '\b';
                break;
            case 'f':
                *o++ = '\f';
                break;
            case 'n':
                *o++ = '\n';
                break;
            case 'r':
                *o++ = '\r';
                break;
            case 't':
                *o++ = '\t';
                break;
            case 'u': {
                // Never a surrogate: extract() leaves those to Qt.
                const unsigned unit = unsigned(hexQuad(p));
                p += 4;
                if (unit < 0x80) {
                    *o++ = char(unit);
                } else if (unit < 0x800) {
                    *o++ = char(0xC0 | (unit >> 6));
                    *o++ = char(0x80 | (unit & 0x3F));
                } else {
                    *o++ = char(0xE0 | (unit >> 12));
                    *o++ = char(0x80 | ((unit >> 6) & 0x3F));
                    *o++ = char(0x80 | (unit & 0x3F));
                }
                break;
            }
            default:
                *o++ = kind;  // " \ /
                break;
        }
    }
    return o - out;
}

}  // namespace varnel::json_fields
