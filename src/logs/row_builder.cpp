#include "logs/row_builder.h"

#include <cstring>

namespace varnel::rows {

namespace {

using LogParser::Span;
using LogParser::SpanBase;

bool startsWith(QUtf8StringView text, const char (&word)[4]) {
    return text.size() >= 3 && std::memcmp(text.data(), word, 3) == 0;
}

bool isBlankOnlyAscii(QUtf8StringView line) {
    for (const char c : utf8::bytes(line))
        if (c != ' ' && c != '\t') return false;
    return true;
}

}  // namespace

Builder::Builder(LogRows::Data& d, ByteStore& side, quint32 sideBase)
    : d_(d), side_(side), sideBase_(sideBase) {}

void Builder::continueLastRow() {
    if (d_.count == 0) return;
    continued_ = d_.count - 1;
    lastStamped_ = d_.record(continued_).fields[kTime].size > 0;
}

QUtf8StringView Builder::view(Ref r) const {
    switch (baseOf(r)) {
        case kInText:
            return QUtf8StringView(d_.text->data() + offsetOf(r), qsizetype(r.size));
        case kInSide:
            return QUtf8StringView(d_.side->data() + offsetOf(r), qsizetype(r.size));
        case kInNewSide:
            return QUtf8StringView(side_.data() + offsetOf(r), qsizetype(r.size));
        default:
            return LogParser::fixedWord(offsetOf(r));
    }
}

inline Ref Builder::toRef(const Span& span, quint32 lineBase, qsizetype lineAt) const {
    // Most fields are slices of their line: tested first, rather than through
    // a jump table that each field of a row may send elsewhere.
    if (span.base == SpanBase::line) return ref(lineBase, lineAt + span.pos, span.size);
    if (span.base == SpanBase::side) return ref(sideBase_, span.pos, span.size);
    return ref(kFixedWord, span.pos, LogParser::fixedWord(span.pos).size());
}

void Builder::addLines(qsizetype from, qsizetype to) {
    const utf8::ScanPath path = utf8::fastestScan();
    qsizetype at = from;
    while (at < to) {
        const char* text = d_.text->data();
        const utf8::LineScan scan = utf8::scanLine(text, at, to, path);
        qsizetype size = scan.end - at;
        // A carriage return before the line feed belongs to the line end.
        if (size > 0 && text[at + size - 1] == '\r') --size;
        const QUtf8StringView line(text + at, size);
        if (scan.ascii) {
            if (!isBlankOnlyAscii(line)) add(line, kInText, at, at, scan);
        } else if (utf8::isClean(utf8::bytes(line))) {
            if (!utf8::isBlankOnly(line)) add(line, kInText, at, at, scan);
        } else {
            // Read as U+FFFD where the bytes are not UTF-8, without U+FEFF:
            // the line as read lives in the side buffer. Its carriage return
            // is the one left last once the marks are gone, as a mark may
            // stand between it and the line feed.
            repaired_ = utf8::cleaned(QByteArrayView(text + at, scan.end - at));
            if (repaired_.endsWith('\r')) repaired_.chop(1);
            const QUtf8StringView fixed(repaired_);
            if (!utf8::isBlankOnly(fixed)) {
                const qsizetype sideAt = side_.append(repaired_);
                add(fixed, sideBase_, sideAt, at,
                    {scan.end, utf8::isAscii(fixed), repaired_.contains('\x1b')});
            }
        }
        at = scan.end + 1;
    }
}

void Builder::add(QUtf8StringView line, quint32 lineBase, qsizetype lineAt, qsizetype textAt,
                  const utf8::LineScan& scan) {
    if (lastStamped_ && scan.ascii && !scan.escape) {
        // A stack frame folds whatever else it holds: its first word is too
        // short to be a level or to end in ':', and no time stamp begins
        // with a letter, so its message is the whole trimmed line.
        const QUtf8StringView trimmed = utf8::trimmed(line);
        if (startsWith(trimmed, "at ") || startsWith(trimmed, "in ")) {
            folds_.push_back(
                {ref(lineBase, lineAt + (trimmed.data() - line.data()), trimmed.size()),
                 ref(lineBase, lineAt, line.size()), true});
            return;
        }
    }
    const LogParser::Spans spans = parser_.parse(line, {scan.ascii, scan.escape, false}, side_);
    const bool stamped = spans.time.size > 0;
    if (!stamped && lastStamped_) {
        const QUtf8StringView message =
            LogParser::resolve(spans.message, line, QUtf8StringView(side_.data(), side_.size()));
        const QUtf8StringView trimmed = utf8::trimBlanks(message);
        if (utf8::startsWithSpace(line) || startsWith(trimmed, "at ") ||
            startsWith(trimmed, "in ")) {
            LogParser::Span part = spans.message;
            if (part.base != SpanBase::word) {
                part.pos += trimmed.data() - message.data();
                part.size = trimmed.size();
            }
            folds_.push_back({toRef(part, lineBase, lineAt), ref(lineBase, lineAt, line.size()),
                              spans.bytewise});
            return;
        }
    }
    finishLast();
    Record& record = d_.emplaceBack();
    record.lineAt = quint32(textAt);
    record.fields[kTime] = toRef(spans.time, lineBase, lineAt);
    record.fields[kLevel] = toRef(spans.level, lineBase, lineAt);
    record.fields[kSource] = toRef(spans.source, lineBase, lineAt);
    record.fields[kMessage] = toRef(spans.message, lineBase, lineAt);
    record.fields[kRaw] = toRef(spans.raw, lineBase, lineAt);
    record.bytewise = spans.bytewise;
    // Raw is the whole cleaned line; when it is a slice of the line, so is
    // every other slice of it, and nothing the parser made is.
    const auto inLine = [](const Span& span) {
        return span.size == 0 || span.base == SpanBase::line;
    };
    record.withinRaw = spans.raw.base == SpanBase::line
                           ? inLine(spans.time) && inLine(spans.source) && inLine(spans.message)
                           : within(record.fields[kTime], record.fields[kRaw]) &&
                                 within(record.fields[kSource], record.fields[kRaw]) &&
                                 within(record.fields[kMessage], record.fields[kRaw]);
    lastStamped_ = stamped;
}

void Builder::finishLast() {
    if (folds_.empty()) return;
    const qsizetype last = d_.count - 1;
    fold(d_.writable(last));
    if (last == continued_) lastRowChanged_ = true;
}

void Builder::fold(Record& last) {
    // Sizes first: the side buffer may move as it grows, so views are taken after.
    const qsizetype separator = foldSeparator.size();
    qsizetype messageSize = qsizetype(last.fields[kMessage].size);
    for (const Fold& f : folds_) messageSize += separator + qsizetype(f.message.size);
    const qsizetype messageAt = side_.size();
    char* out = side_.extend(messageSize);
    auto put = [&out](QUtf8StringView part) {
        std::memcpy(out, part.data(), size_t(part.size()));
        out += part.size();
    };
    put(view(last.fields[kMessage]));
    for (const Fold& f : folds_) {
        put(foldSeparator);
        put(view(f.message));
        last.bytewise = last.bytewise && f.bytewise;
    }
    last.withinRaw = false;
    last.fields[kMessage] = ref(sideBase_, messageAt, messageSize);

    // The raw lines usually follow each other in the text, and then the
    // folded raw text is just a longer slice of it.
    Ref raw = last.fields[kRaw];
    bool contiguous = baseOf(raw) == kInText && raw.size > 0;
    qsizetype end = offsetOf(raw) + raw.size;
    for (const Fold& f : folds_) {
        if (!contiguous) break;
        contiguous = baseOf(f.line) == kInText && offsetOf(f.line) == end + 1 &&
                     d_.text->data()[end] == '\n';
        end = offsetOf(f.line) + f.line.size;
    }
    if (contiguous) {
        last.fields[kRaw] = ref(kInText, offsetOf(raw), end - offsetOf(raw));
    } else {
        qsizetype rawSize = qsizetype(raw.size);
        for (const Fold& f : folds_) rawSize += 1 + qsizetype(f.line.size);
        const qsizetype rawAt = side_.size();
        out = side_.extend(rawSize);
        put(view(raw));
        for (const Fold& f : folds_) {
            *out++ = '\n';
            put(view(f.line));
        }
        last.fields[kRaw] = ref(sideBase_, rawAt, rawSize);
    }
    folds_.clear();
}

}  // namespace varnel::rows
