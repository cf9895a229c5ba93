#pragma once

#include <sys/stat.h>

#include <QtGlobal>

// A file's times in nanoseconds since the epoch, from fields each platform
// names its own way.
namespace varnel::fs {

qint64 modifiedNs(const struct stat& info);
qint64 changedNs(const struct stat& info);

}  // namespace varnel::fs
