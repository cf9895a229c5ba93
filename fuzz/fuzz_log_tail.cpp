// Any file content, read back with several limits: never an error for a
// readable file, the limit respected, no byte-order mark left, and the text
// always buildable into rows. Then the same bytes written in two parts to a
// followed file: what the follower hands on is exactly the file's whole lines.
#include <QFile>
#include <QTemporaryDir>
#include <cstdint>
#include <cstdlib>

#include "logs/log_reader.h"
#include "logs/log_rows.h"
#include "logs/log_tail.h"
#include "logs/utf8.h"

namespace {

void append(const QString& path, QByteArrayView bytes, QIODevice::OpenMode mode) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | mode) ||
        file.write(bytes.data(), bytes.size()) != bytes.size())
        std::abort();
}

QByteArray drain(varnel::LogReader& reader, qsizetype piece) {
    QByteArray text;
    varnel::LogReader::Chunk chunk;
    do {
        chunk = reader.next(piece);
        if (chunk.event != varnel::LogReader::Event::none) std::abort();
        text += chunk.text;
    } while (chunk.more);
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const QTemporaryDir dir;
    static const QString path = dir.filePath(QStringLiteral("fuzz.log"));
    const QByteArrayView bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    append(path, bytes, QIODevice::Truncate);
    const quint64 limits[] = {0, 1, 2, 3, 7, size / 2, size, size + 1, 4'000'000};
    for (quint64 limit : limits) {
        const varnel::LogTail tail = varnel::readLogTail(path, limit);
        if (tail.error) std::abort();
        if (tail.truncated != (size > limit)) std::abort();
        const QString text = tail.text.toString();
        if (quint64(text.size()) > limit) std::abort();
        if (text.contains(QChar::ByteOrderMark)) std::abort();
        const varnel::LogRows rows = varnel::LogRows::build(tail.text);
        if (rows.size() > tail.text.size()) std::abort();
    }

    // UTF-16 is decoded piece by piece only as a whole file would be when valid;
    // pieces larger than the input keep long lines whole.
    using varnel::LogEncoding::Kind;
    constexpr qsizetype kPiece = qsizetype(1) << 16;
    if (varnel::LogEncoding::detect(bytes) != Kind::utf8 || bytes.size() >= kPiece) return 0;
    append(path, {}, QIODevice::Truncate);
    varnel::LogReader reader(path);
    reader.start(4'000'000);
    const qsizetype cut = size == 0 ? 0 : qsizetype(data[0]) % bytes.size();
    append(path, bytes.first(cut), QIODevice::Append);
    QByteArray followed = drain(reader, kPiece);
    append(path, bytes.sliced(cut), QIODevice::Append);
    followed += drain(reader, kPiece);
    const qsizetype whole = varnel::LogEncoding::wholeLinesEnd(bytes, Kind::utf8);
    if (varnel::utf8::decode(followed) !=
        varnel::LogEncoding::decode(bytes.first(whole), Kind::utf8))
        std::abort();
    return 0;
}
