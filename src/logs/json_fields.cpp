#include "logs/json_fields.h"

#include <array>

namespace varnel::json_fields {

namespace {

// Slots for the keys a row reads, in the order each field tries them.
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

// Inline, because Qt's out-of-line comparison dominates for keys this short.
template <size_t N>
bool is(QStringView key, const char16_t (&word)[N]) {
    if (key.size() != qsizetype(N - 1)) return false;
    const char16_t* k = key.utf16();
    for (size_t i = 0; i < N - 1; ++i)
        if (k[i] != word[i]) return false;
    return true;
}

int topLevelSlot(QStringView key) {
    switch (key.size()) {
        case 2:
            return is(key, u"ts") ? kTs : kNoSlot;
        case 3:
            if (is(key, u"lvl")) return kLvl;
            if (is(key, u"msg")) return kMsg;
            return kNoSlot;
        case 4:
            if (is(key, u"time")) return kTime;
            if (is(key, u"name")) return kName;
            if (is(key, u"body")) return kBody;
            return kNoSlot;
        case 5:
            return is(key, u"level") ? kLevel : kNoSlot;
        case 6:
            if (is(key, u"target")) return kTarget;
            if (is(key, u"module")) return kModule;
            if (is(key, u"logger")) return kLogger;
            if (is(key, u"source")) return kSource;
            if (is(key, u"fields")) return kFields;
            return kNoSlot;
        case 7:
            return is(key, u"message") ? kMessage : kNoSlot;
        case 8:
            return is(key, u"severity") ? kSeverity : kNoSlot;
        case 9:
            return is(key, u"timestamp") ? kTimestamp : kNoSlot;
        case 10:
            return is(key, u"@timestamp") ? kAtTimestamp : kNoSlot;
        default:
            return kNoSlot;
    }
}

// Far below Qt's own nesting limit, so a line this deep is always left to it.
constexpr int kMaxDepth = 32;
// Up to 15 digits a double holds the number exactly, so neither overflow nor
// rounding can make Qt's reading differ from the digits as written.
constexpr qsizetype kMaxDigits = 15;

bool isDigit(char16_t c) {
    return c >= u'0' && c <= u'9';
}

int hexValue(char16_t c) {
    if (c >= u'0' && c <= u'9') return c - u'0';
    if (c >= u'a' && c <= u'f') return c - u'a' + 10;
    if (c >= u'A' && c <= u'F') return c - u'A' + 10;
    return -1;
}

// The four hex digits after "\u" at p, or -1.
int hexQuad(const char16_t* p) {
    int value = 0;
    for (int i = 0; i < 4; ++i) {
        const int digit = hexValue(p[i]);
        if (digit < 0) return -1;
        value = value * 16 + digit;
    }
    return value;
}

enum class Mode { top, nested, other };

class Scanner {
public:
    explicit Scanner(QStringView text)
        : begin_(text.utf16()), p_(text.utf16()), end_(text.utf16() + text.size()) {}

    std::optional<Fields> run() {
        if (!object(1, Mode::top)) return std::nullopt;
        skipSpace();
        if (p_ != end_) return std::nullopt;
        return choose();
    }

private:
    void skipSpace() {
        while (p_ != end_ && (*p_ == u' ' || *p_ == u'\t' || *p_ == u'\n' || *p_ == u'\r')) ++p_;
    }

    bool string(Value& out) {
        ++p_;  // the opening quote
        const char16_t* start = p_;
        bool escaped = false;
        while (p_ != end_) {
            const char16_t c = *p_;
            if (c == u'"') {
                out.kind = Value::Kind::string;
                out.escaped = escaped;
                out.pos = start - begin_;
                out.size = p_ - start;
                ++p_;
                return true;
            }
            if (c == u'\\') {
                escaped = true;
                if (end_ - p_ < 2) return false;
                switch (p_[1]) {
                    case u'"':
                    case u'\\':
                    case u'/':
                    case u'b':
                    case u'f':
                    case u'n':
                    case u'r':
                    case u't':
                        p_ += 2;
                        continue;
                    case u'u': {
                        if (end_ - p_ < 6) return false;
                        const int unit = hexQuad(p_ + 2);
                        if (unit < 0 || (unit >= 0xD800 && unit <= 0xDFFF)) return false;
                        p_ += 6;
                        continue;
                    }
                    default:
                        return false;
                }
            }
            // Qt's reader drops a byte-order mark inside strings.
            if (c < 0x20 || c == 0xFEFF) return false;
            if (c >= 0xD800 && c <= 0xDFFF) {
                // Only a well-formed pair is plain text to Qt's reader.
                if (c >= 0xDC00 || end_ - p_ < 2 || p_[1] < 0xDC00 || p_[1] > 0xDFFF) return false;
                p_ += 2;
                continue;
            }
            ++p_;
        }
        return false;
    }

    bool number(Value& out) {
        const char16_t* start = p_;
        if (*p_ == u'-') ++p_;
        if (p_ == end_ || !isDigit(*p_)) return false;
        const char16_t* digits = p_;
        if (*p_ == u'0') {
            ++p_;
            if (p_ != end_ && isDigit(*p_)) return false;
        } else {
            while (p_ != end_ && isDigit(*p_)) ++p_;
        }
        if (p_ - digits > kMaxDigits) return false;
        bool fraction = false;
        if (p_ != end_ && *p_ == u'.') {
            ++p_;
            const char16_t* fractionStart = p_;
            while (p_ != end_ && isDigit(*p_)) ++p_;
            const qsizetype count = p_ - fractionStart;
            if (count == 0 || count > kMaxDigits) return false;
            fraction = true;
        }
        if (p_ != end_ && (*p_ == u'e' || *p_ == u'E')) return false;
        out.kind = Value::Kind::number;
        out.pos = start - begin_;
        out.size = p_ - start;
        // Qt prints -0 as "0"; leave that one to it.
        out.plainInteger = !fraction && !(out.size == 2 && start[0] == u'-');
        return true;
    }

