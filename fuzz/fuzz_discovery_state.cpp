// The discovery state file, as any bytes: reading it never fails, and what it
// gives is trimmed. (Escapes may spell the keys, so the bytes need not hold them.)
#include <cstdint>
#include <cstdlib>

#include "update/version.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    const QString version = varnel::latestVersionFromJson(bytes);
    if (version != version.trimmed()) std::abort();
    return 0;
}
