#include "logs/log_follow.h"

#include <optional>

namespace varnel {

namespace {

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

}  // namespace

LogFollow::LogFollow(QString path, quint64 maxBytes)
    : reader_(std::move(path), LogReader::Mode::window), maxBytes_(maxBytes) {}

LogFollowChange LogFollow::load() {
    TailPlace place;
    LogTail tail = reader_.start(maxBytes_, &place);
    truncated_ = tail.truncated;
    rows_ = tail.error ? LogRows::fromError(*tail.error) : LogRows::build(tail.text);
    windowStart_ = place.firstLine;
    // UTF-16 is decoded as a whole: its rows are only ever read afresh.
    continuable_ = !tail.error && place.encoding == LogEncoding::Kind::utf8 &&
                   reader_.offset() > 0 && !reader_.unfinished();
    return {LogFollowChange::Kind::reloaded};
}

LogFollowChange LogFollow::update() {
    if (!continuable_) return reader_.changed() ? load() : LogFollowChange{};
    const quint64 consumed = reader_.offset();
    const LogReader::Chunk chunk = reader_.next(qsizetype(qMin<quint64>(maxBytes_, 1u << 30)));
    if (chunk.event != LogReader::Event::none || chunk.more || reader_.unfinished()) return load();
    if (chunk.text.isEmpty()) return {};
    const quint64 size = reader_.offset();
    // The window moves past everything read before: nothing to keep.
    if (size > maxBytes_ && size - maxBytes_ >= consumed) return load();

    LogFollowChange change{LogFollowChange::Kind::grown};
    LogRows rows = rows_;
    quint64 windowStart = windowStart_;
    if (size > maxBytes_) {
        // There is a line feed before the old end, so the new window starts
        // at or before it.
        const fs::ReadOnlyFile& file = *reader_.file();
        const auto start = lineStartAfter(file, size - maxBytes_, consumed);
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

    LogRows::Appended appended = rows.appended(chunk.text);
    if (appended.rebuilt) return load();
    change.lastChanged = appended.lastChanged;
    change.added = appended.added;
    rows_ = std::move(appended.rows);
    truncated_ = size > maxBytes_;
    windowStart_ = windowStart;
    return change;
}

}  // namespace varnel
