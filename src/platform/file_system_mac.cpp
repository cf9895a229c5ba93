#include "platform/file_system_stat.h"

namespace varnel::fs {

namespace {

qint64 nanoseconds(const timespec& t) {
    return qint64(t.tv_sec) * 1'000'000'000 + t.tv_nsec;
}

}  // namespace

qint64 modifiedNs(const struct stat& info) {
    return nanoseconds(info.st_mtimespec);
}

qint64 changedNs(const struct stat& info) {
    return nanoseconds(info.st_ctimespec);
}

}  // namespace varnel::fs
