#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QStringList>
#include <optional>

// File access for the suite's paths. Every function takes the suite's own path
// and looks it up under the sandbox root.
namespace varnel::fs {

// Something exists at the path (a file, a folder; symbolic links are followed).
bool exists(const QString& path);

// The whole file, or nothing when it is missing, a folder or unreadable.
std::optional<QByteArray> readAll(const QString& path);

// Names of a folder's direct entries, hidden ones included, in the order the
// file system gives them; nothing when the folder cannot be listed.
std::optional<QStringList> list(const QString& dir);

// Last modification time, or nothing when the attributes cannot be read.
std::optional<QDateTime> modified(const QString& path);

// One look at a regular file: enough to tell growth from a rewrite or a
// replacement. Not `present` for anything else (missing, a folder, unreadable).
struct FileStamp {
    bool present = false;
    quint64 device = 0;
    quint64 inode = 0;
    quint64 size = 0;
    qint64 modifiedNs = 0;
    qint64 changedNs = 0;

    bool operator==(const FileStamp&) const = default;
};
FileStamp stamp(const QString& path);
// The same for a file already open, by its descriptor.
FileStamp stampOf(int fd);

}  // namespace varnel::fs
