#include "logs/json_fields.h"

#include <algorithm>
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

Q_ALWAYS_INLINE int topLevelSlot(const char* key, qsizetype size) {
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
Q_ALWAYS_INLINE const char* skipPlain(const char* begin, const char* p, const char* end) {
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

// The string whose opening quote is at p, in the text from begin to end: the
// position after its closing quote, or nullptr.
// Inlined: it is most of a line's reading, and a call would cost a third more.
Q_ALWAYS_INLINE const char* readString(const char* begin, const char* end, const char* p,
                                       Value& out) {
    ++p;  // the opening quote
    const char* start = p;
    bool escaped = false;
    while (true) {
        p = skipPlain(begin, p, end);
        if (p == end) return nullptr;
        const char c = *p;
        if (c == '"') {
            out.kind = Value::Kind::string;
            out.escaped = escaped;
            out.pos = start - begin;
            out.size = p - start;
            return p + 1;
        }
        if (c == '\\') {
            escaped = true;
            if (end - p < 2) return nullptr;
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
                    if (end - p < 6) return nullptr;
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
        if (uchar(c) == 0xEF && end - p >= 3 && uchar(p[1]) == 0xBB && uchar(p[2]) == 0xBF)
            return nullptr;
        ++p;
    }
}

// The number at p, which the text's last brace ends at the latest: the
// position after it, or nullptr. Positions count from begin.
Q_ALWAYS_INLINE const char* readNumber(const char* begin, const char* end, const char* p,
                                       Value& out) {
    const char* start = p;
    if (*p == '-') ++p;
    if (!isDigit(*p)) return nullptr;
    const char* digits = p;
    if (*p == '0') {
        ++p;
        if (isDigit(*p)) return nullptr;
    } else {
        p = skipDigits(p, end);
    }
    if (p - digits > kMaxDigits) return nullptr;
    bool fraction = false;
    if (*p == '.') {
        ++p;
        const char* fractionStart = p;
        p = skipDigits(p, end);
        const qsizetype count = p - fractionStart;
        if (count == 0 || count > kMaxDigits) return nullptr;
        fraction = true;
    }
    if (*p == 'e' || *p == 'E') return nullptr;
    out.kind = Value::Kind::number;
    out.pos = start - begin;
    out.size = p - start;
    // Qt prints -0 as "0"; leave that one to it.
    out.plainInteger = !fraction && !(out.size == 2 && start[0] == '-');
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
// than in the scanner. A recording scanner also keeps every string, number
// and boolean it reads, in order: what a layout is learnt from.
template <bool kRecording>
class Scanner {
public:
    explicit Scanner(QUtf8StringView text)
        : begin_(reinterpret_cast<const char*>(text.data())), end_(begin_ + text.size()) {}

    bool run(Fields& out) {
        // Anything after the object would hold the last brace: no white space only.
        return object(begin_, 1, Mode::top) == end_ && choose(out);
    }
    // What was kept goes to `values` (room for Reader::kMaxValues); `count`
    // says how many there were, kept or not.
    bool run(Fields& out, Value* values, int& count) {
        static_assert(kRecording);
        record_ = values;
        const bool decided = run(out);
        count = recorded_;
        return decided;
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

    const char* string(const char* p, Value& out) const { return readString(begin_, end_, p, out); }

    const char* number(const char* p, Value& out) const { return readNumber(begin_, end_, p, out); }

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
                out.pos = p - begin_;
                out.size = 4;
                p = literal(p, "true");
                out.kind = Value::Kind::boolean;
                out.truth = true;
                break;
            case 'f':
                out.pos = p - begin_;
                out.size = 5;
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
            keep(ignored);
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
            keep(v);
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

    void keep(const Value& v) {
        if (!kRecording || v.kind == Value::Kind::none) return;
        if (recorded_ < Reader::kMaxValues) record_[recorded_] = v;
        ++recorded_;
    }

    const char* begin_;
    const char* end_;
    Found found_;
    Value* record_ = nullptr;
    int recorded_ = 0;
};

// What layouts earn and spend (see Reader), in quarters of what reading one
// value key by key costs, as measured on lines of a few layouts and of many
// that share their start: a value a layout reads costs three quarters, and
// each layout tried in vain nearly two (the branch that leaves it goes the
// wrong way), whether one fits in the end or none does.
constexpr int kSavedPerValue = 1;
constexpr int kLostPerSwitch = 7;
constexpr int kStartCredit = 64;
constexpr int kMostCredit = 256;
constexpr int kRest = 1024;

// The five values of a Fields, in the order a layout numbers them.
template <typename F>
auto valuesOf(F& fields) {
    return std::array{&fields.time, &fields.level, &fields.source, &fields.message,
                      &fields.nestedMessage};
}

// Up to the first eight bytes of a line as a word, the first byte lowest.
inline quint64 firstBytes(const char* line, qsizetype size) {
    quint64 word = 0;
    if constexpr (std::endian::native == std::endian::little) {
        if (size >= 8) {
            std::memcpy(&word, line, 8);
            return word;
        }
    }
    for (qsizetype i = 0; i < qMin<qsizetype>(size, 8); ++i)
        word |= quint64(uchar(line[i])) << (8 * i);
    return word;
}

// Whether the n bytes at a and at b are the same, `room` bytes readable at
// a. They are the few bytes between two values: a vector or words at a time
// rather than a call.
inline bool sameBytes(const char* a, qsizetype room, const char* b, qsizetype n) {
#if defined(__SSE2__)
    if (n <= 16 && room >= 16) {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a));
        const __m128i y = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b));
        const unsigned differ = ~unsigned(_mm_movemask_epi8(_mm_cmpeq_epi8(x, y)));
        return (differ & ((1u << n) - 1)) == 0;
    }
#else
    (void)room;
#endif
    const auto word = [](const char* at) {
        quint64 v;
        std::memcpy(&v, at, 8);
        return v;
    };
    if (n >= 8) {
        for (; n > 8; a += 8, b += 8, n -= 8)
            if (word(a) != word(b)) return false;
        // The last eight, overlapping what was compared.
        return word(a + n - 8) == word(b + n - 8);
    }
    for (; n > 0; --n)
        if (*a++ != *b++) return false;
    return true;
}

}  // namespace

