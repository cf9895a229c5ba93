#include "logs/log_tail.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QByteArray>
#include <QFile>
#include <cerrno>

#include "platform/file_system.h"
#include "platform/sandbox.h"

namespace varnel {

namespace {

enum class Encoding { utf8, utf16le, utf16be };

LogTail failure(const QString& message) {
    return {QString(), false, message};
}

QString missingMessage() {
    return QStringLiteral("Log file does not exist yet.");
}

QString unreadableMessage() {
    return QStringLiteral(
        "Cannot read this log (permission denied). Try \u2018Open Logs Folder\u2019.");
}

// Closes the descriptor on every way out; a failed close changes nothing.
class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0) ::close(fd_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

// Reads until `buffer` is full, the end of the file, or an error (a read that
// would block counts as the end: a pipe must not stall the caller).
qsizetype readFully(int fd, char* buffer, qsizetype wanted) {
    qsizetype got = 0;
    while (got < wanted) {
        const ssize_t n = ::read(fd, buffer + got, size_t(wanted - got));
        if (n > 0) {
            got += n;
        } else if (n < 0 && errno == EINTR) {
            continue;
        } else {
            break;
        }
    }
    return got;
}

// Everything from the current position, at most `limit` bytes, when the size
// is unknown.
QByteArray readUpTo(int fd, quint64 limit) {
    QByteArray bytes;
    constexpr qsizetype kChunk = qsizetype(64) * 1024;
    while (quint64(bytes.size()) < limit) {
        const qsizetype wanted = qsizetype(qMin<quint64>(kChunk, limit - quint64(bytes.size())));
        const qsizetype before = bytes.size();
        bytes.resize(before + wanted);
        const qsizetype got = readFully(fd, bytes.data() + before, wanted);
        bytes.resize(before + got);
        if (got < wanted) break;
    }
    return bytes;
}

// Strict UTF-16: an odd byte count or a lone surrogate is not valid.
std::optional<QString> decodeUtf16(const QByteArray& bytes, Encoding encoding) {
    if (bytes.size() % 2 != 0) return std::nullopt;
    QString text(bytes.size() / 2, Qt::Uninitialized);
    char16_t* out = reinterpret_cast<char16_t*>(text.data());
    const auto* in = reinterpret_cast<const uchar*>(bytes.constData());
    const bool little = encoding == Encoding::utf16le;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const uchar a = in[2 * i];
        const uchar b = in[2 * i + 1];
        out[i] = little ? char16_t(a | (b << 8)) : char16_t((a << 8) | b);
    }
    if (!QStringView(text).isValidUtf16()) return std::nullopt;
    return text;
}

}  // namespace

LogTail readLogTail(const QString& path, quint64 maxBytes) {
    if (!fs::exists(path)) return failure(missingMessage());

    // Non-blocking, so that a named pipe at the path gives what it holds now
    // instead of waiting for a writer.
    const QByteArray native = QFile::encodeName(sandbox::hostPath(path));
    const Descriptor file(::open(native.constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (file.get() < 0) return failure(unreadableMessage());
    // A folder opens on this platform but is no file to read.
    struct stat info {};
    if (::fstat(file.get(), &info) == 0 && S_ISDIR(info.st_mode))
        return failure(unreadableMessage());

    char head[2] = {0, 0};
    const qsizetype headSize = readFully(file.get(), head, 2);
    Encoding encoding = Encoding::utf8;
    if (headSize == 2 && uchar(head[0]) == 0xFF && uchar(head[1]) == 0xFE) {
        encoding = Encoding::utf16le;
    } else if (headSize == 2 && uchar(head[0]) == 0xFE && uchar(head[1]) == 0xFF) {
        encoding = Encoding::utf16be;
    }

    LogTail tail;
    const off_t end = ::lseek(file.get(), 0, SEEK_END);
    const bool sized = end >= 0;
    const quint64 size = sized ? quint64(end) : 0;
    quint64 start = 0;
    if (sized) {
        tail.truncated = size > maxBytes;
        start = size >= maxBytes ? size - maxBytes : 0;
    }
    if (encoding != Encoding::utf8 && start % 2 != 0) ++start;
    ::lseek(file.get(), off_t(start), SEEK_SET);

    // Never more than maxBytes, even when the file grows meanwhile; when it
    // shrinks, the read just ends early.
    QByteArray bytes;
    if (sized) {
        const quint64 wanted = start < size ? qMin(size - start, maxBytes) : 0;
        bytes.resize(qsizetype(wanted));
        bytes.resize(readFully(file.get(), bytes.data(), bytes.size()));
    } else {
        bytes = readUpTo(file.get(), maxBytes);
    }

    std::optional<QString> text;
    if (encoding != Encoding::utf8) text = decodeUtf16(bytes, encoding);
    if (!text) text = QString::fromUtf8(bytes);
    bytes = QByteArray();

    if (text->contains(QChar::ByteOrderMark)) text->remove(QChar::ByteOrderMark);
    if (tail.truncated) {
        const qsizetype lineEnd = text->indexOf(u'\n');
        if (lineEnd >= 0) text->remove(0, lineEnd + 1);
    }
    tail.text = std::move(*text);
    return tail;
}

}  // namespace varnel
