// Three version texts (separated by line feeds): "newer than" is never true both
// ways, never true of a version and itself, and carries over from a to b to c.
#include <QStringList>
#include <cstdint>
#include <cstdlib>

#include "update/version.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QString input = QString::fromUtf8(reinterpret_cast<const char*>(data), qsizetype(size));
    const QStringList parts = input.split(u'\n');
    const QString a = parts.value(0), b = parts.value(1), c = parts.value(2);
    using varnel::versionIsNewer;
    if (versionIsNewer(a, a) || versionIsNewer(b, b)) std::abort();
    if (versionIsNewer(a, b) && versionIsNewer(b, a)) std::abort();
    if (versionIsNewer(a, b) && versionIsNewer(b, c) && !versionIsNewer(a, c)) std::abort();
    return 0;
}
