#include "platform/file_system_stat.h"

namespace varnel::fs {

const timespec& modifiedTime(const struct stat& info) {
    return info.st_mtimespec;
}

const timespec& changedTime(const struct stat& info) {
    return info.st_ctimespec;
}

}  // namespace varnel::fs
