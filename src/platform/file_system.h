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

// The whole of a regular file, or nothing when it is missing, unreadable, not a
// regular file (a folder, a named pipe, a device) or longer than `maxBytes`:
// such a file is treated as missing. Opens without blocking, so a named pipe
// or a device at the path never stalls the caller, and reads no more than
// `maxBytes` even from a file that grows meanwhile.
std::optional<QByteArray> readFile(const QString& path, qsizetype maxBytes);

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

// Adds `bytes` to the end of the regular file at `path`, making the file and
// its folder when missing. A file that would grow past `maxBytes` first
// becomes `path` + ".1", in place of the one there: at most two files' worth is
// kept, and what was there is moved whole, never cut. False when nothing was
// added (the folder cannot be made or written, something else than a regular
// file is at the path, the disk is full); a write that stops half-way is taken
// back, so the file never ends in a piece of `bytes`.
bool appendRotating(const QString& path, const QByteArray& bytes, quint64 maxBytes);

// A regular file opened for reading, without blocking, and closed with this
// object. Anything else at the path (nothing, a folder, a named pipe, a
// device, no permission) leaves it closed, and every read then fails.
class ReadOnlyFile {
public:
    explicit ReadOnlyFile(const QString& path);
    ~ReadOnlyFile();
    ReadOnlyFile(const ReadOnlyFile&) = delete;
    ReadOnlyFile& operator=(const ReadOnlyFile&) = delete;

    bool isOpen() const { return fd_ >= 0; }
    // Why it is not open: the path holds nothing, or something that cannot be read as a file.
    bool missing() const { return missing_; }
    // The file as it is now (not `present` when closed).
    FileStamp stamp() const;

    // Up to `size` bytes from `offset` into `buffer`: fewer only at the end of
    // the file or on an error. The count read.
    qsizetype readAt(quint64 offset, char* buffer, qsizetype size) const;
    // Exactly `size` bytes from `offset`, or nothing.
    std::optional<QByteArray> readExactly(quint64 offset, qsizetype size) const;

private:
    int fd_ = -1;
    bool missing_ = false;
};

}  // namespace varnel::fs
