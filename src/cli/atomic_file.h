#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

namespace varnel::cli {

// Puts `bytes` at `path` (a file on this machine, never a suite path) so that a
// reader sees the previous file or the new one whole, never a part: they go
// to a temporary file in the same folder, which is flushed to disk, given mode
// 0644 and renamed over the target. On failure the previous file is left as it
// was and the reason is returned.
std::optional<QString> replaceFile(const QString& path, const QByteArray& bytes);

}  // namespace varnel::cli
