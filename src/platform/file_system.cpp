#include "platform/file_system.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QFile>
#include <cerrno>

#include "platform/file_system_stat.h"
#include "platform/sandbox.h"

namespace varnel::fs {

namespace {

QByteArray nativePath(const QString& path) {
    return QFile::encodeName(sandbox::hostPath(path));
}

}  // namespace

bool exists(const QString& path) {
    struct stat info {};
    return ::stat(nativePath(path).constData(), &info) == 0;
}

std::optional<QByteArray> readFile(const QString& path, qsizetype maxBytes) {
    const ReadOnlyFile file(path);
    const FileStamp now = file.stamp();
    if (!now.present || now.size > quint64(maxBytes)) return std::nullopt;
    // One byte more than allowed tells a file that grew past the limit.
    QByteArray bytes(qsizetype(now.size) + 1, Qt::Uninitialized);
    const qsizetype got = file.readAt(0, bytes.data(), bytes.size());
    if (got < 0 || got > maxBytes) return std::nullopt;
    bytes.truncate(got);
    return bytes;
}

std::optional<QStringList> list(const QString& dir) {
    DIR* handle = ::opendir(nativePath(dir).constData());
    if (handle == nullptr) return std::nullopt;
    QStringList names;
    while (const dirent* entry = ::readdir(handle)) {
        const char* name = entry->d_name;
        if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) continue;
        names.append(QFile::decodeName(name));
    }
    ::closedir(handle);
    return names;
}

namespace {

qint64 nanoseconds(const timespec& t) {
    return qint64(t.tv_sec) * 1'000'000'000 + t.tv_nsec;
}

FileStamp stampFrom(const struct stat& info) {
    if (!S_ISREG(info.st_mode)) return {};
    return {true,
            quint64(info.st_dev),
            quint64(info.st_ino),
            quint64(info.st_size),
            nanoseconds(modifiedTime(info)),
            nanoseconds(changedTime(info))};
}

}  // namespace

FileStamp stamp(const QString& path) {
    struct stat info {};
    return ::stat(nativePath(path).constData(), &info) == 0 ? stampFrom(info) : FileStamp{};
}

ReadOnlyFile::ReadOnlyFile(const QString& path) {
    // Non-blocking, so that opening a named pipe does not wait for a writer.
    const int fd = ::open(nativePath(path).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        missing_ = errno == ENOENT || errno == ENOTDIR || errno == ELOOP;
        return;
    }
    struct stat info {};
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        ::close(fd);
        return;
    }
    fd_ = fd;
}

ReadOnlyFile::~ReadOnlyFile() {
    if (fd_ >= 0) ::close(fd_);
}

FileStamp ReadOnlyFile::stamp() const {
    struct stat info {};
    return fd_ >= 0 && ::fstat(fd_, &info) == 0 ? stampFrom(info) : FileStamp{};
}

qsizetype ReadOnlyFile::readAt(quint64 offset, char* buffer, qsizetype size) const {
    if (fd_ < 0) return -1;
    qsizetype got = 0;
    while (got < size) {
        const ssize_t n = ::pread(fd_, buffer + got, size_t(size - got), off_t(offset + got));
        if (n > 0)
            got += n;
        else if (n < 0 && errno == EINTR)
            continue;
        else
            break;
    }
    return got;
}

std::optional<QByteArray> ReadOnlyFile::readExactly(quint64 offset, qsizetype size) const {
    QByteArray bytes(size, Qt::Uninitialized);
    if (readAt(offset, bytes.data(), size) != size) return std::nullopt;
    return bytes;
}

std::optional<QDateTime> modified(const QString& path) {
    struct stat info {};
    if (::stat(nativePath(path).constData(), &info) != 0) return std::nullopt;
    return QDateTime::fromMSecsSinceEpoch(nanoseconds(modifiedTime(info)) / 1'000'000, Qt::UTC);
}

}  // namespace varnel::fs
