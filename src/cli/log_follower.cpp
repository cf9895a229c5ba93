#include "cli/log_follower.h"

#include <algorithm>

namespace varnel::cli {

namespace {

// What the row builder puts between a row's message and each folded line.
const QString foldSeparator = QStringLiteral("  \u27F6  ");

// Places tried before giving up and reading the log afresh; only logs made of one line
// repeated over and over get near it.
constexpr int maxCandidates = 64;

// Past the read limit the tail's window slides: the new text begins with the end of the
// old one, from a line start. Where that end begins in the old text, or -1.
qsizetype overlapStart(const QString& before, const QString& after) {
    const qsizetype lineEnd = after.indexOf(u'\n');
    const QStringView firstLine = QStringView(after).left(lineEnd < 0 ? after.size() : lineEnd + 1);
    if (firstLine.isEmpty()) return -1;
    qsizetype at = before.indexOf(firstLine);
    for (int tried = 0; at >= 0 && tried < maxCandidates; ++tried) {
        if ((at == 0 || before.at(at - 1) == u'\n') &&
            QStringView(after).startsWith(QStringView(before).mid(at)))
            return at;
        at = before.indexOf(firstLine, at + 1);
    }
    return -1;
}

bool passes(const QList<qsizetype>& passing, qsizetype index) {
    return std::binary_search(passing.cbegin(), passing.cend(), index);
}

}  // namespace

LogFollower::LogFollower(QString levelChoice, QString search)
    : level_(std::move(levelChoice)), search_(std::move(search)) {}

FollowStep LogFollower::start(const LogTail& tail) {
    return restartWith(tail, tail.error ? FollowStep::Kind::failed : FollowStep::Kind::restart);
}

FollowStep LogFollower::restartWith(const LogTail& tail, FollowStep::Kind kind) {
    error_ = tail.error;
    text_ = tail.error ? QString() : tail.text;
    rows_ = tail.error ? LogRows::fromError(*tail.error) : LogRows::build(tail.text);
    const QList<qsizetype> passing = filterRows(rows_, level_, search_);
    lastShown_ = !passing.isEmpty() && passing.last() == rows_.size() - 1;

    FollowStep step;
    step.kind = kind;
    step.shown = passing.size();
    step.total = rows_.size();
    step.truncated = !tail.error && tail.truncated;
    for (qsizetype index : passing)
        step.items.append({FollowItem::Kind::row, rows_[index].toRow()});
    return step;
}

FollowStep LogFollower::update(const LogTail& tail, bool replaced) {
    if (tail.error) {
        if (error_ == tail.error) return {};
        return restartWith(tail, FollowStep::Kind::failed);
    }
    if (error_ || replaced) return restartWith(tail, FollowStep::Kind::restart);
    if (tail.text == text_) return {};

    // The rows of the part of the old text that the new one still starts with.
    LogRows before = rows_;
    if (!tail.text.startsWith(text_)) {
        const qsizetype from = overlapStart(text_, tail.text);
        if (from < 0) return restartWith(tail, FollowStep::Kind::restart);
        before = LogRows::build(text_.mid(from));
    }
    LogRows after = LogRows::build(tail.text);
    const QList<qsizetype> passing = filterRows(after, level_, search_);

    FollowStep step;
    step.kind = FollowStep::Kind::grown;
    // The old last row may have grown: folded lines, or the rest of a line caught half-written.
    const qsizetype last = std::min(before.size(), after.size()) - 1;
    bool lastShown = lastShown_;
    if (last >= 0) {
        const LogRow old = before[last].toRow();
        const LogRow now = after[last].toRow();
        if (old != now) {
            const bool folded = now.raw.startsWith(old.raw + u'\n') &&
                                now.message.startsWith(old.message) && now.time == old.time &&
                                now.level == old.level && now.source == old.source;
            if (lastShown_ && folded) {
                QString added = now.message.mid(old.message.size());
                if (added.startsWith(foldSeparator)) added.remove(0, foldSeparator.size());
                step.items.append({FollowItem::Kind::continuation,
                                   {{}, {}, {}, added, now.raw.mid(old.raw.size() + 1)}});
            } else if (passes(passing, last)) {
                step.items.append({FollowItem::Kind::row, now});
                lastShown = true;
            } else {
                lastShown = false;
            }
        }
    }
    for (qsizetype index = last + 1; index < after.size(); ++index) {
        lastShown = passes(passing, index);
        if (lastShown) step.items.append({FollowItem::Kind::row, after[index].toRow()});
    }

    lastShown_ = lastShown;
    text_ = tail.text;
    rows_ = std::move(after);
    return step;
}

}  // namespace varnel::cli
