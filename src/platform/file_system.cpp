#include "platform/file_system.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
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

bool appendRotating(const QString& path, const QByteArray& bytes, quint64 maxBytes) {
    const QByteArray target = nativePath(path);
    if (!QDir().mkpath(QFileInfo(sandbox::hostPath(path)).absolutePath())) return false;
    struct stat info {};
    if (::lstat(target.constData(), &info) == 0) {
        if (!S_ISREG(info.st_mode)) return false;
        if (info.st_size > 0 && quint64(info.st_size) + quint64(bytes.size()) > maxBytes &&
            ::rename(target.constData(), nativePath(path + QStringLiteral(".1")).constData()) != 0)
            return false;
    }
    // Not through a link, and never waiting on a pipe that was put there.
    const int fd =
        ::open(target.constData(),
               O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0644);
    if (fd < 0) return false;
    struct stat opened {};
    if (::fstat(fd, &opened) != 0 || !S_ISREG(opened.st_mode)) {
        ::close(fd);
        return false;
    }
    qsizetype written = 0;
    while (written < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.constData() + written, size_t(bytes.size() - written));
        if (n > 0)
            written += n;
        else if (n < 0 && errno == EINTR)
            continue;
        else
            break;
    }
    const bool whole = written == bytes.size();
    // Taken back as far as the system lets it; a piece that stays is a line
    // that readers skip.
    if (!whole && written > 0) {
        [[maybe_unused]] const int undone = ::ftruncate(fd, opened.st_size);
    }
    return ::close(fd) == 0 && whole;
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
