#include "logs/row_builder.h"

#include <QThreadPool>

#include "logs/log_parser.h"
#include "platform/background.h"
#include "platform/text.h"

namespace varnel::rows {

namespace {

using LogParser::Span;
using LogParser::SpanBase;

const Span& spanOf(const LogParser::Spans& s, int field) {
    switch (field) {
        case kTime:
            return s.time;
        case kLevel:
            return s.level;
        case kSource:
            return s.source;
        case kMessage:
            return s.message;
        default:
            return s.raw;
    }
}

Ref toRef(const Span& span, qsizetype lineAt) {
    switch (span.base) {
        case SpanBase::line:
            return {quint32(lineAt + span.pos) | (kInText << kBaseShift), quint32(span.size)};
        case SpanBase::side:
            return sideRef(span.pos, span.size);
        case SpanBase::word:
            return {quint32(span.pos) | (kFixedWord << kBaseShift),
                    quint32(LogParser::fixedWord(span.pos).size())};
    }
    return {};
}

QStringView lineOf(const Flat& part, const Fold& f) {
    return QStringView(part.text).sliced(f.line.at, f.line.size);
}

// Below this a second thread costs more than it saves.
constexpr qsizetype kParallelFrom = qsizetype(1) << 18;

}  // namespace

void Builder::add(QStringView line, qsizetype lineAt) {
    const LogParser::Spans spans = LogParser::parseSpans(line, d_.side);
    Record record;
    record.lineAt = quint32(lineAt);
    for (int f = 0; f < kFieldCount; ++f)
        record.fields[size_t(f)] = toRef(spanOf(spans, f), lineAt);

    const QStringView message = d_.view(record.fields[kMessage]);
    const QStringView trimmed = text::trimBlanks(message);
    const bool continuation =
        line.front().isSpace() || trimmed.startsWith(u"at ") || trimmed.startsWith(u"in ");
    const bool stamped = spans.time.size > 0;
    Ref trimmedRef = record.fields[kMessage];
    if (baseOf(trimmedRef) != kFixedWord) {
        trimmedRef.at += quint32(trimmed.data() - message.data());
        trimmedRef.size = quint32(trimmed.size());
    }
    const Fold fold{trimmedRef, {quint32(lineAt), quint32(line.size())}};
    if (!stamped && continuation && lastStamped_) {
        folds_.push_back(fold);
        return;
    }
    // Rows that would fold into a row before this stretch of lines, if that
    // row has a time stamp; see appendPart().
    if (!anchored_ && !stamped && continuation) {
        leading_.push_back(fold);
    } else {
        anchored_ = true;
    }
    finishLast();
    d_.records.push_back(record);
    lastStamped_ = stamped;
}

void Builder::appendPart(Flat& part, const Builder& partBuilder) {
    const quint32 shift = quint32(d_.side.size());
    d_.side.append(part.side);
    auto rebaseSide = [shift](Ref& ref) {
        if (baseOf(ref) == kInSide) ref.at += shift;
    };
    for (Record& record : part.records)
        for (Ref& ref : record.fields) rebaseSide(ref);
    size_t skip = 0;
    if (lastStamped_ && !d_.records.empty() && !partBuilder.leading_.empty()) {
        folds_ = partBuilder.leading_;
        for (Fold& f : folds_) rebaseSide(f.message);
        skip = folds_.size();
        finishLast();
    }
    d_.records.insert(d_.records.end(), part.records.begin() + qsizetype(skip), part.records.end());
    if (part.records.size() > skip) lastStamped_ = partBuilder.lastStamped_;
}

void Builder::finishLast() {
    if (d_.records.empty()) return;
    Record& last = d_.records.back();
    if (!folds_.empty()) fold(last);
    last.ascii = isAsciiRow(d_.row(last));
}

void Builder::fold(Record& last) {
    last.fields[kMessage] = append(foldedMessage(d_.view(last.fields[kMessage]), d_, folds_));

    // The raw lines usually follow each other in the text, and then the
    // folded raw text is just a longer slice of it.
    Ref raw = last.fields[kRaw];
    bool contiguous = baseOf(raw) == kInText && raw.size > 0;
    qsizetype end = offsetOf(raw) + raw.size;
    for (const Fold& f : folds_) {
        if (!contiguous) break;
        contiguous = f.line.at == end + 1 && d_.text[end] == u'\n';
        end = qsizetype(f.line.at) + f.line.size;
    }
    if (contiguous) {
        raw.size = quint32(end - offsetOf(raw));
        last.fields[kRaw] = raw;
    } else {
        last.fields[kRaw] = append(foldedRaw(d_.view(raw), d_, folds_));
    }
    folds_.clear();
}

Ref Builder::append(const QString& text) {
    const Ref ref = sideRef(d_.side.size(), text.size());
    d_.side.append(text);
    return ref;
}

void addLines(Builder& builder, QStringView all, qsizetype from, qsizetype to) {
    qsizetype at = from;
    while (at < to) {
        qsizetype lineEnd = all.indexOf(u'\n', at);
        if (lineEnd < 0 || lineEnd > to) lineEnd = to;
        QStringView line = all.sliced(at, lineEnd - at);
        // A carriage return before the line feed belongs to the line end.
        if (line.endsWith(u'\r')) line.chop(1);
        if (!text::isBlankOnly(line)) builder.add(line, at);
        at = lineEnd + 1;
    }
    builder.finish();
}

QString foldedMessage(QStringView message, const Flat& part, const std::vector<Fold>& folds) {
    QString out = message.toString();
    for (const Fold& f : folds) {
        out += foldSeparator;
        out += part.view(f.message);
    }
    return out;
}

QString foldedRaw(QStringView raw, const Flat& part, const std::vector<Fold>& folds) {
    QString out = raw.toString();
    for (const Fold& f : folds) {
        out += u'\n';
        out += lineOf(part, f);
    }
    return out;
}

Flat buildFlat(QString text) {
    if (text.size() > kMaxText) {
        const qsizetype lineEnd = text.indexOf(u'\n', text.size() - kMaxText);
        text.remove(0, lineEnd >= 0 ? lineEnd + 1 : text.size() - kMaxText);
    }
    Flat flat;
    flat.text = std::move(text);
    const QStringView all(flat.text);
    Builder builder(flat);

    // The second half of the lines is parsed alongside into its own records
    // and side buffer (sharing the text), then appended.
    const qsizetype middle =
        all.size() >= kParallelFrom ? all.indexOf(u'\n', all.size() / 2) + 1 : 0;
    if (middle > 0) {
        Flat part;
        part.text = flat.text;
        Builder partBuilder(part);
        allAtOnce(*QThreadPool::globalInstance(),
                  {[&] { addLines(builder, all, 0, middle); },
                   [&] { addLines(partBuilder, all, middle, all.size()); }});
        builder.appendPart(part, partBuilder);
    } else {
        addLines(builder, all, 0, all.size());
    }
    return flat;
}

}  // namespace varnel::rows
