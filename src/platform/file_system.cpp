#include "platform/file_system.h"

#include <dirent.h>
#include <sys/stat.h>

#include <QFile>

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

std::optional<QByteArray> readAll(const QString& path) {
    QFile file(sandbox::hostPath(path));
    // QFile refuses to open folders, which is what callers expect of "a file".
    if (!file.open(QIODevice::ReadOnly)) return std::nullopt;
    QByteArray data = file.readAll();
    if (file.error() != QFileDevice::NoError) return std::nullopt;
    return data;
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
#if defined(__APPLE__)
    return {true,
            quint64(info.st_dev),
            quint64(info.st_ino),
            quint64(info.st_size),
            nanoseconds(info.st_mtimespec),
            nanoseconds(info.st_ctimespec)};
#else
    return {true,
            quint64(info.st_dev),
            quint64(info.st_ino),
            quint64(info.st_size),
            nanoseconds(info.st_mtim),
            nanoseconds(info.st_ctim)};
#endif
}

}  // namespace

FileStamp stamp(const QString& path) {
    struct stat info {};
    return ::stat(nativePath(path).constData(), &info) == 0 ? stampFrom(info) : FileStamp{};
}

FileStamp stampOf(int fd) {
    struct stat info {};
    return fd >= 0 && ::fstat(fd, &info) == 0 ? stampFrom(info) : FileStamp{};
}

std::optional<QDateTime> modified(const QString& path) {
    struct stat info {};
    if (::stat(nativePath(path).constData(), &info) != 0) return std::nullopt;
#if defined(__APPLE__)
    const auto& stamp = info.st_mtimespec;
#else
    const auto& stamp = info.st_mtim;
#endif
    const qint64 ms = qint64(stamp.tv_sec) * 1000 + stamp.tv_nsec / 1'000'000;
    return QDateTime::fromMSecsSinceEpoch(ms, Qt::UTC);
}

}  // namespace varnel::fs