Q_ALWAYS_INLINE void Reader::makeLatest(int slot) {
    // A slot just added is not in the order yet: it comes from its end.
    int at = 0;
    while (at < count_ - 1 && order_[size_t(at)] != slot) ++at;
    for (; at > 0; --at) order_[size_t(at)] = order_[size_t(at - 1)];
    order_[0] = quint8(slot);
}

bool Reader::read(QUtf8StringView text, Fields& out, int& worth) {
    worth = 0;
    if (count_ == 0) return false;
    const char* begin = reinterpret_cast<const char*>(text.data());
    const char* end = begin + text.size();
    const auto fields = valuesOf(out);
    std::array<const char*, kMaxValues + 1> starts;  // where the line's steps start
    // The latest used of the layouts that begin as the line does, chosen
    // without a branch that could go the wrong way; the others never fit.
    const quint64 head = firstBytes(begin, text.size());
    int current = -1;
    quint32 tried = 0;
    for (int i = count_ - 1; i >= 0; --i) {
        const int at = order_[size_t(i)];
        const Layout& layout = layouts_[size_t(at)];
        const bool begins = (head & layout.headMask) == layout.head;
        current = begins ? at : current;
        tried |= quint32(!begins) << at;
    }
    if (current < 0) return false;
    tried |= 1u << current;
    int switches = 0;
    int k = 0;
    const char* p = begin;
    while (true) {
        const Layout& layout = layouts_[size_t(current)];
        int parted = layout.values;  // the step where the line parts from the layout
        for (; k < layout.values; ++k) {
            const Layout::Step& step = layout.steps[size_t(k)];
            starts[size_t(k)] = p;
            if (end - p < step.size ||
                !sameBytes(p, end - p, layout.bytes.data() + step.from, step.size)) {
                parted = k;
                break;
            }
            p += step.size;
            // Straight into the field it gives, where it gives one.
            Value ignored;
            Value& v = step.field >= 0 ? *fields[size_t(quint8(step.field))] : ignored;
            if (step.kind == Value::Kind::string) {
                // The bytes before end with its opening quote; the bytes after
                // begin with its closing one.
                p = readString(begin, end, p - 1, v);
                if (p != nullptr) --p;
            } else if (step.kind == Value::Kind::number) {
                p = readNumber(begin, end, p, v);
            } else if (end - p >= 4 && std::memcmp(p, "true", 4) == 0) {
                v.kind = Value::Kind::boolean;
                v.truth = true;
                p += 4;
            } else if (end - p >= 5 && std::memcmp(p, "false", 5) == 0) {
                v.kind = Value::Kind::boolean;
                v.truth = false;
                p += 5;
            } else {
                p = nullptr;
            }
            if (p == nullptr) {
                parted = k;
                break;
            }
        }
        if (k == layout.values) {
            const Layout::Step& step = layout.steps[size_t(k)];
            starts[size_t(k)] = p;
            if (end - p == step.size &&
                sameBytes(p, end - p, layout.bytes.data() + step.from, step.size)) {
                for (size_t f = 0; f < fields.size(); ++f) {
                    if (!layout.given[f]) *fields[f] = Value{};
                    // A number only Qt can print: left to the reading key by key,
                    // which leaves it to Qt.
                    else if (((layout.numbers >> f) & 1) != 0 && !fields[f]->plainInteger)
                        return false;  // rare: worth nothing either way
                }
                worth = layout.values * kSavedPerValue - switches * kLostPerSwitch;
                makeLatest(current);
                return true;
            }
        }
        // On with the layout not tried yet that shares the most of what was read.
        int next = -1;
        for (int i = 0; i < count_ - 1 && next < 0; ++i) {
            const int other = alike_[size_t(current)][size_t(i)];
            if (((tried >> other) & 1) == 0) next = other;
        }
        if (next < 0) {
            worth = -(switches + 1) * kLostPerSwitch;
            return false;
        }
        k = qMin(parted, int(shared_[size_t(current)][size_t(next)]));
        tried |= 1u << next;
        ++switches;
        current = next;
        p = starts[size_t(k)];
    }
}

