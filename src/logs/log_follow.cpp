#include "logs/log_follow.h"

#include "logs/log_tail.h"

namespace varnel {

namespace {

// Enough to tell a rewritten file from one that grew, in practice.
constexpr qsizetype kPrintBytes = 64;
constexpr qsizetype kChunk = qsizetype(64) * 1024;

// Just past the first line feed at or after `from`, before `end`.
std::optional<quint64> lineStartAfter(const fs::ReadOnlyFile& file, quint64 from, quint64 end) {
    for (quint64 at = from; at < end; at += kChunk) {
        const auto bytes = file.readExactly(at, qsizetype(qMin<quint64>(kChunk, end - at)));
        if (!bytes) return std::nullopt;
        const qsizetype lineFeed = bytes->indexOf('\n');
        if (lineFeed >= 0) return at + quint64(lineFeed) + 1;
    }
    return std::nullopt;
}

std::optional<qsizetype> lineFeedsIn(const fs::ReadOnlyFile& file, quint64 from, quint64 end) {
    qsizetype count = 0;
    for (quint64 at = from; at < end; at += kChunk) {
        const auto bytes = file.readExactly(at, qsizetype(qMin<quint64>(kChunk, end - at)));
        if (!bytes) return std::nullopt;
        count += bytes->count('\n');
    }
    return count;
}

bool sameFile(const LogFollow::FileState& a, const LogFollow::FileState& b) {
    return a.present && b.present && a.device == b.device && a.inode == b.inode;
}

}  // namespace

LogFollow::LogFollow(QString path, quint64 maxBytes)
    : path_(std::move(path)), maxBytes_(maxBytes) {}

LogFollowChange LogFollow::load() {
    const FileState before = fs::stamp(path_);
    LogTail tail = readLogTail(path_, maxBytes_);
    truncated_ = tail.truncated;
    rows_ = tail.error ? LogRows::fromError(*tail.error) : LogRows::build(std::move(tail.text));
    seen_ = before;
    continuable_ = !tail.error && settle(before);
    return {LogFollowChange::Kind::reloaded};
}

// Works out where the rows just loaded stand in the file, provided the file
// stayed as it was while it was read.
bool LogFollow::settle(const FileState& before) {
    if (!before.present || before.size == 0) return false;
    const fs::ReadOnlyFile file(path_);
    if (file.stamp() != before) return false;
    const quint64 size = before.size;

    // A one-byte file could still become UTF-16 by its second byte.
    const auto head = file.readExactly(0, qsizetype(qMin<quint64>(2, size)));
    if (!head) return false;
    const uchar first = uchar(head->at(0));
    if (first == 0xFF || first == 0xFE) {
        if (head->size() < 2) return false;
        const uchar second = uchar(head->at(1));
        if ((first == 0xFF && second == 0xFE) || (first == 0xFE && second == 0xFF)) return false;
    }

    const qsizetype printSize = qsizetype(qMin<quint64>(kPrintBytes, size));
    const auto print = file.readExactly(size - quint64(printSize), printSize);
    if (!print || !print->endsWith('\n')) return false;

    quint64 windowStart = 0;
    if (size > maxBytes_) {
        const auto start = lineStartAfter(file, size - maxBytes_, size);
        if (!start) return false;
        windowStart = *start;
    }
    if (fs::stamp(path_) != before) return false;
    consumed_ = size;
    windowStart_ = windowStart;
    lastBytes_ = *print;
    return true;
}

LogFollowChange LogFollow::update() {
    const FileState now = fs::stamp(path_);
    if (now == seen_) return {};
    if (!continuable_ || !sameFile(now, seen_) || now.size <= consumed_) return load();
    // The window moves past everything read before: nothing to keep.
    if (now.size > maxBytes_ && now.size - maxBytes_ >= consumed_) return load();

    const fs::ReadOnlyFile file(path_);
    if (!sameFile(file.stamp(), now)) return load();
    const auto print = file.readExactly(consumed_ - quint64(lastBytes_.size()), lastBytes_.size());
    if (!print || *print != lastBytes_) return load();
    const auto grown = file.readExactly(consumed_, qsizetype(now.size - consumed_));
    if (!grown || !grown->endsWith('\n')) return load();

    LogFollowChange change{LogFollowChange::Kind::grown};
    LogRows rows = rows_;
    quint64 windowStart = windowStart_;
    if (now.size > maxBytes_) {
        // There is a line feed before the old end, so the new window starts
        // at or before it.
        const auto start = lineStartAfter(file, now.size - maxBytes_, consumed_);
        if (!start) return load();
        windowStart = *start;
        if (windowStart > windowStart_) {
            const auto lines = lineFeedsIn(file, windowStart_, windowStart);
            if (!lines) return load();
            LogRows::Trimmed trimmed = rows.withoutLeadingLines(*lines);
            rows = std::move(trimmed.rows);
            change.dropped = trimmed.dropped;
            change.rederived = trimmed.rederived;
        }
    }

    // Appended bytes start after a line feed, where decoding starts afresh.
    QString more = QString::fromUtf8(*grown);
    if (more.contains(QChar::ByteOrderMark)) more.remove(QChar::ByteOrderMark);
    LogRows::Appended appended = rows.appended(more);
    if (appended.rebuilt) return load();
    change.lastChanged = appended.lastChanged;
    change.added = appended.added;

    rows_ = std::move(appended.rows);
    truncated_ = now.size > maxBytes_;
    seen_ = now;
    consumed_ = now.size;
    windowStart_ = windowStart;
    lastBytes_ = (lastBytes_ + *grown).right(kPrintBytes);
    return change;
}

}  // namespace varnel
