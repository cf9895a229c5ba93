#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <optional>

namespace varnel::cli {

// A gzip-compressed tar archive built in memory: regular files only, mode
// 0644, owned by nobody in particular, in the POSIX ustar layout that every tar
// reads (GNU, bsdtar, macOS's). Names are UTF-8 and at most 255 bytes, split
// between the header's prefix and name fields at a slash.
class TarGz {
public:
    explicit TarGz(QDateTime modified) : modified_(std::move(modified)) {}

    // False, and nothing added, when the name cannot be stored.
    bool add(const QString& name, const QByteArray& bytes);
    // Bytes of every entry added so far, headers and padding included.
    qsizetype size() const { return tar_.size(); }
    // The archive, closed and compressed; nothing when zlib refuses.
    std::optional<QByteArray> finish() const;

private:
    QDateTime modified_;
    QByteArray tar_;
};

}  // namespace varnel::cli
