#pragma once

#include <QString>
#include <QtGlobal>
#include <optional>

#include "logs/log_encoding.h"
#include "logs/log_text.h"
#include "platform/file_system.h"

namespace varnel {

struct LogTail {
    LogText text;                  // the tail, starting at a whole line when truncated
    bool truncated = false;        // the file was longer than the bytes read
    std::optional<QString> error;  // a sentence for people when the file cannot be read
};

// The last `maxBytes` bytes of a log (a suite path), UTF-8 or UTF-16 by its
// signature, never failing on bad bytes: UTF-8 is kept as read (LogText reads
// it leniently), UTF-16 is decoded and kept as UTF-8. Never reads more than
// maxBytes after the two signature bytes, even from a growing file. Anything
// at the path that is not a regular file (a folder, a named pipe, a device)
// cannot be opened.
LogTail readLogTail(const QString& path, quint64 maxBytes = 4'000'000);

// Where a tail stands in its file, for reading on after it.
struct TailPlace {
    LogEncoding::Kind encoding = LogEncoding::Kind::utf8;
    quint64 firstLine = 0;  // where the text starts
    quint64 wholeEnd = 0;   // just past its last line feed; firstLine when it has none
    quint64 end = 0;        // just past the last byte read
};

// The same from a file already open (`file` opened at `path`), and where the
// text stands in it.
LogTail readLogTail(const fs::ReadOnlyFile& file, quint64 maxBytes, TailPlace& place);

}  // namespace varnel
