#include "logs/log_tail.h"

#include <QByteArray>

#include "logs/utf8.h"

namespace varnel {

namespace {

// Room past the tail for lines a followed log appends, in bytes: memory that
// is only reserved until written.
constexpr qsizetype kGrowthRoom = qsizetype(64) * 1024;
// The tail is read in pieces a core's cache holds, and each piece's line
// feeds are counted while it is there: rows are sized from the count, and a
// pass of its own would fetch the whole tail from memory once more.
constexpr qsizetype kPiece = qsizetype(256) * 1024;

LogTail failure(const QString& message) {
    return {LogText(), false, message};
}

}  // namespace

LogTail readLogTail(const QString& path, quint64 maxBytes) {
    const fs::ReadOnlyFile file(path);
    TailPlace place;
    return readLogTail(file, maxBytes, place);
}

LogTail readLogTail(const fs::ReadOnlyFile& file, quint64 maxBytes, TailPlace& place) {
    place = {};
    if (!file.isOpen()) {
        return failure(file.missing()
                           ? QStringLiteral("Log file does not exist yet.")
                           : QStringLiteral("Cannot read this log (permission "
                                            "denied). Try \u2018Open Logs Folder\u2019."));
    }

    char head[2] = {0, 0};
    const qsizetype headSize = file.readAt(0, head, 2);
    place.encoding = LogEncoding::detect(QByteArrayView(head, qMax<qsizetype>(headSize, 0)));

    LogTail tail;
    // Without a size the file is read from its start, never past maxBytes.
    const fs::FileStamp stamp = file.stamp();
    quint64 start = 0;
    quint64 wanted = maxBytes;
    if (stamp.present) {
        tail.truncated = stamp.size > maxBytes;
        start = stamp.size >= maxBytes ? stamp.size - maxBytes : 0;
        wanted = stamp.size - start;
    }
    if (place.encoding != LogEncoding::Kind::utf8 && start % 2 != 0) {
        ++start;
        wanted = wanted > 0 ? wanted - 1 : 0;
    }

    // Never more than maxBytes, even when the file grows meanwhile; when it
    // shrinks, the read just ends early. The bytes are read straight into
    // the store the rows keep, with room for a followed log to grow into.
    const auto size = qsizetype(wanted);
    auto store = std::make_shared<ByteStore>(size + size / 4 + kGrowthRoom);
    char* buffer = store->extend(size);
    qsizetype got = 0;
    qsizetype lineFeeds = 0;
    while (got < size) {
        const qsizetype want = qMin(kPiece, size - got);
        const qsizetype piece =
            qMax<qsizetype>(file.readAt(start + quint64(got), buffer + got, want), 0);
        lineFeeds += utf8::countLineFeeds(QByteArrayView(buffer + got, piece));
        got += piece;
        if (piece < want) break;
    }
    store->truncate(got);
    const QByteArrayView bytes(store->data(), store->size());
    place.end = start + quint64(bytes.size());
    place.firstLine = start;
    if (tail.truncated && place.encoding == LogEncoding::Kind::utf8) {
        const qsizetype lineFeed = bytes.indexOf('\n');
        if (lineFeed >= 0) place.firstLine = start + quint64(lineFeed) + 1;
    }
    place.wholeEnd =
        qMax(place.firstLine, start + quint64(LogEncoding::wholeLinesEnd(bytes, place.encoding)));

    if (place.encoding == LogEncoding::Kind::utf8) {
        // A byte that cannot be read is never a line feed, so the first line
        // ends where it would in the decoded text. What is left out before it
        // ends with a line feed, which the count leaves out too.
        const qsizetype skipped = place.firstLine > start ? 1 : 0;
        tail.text =
            LogText(store, qsizetype(place.firstLine - start), bytes.size(), lineFeeds - skipped);
        return tail;
    }
    QString text = LogEncoding::decode(bytes, place.encoding);
    store.reset();
    if (tail.truncated) {
        const qsizetype lineEnd = text.indexOf(u'\n');
        if (lineEnd >= 0) text.remove(0, lineEnd + 1);
    }
    tail.text = LogText(utf8::encode(text));
    return tail;
}

}  // namespace varnel
