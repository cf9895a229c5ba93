#include "cli/tar_gz.h"

#include <zlib.h>

#include <cstring>

namespace varnel::cli {

namespace {

constexpr qsizetype kBlock = 512;

// Octal digits, zero-padded to fill `width - 1` and NUL-terminated.
void putOctal(char* field, int width, qint64 value) {
    const QByteArray digits = QByteArray::number(value, 8).rightJustified(width - 1, '0');
    std::memcpy(field, digits.constData(), size_t(width - 1));
}

// Where a name splits into the header's prefix (at most 155 bytes) and name
// (at most 100) fields: the position of the slash between them, 0 for no
// prefix, or nothing when it does not fit.
std::optional<qsizetype> splitAt(const QByteArray& name) {
    if (name.size() <= 100) return 0;
    for (qsizetype slash = name.lastIndexOf('/'); slash > 0;
         slash = name.lastIndexOf('/', slash - 1))
        if (slash <= 155 && name.size() - slash - 1 <= 100) return slash;
    return std::nullopt;
}

}  // namespace

bool TarGz::add(const QString& name, const QByteArray& bytes) {
    const QByteArray utf8 = name.toUtf8();
    const auto split = splitAt(utf8);
    if (utf8.isEmpty() || utf8.endsWith('/') || utf8.contains('\0') || !split) return false;
    char header[kBlock] = {};
    const QByteArray prefix = utf8.left(*split);
    const QByteArray rest = *split > 0 ? utf8.mid(*split + 1) : utf8;
    std::memcpy(header, rest.constData(), size_t(rest.size()));
    putOctal(header + 100, 8, 0644);
    putOctal(header + 108, 8, 0);
    putOctal(header + 116, 8, 0);
    putOctal(header + 124, 12, bytes.size());
    putOctal(header + 136, 12, modified_.toSecsSinceEpoch());
    header[156] = '0';
    std::memcpy(header + 257,
                "ustar\0"
                "00",
                8);
    std::memcpy(header + 345, prefix.constData(), size_t(prefix.size()));
    // The checksum is taken with its own field read as blanks.
    std::memset(header + 148, ' ', 8);
    unsigned sum = 0;
    for (const char c : header) sum += static_cast<unsigned char>(c);
    putOctal(header + 148, 7, sum);
    header[154] = '\0';
    header[155] = ' ';

    tar_.append(header, kBlock);
    tar_.append(bytes);
    tar_.append(QByteArray((kBlock - bytes.size() % kBlock) % kBlock, '\0'));
    return true;
}

std::optional<QByteArray> TarGz::finish() const {
    const QByteArray tar = tar_ + QByteArray(2 * kBlock, '\0');
    z_stream stream{};
    // 16 on top of the window bits asks for a gzip wrapper rather than zlib's own.
    if (deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY) !=
        Z_OK)
        return std::nullopt;
    QByteArray out(qsizetype(deflateBound(&stream, uLong(tar.size()))), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(tar.constData()));
    stream.avail_in = uInt(tar.size());
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = uInt(out.size());
    const int result = deflate(&stream, Z_FINISH);
    out.truncate(qsizetype(stream.total_out));
    deflateEnd(&stream);
    if (result != Z_STREAM_END) return std::nullopt;
    return out;
}

}  // namespace varnel::cli