    bool literal(QStringView word) {
        if (end_ - p_ < word.size() || QStringView(p_, word.size()) != word) return false;
        p_ += word.size();
        return true;
    }

    // After a value: white space, then one of the structural characters.
    bool atValueEnd() {
        skipSpace();
        return p_ != end_ && (*p_ == u',' || *p_ == u'}' || *p_ == u']');
    }

    bool value(int depth, Value& out, Mode childMode) {
        if (p_ == end_) return false;
        switch (*p_) {
            case u'"':
                if (!string(out)) return false;
                break;
            case u'{':
                if (depth >= kMaxDepth || !object(depth + 1, childMode)) return false;
                break;
            case u'[':
                if (depth >= kMaxDepth || !array(depth + 1)) return false;
                break;
            case u't':
                if (!literal(u"true")) return false;
                out.kind = Value::Kind::boolean;
                out.truth = true;
                break;
            case u'f':
                if (!literal(u"false")) return false;
                out.kind = Value::Kind::boolean;
                out.truth = false;
                break;
            case u'n':
                if (!literal(u"null")) return false;
                break;
            default:
                if (!number(out)) return false;
                break;
        }
        return atValueEnd();
    }

    bool array(int depth) {
        ++p_;
        skipSpace();
        if (p_ != end_ && *p_ == u']') {
            ++p_;
            return true;
        }
        while (true) {
            Value ignored;
            if (!value(depth, ignored, Mode::other)) return false;
            if (*p_ == u']') {
                ++p_;
                return true;
            }
            if (*p_ != u',') return false;
            ++p_;
            skipSpace();
        }
    }

    bool object(int depth, Mode mode) {
        ++p_;
        skipSpace();
        if (p_ != end_ && *p_ == u'}') {
            ++p_;
            return true;
        }
        while (true) {
            if (p_ == end_ || *p_ != u'"') return false;
            Value key;
            if (!string(key)) return false;
            skipSpace();
            if (p_ == end_ || *p_ != u':') return false;
            ++p_;
            skipSpace();

            int slot = kNoSlot;
            bool nestedMessage = false;
            if (mode != Mode::other) {
                // An escaped key could spell a key we want; the real reader decides.
                if (key.escaped) return false;
                const QStringView name(begin_ + key.pos, key.size);
                if (mode == Mode::top) {
                    slot = topLevelSlot(name);
                } else {
                    nestedMessage = is(name, u"message");
                }
            }

            Value v;
            if (slot == kFields) {
                // The last "fields" wins, so what an earlier one held is gone.
                nested_ = Value{};
                if (!value(depth, v, Mode::nested)) return false;
            } else {
                if (!value(depth, v, Mode::other)) return false;
            }
            if (slot >= 0) slots_[slot] = v;
            if (nestedMessage) nested_ = v.kind == Value::Kind::string ? v : Value{};

            if (*p_ == u'}') {
                ++p_;
                return true;
            }
            if (*p_ != u',') return false;
            ++p_;
            skipSpace();
        }
    }

    // Nothing when a chosen value is a number whose text only Qt can give.
    std::optional<Value> first(std::initializer_list<int> order) const {
        for (int slot : order) {
            const Value& v = slots_[size_t(slot)];
            if (v.kind == Value::Kind::none) continue;
            if (v.kind == Value::Kind::number && !v.plainInteger) return std::nullopt;
            return v;
        }
        return Value{};
    }

    std::optional<Fields> choose() const {
        Fields f;
        const auto time = first({kTimestamp, kTs, kTime, kAtTimestamp});
        const auto level = first({kLevel, kLvl, kSeverity});
        const auto source = first({kTarget, kModule, kLogger, kSource, kName});
        const auto message = first({kMessage, kMsg, kBody});
        if (!time || !level || !source || !message) return std::nullopt;
        f.time = *time;
        f.level = *level;
        f.source = *source;
        f.message = *message;
        f.nestedMessage = nested_;
        return f;
    }

    const char16_t* begin_;
    const char16_t* p_;
    const char16_t* end_;
    std::array<Value, kSlotCount> slots_{};
    Value nested_;
};

}  // namespace

std::optional<Fields> extract(QStringView text) {
    if (text.isEmpty() || text.front() != u'{') return std::nullopt;
    return Scanner(text).run();
}

QString unescape(QStringView content) {
    QString out;
    out.reserve(content.size());
    const char16_t* p = content.utf16();
    const char16_t* end = p + content.size();
    while (p != end) {
        if (*p != u'\\') {
            out.append(QChar(*p++));
            continue;
        }
        const char16_t kind = p[1];
        p += 2;
        switch (kind) {
            case u'b':
                out.append(QChar(u'\b'));
                break;
            case u'f':
                out.append(QChar(u'\f'));
                break;
            case u'n':
                out.append(QChar(u'\n'));
                break;
            case u'r':
                out.append(QChar(u'\r'));
                break;
            case u't':
                out.append(QChar(u'\t'));
                break;
            case u'u':
                out.append(QChar(char16_t(hexQuad(p))));
                p += 4;
                break;
            default:
                out.append(QChar(kind));
                break;  // " \ /
        }
    }
    return out;
}

}  // namespace varnel::json_fields
