#pragma once

#include <QString>
#include <QtGlobal>
#include <optional>

namespace varnel {

struct LogTail {
    QString text;                  // the decoded tail, starting at a whole line when truncated
    bool truncated = false;        // the file was longer than the bytes read
    std::optional<QString> error;  // a sentence for people when the file cannot be read
};

// The last `maxBytes` bytes of a log (a suite path), UTF-8 or UTF-16 by its
// signature, decoded without ever failing. Never reads more than maxBytes after
// the two signature bytes, even from a growing file or one whose size cannot be
// known (a named pipe gives what it holds, without waiting). A folder at the
// path is a file that cannot be opened.
LogTail readLogTail(const QString& path, quint64 maxBytes = 4'000'000);

}  // namespace varnel
