#pragma once

#include <sys/stat.h>

// A file's times, from fields each platform names its own way.
namespace varnel::fs {

const timespec& modifiedTime(const struct stat& info);
const timespec& changedTime(const struct stat& info);

}  // namespace varnel::fs