void Reader::learn(QUtf8StringView text, const Value* values, int count, const Fields& fields) {
    if (count > kMaxValues) return;
    qsizetype between = text.size();
    for (int k = 0; k < count; ++k) between -= values[k].size;
    if (between > kMaxBytes) return;
    // The value each field took: every string, number and boolean was kept.
    std::array<qint8, kMaxValues> fieldOf;
    fieldOf.fill(-1);
    std::array<bool, 5> given{};
    quint8 numbers = 0;
    const auto chosen = valuesOf(fields);
    for (size_t f = 0; f < chosen.size(); ++f) {
        if (chosen[f]->kind == Value::Kind::none) continue;
        for (int k = 0; k < count && !given[f]; ++k)
            if (values[k].pos == chosen[f]->pos && values[k].kind == chosen[f]->kind) {
                fieldOf[size_t(k)] = qint8(f);
                given[f] = true;
                if (values[k].kind == Value::Kind::number) numbers |= quint8(1u << f);
            }
        if (!given[f]) return;
    }

    // In place of the layout used longest ago, which becomes the latest.
    const int slot = count_ < kLayouts ? count_++ : order_[size_t(kLayouts - 1)];
    makeLatest(slot);

    Layout& layout = layouts_[size_t(slot)];
    const char* line = reinterpret_cast<const char*>(text.data());
    const qsizetype headSize = qMin<qsizetype>(8, count > 0 ? values[0].pos : text.size());
    layout.headMask = headSize == 8 ? ~quint64(0) : (quint64(1) << (8 * headSize)) - 1;
    layout.head = firstBytes(line, text.size()) & layout.headMask;
    layout.values = count;
    layout.given = given;
    layout.numbers = numbers;
    qsizetype from = 0;
    qsizetype used = 0;
    for (int k = 0; k <= count; ++k) {
        const qsizetype to = k < count ? values[k].pos : text.size();
        Layout::Step& step = layout.steps[size_t(k)];
        step.from = quint16(used);
        step.size = quint16(to - from);
        std::memcpy(layout.bytes.data() + used, line + from, size_t(to - from));
        used += to - from;
        if (k == count) break;
        step.kind = values[k].kind;
        step.field = fieldOf[size_t(k)];
        from = values[k].pos + values[k].size;
    }
    for (int i = 0; i < count_; ++i) {
        const int other = order_[size_t(i)];
        const Layout& them = layouts_[size_t(other)];
        int same = 0;
        while (same < layout.values && same < them.values) {
            const Layout::Step& a = layout.steps[size_t(same)];
            const Layout::Step& b = them.steps[size_t(same)];
            if (a.size != b.size || a.kind != b.kind || a.field != b.field ||
                std::memcmp(layout.bytes.data() + a.from, them.bytes.data() + b.from, a.size) != 0)
                break;
            ++same;
        }
        shared_[size_t(slot)][size_t(other)] = quint8(same);
        shared_[size_t(other)][size_t(slot)] = quint8(same);
    }
    for (int one = 0; one < count_; ++one) {
        auto& others = alike_[size_t(one)];
        int n = 0;
        for (int other = 0; other < count_; ++other)
            if (other != one) others[size_t(n++)] = quint8(other);
        const auto& shares = shared_[size_t(one)];
        std::stable_sort(others.begin(), others.begin() + n,
                         [&](quint8 a, quint8 b) { return shares[size_t(a)] > shares[size_t(b)]; });
    }
}

bool Reader::extract(QUtf8StringView text, Fields& out) {
    // An object Qt accepts ends with its brace once white space is trimmed.
    if (text.size() < 2 || text.front() != '{' || text.back() != '}') return false;
    if (resting_ > 0) {
        --resting_;
        return Scanner<false>(text).run(out);
    }
    int worth = 0;
    const bool read = this->read(text, out, worth);
    std::array<Value, kMaxValues> values;
    int count = 0;
    const bool decided = read || Scanner<true>(text).run(out, values.data(), count);
    credit_ = qMin(credit_ + worth, kMostCredit);
    if (credit_ < 0) {
        credit_ = kStartCredit;
        resting_ = kRest;
    }
    if (!read && decided) learn(text, values.data(), count, out);
    return decided;
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
