#include "logs/log_tail.h"

#include <QByteArray>

namespace varnel {

namespace {

LogTail failure(const QString& message) {
    return {QString(), false, message};
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
    // shrinks, the read just ends early.
    QByteArray bytes(qsizetype(wanted), Qt::Uninitialized);
    bytes.truncate(qMax<qsizetype>(file.readAt(start, bytes.data(), bytes.size()), 0));
    place.end = start + quint64(bytes.size());
    place.firstLine = start;
    if (tail.truncated && place.encoding == LogEncoding::Kind::utf8) {
        const qsizetype lineFeed = bytes.indexOf('\n');
        if (lineFeed >= 0) place.firstLine = start + quint64(lineFeed) + 1;
    }
    place.wholeEnd =
        qMax(place.firstLine, start + quint64(LogEncoding::wholeLinesEnd(bytes, place.encoding)));

    QString text = LogEncoding::decode(bytes, place.encoding);
    bytes = QByteArray();
    if (tail.truncated) {
        const qsizetype lineEnd = text.indexOf(u'\n');
        if (lineEnd >= 0) text.remove(0, lineEnd + 1);
    }
    tail.text = std::move(text);
    return tail;
}

}  // namespace varnel
