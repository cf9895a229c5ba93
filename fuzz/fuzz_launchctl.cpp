// launchctl's description of a job, as any bytes: reading its pid never fails,
// and a pid found is one that the text really holds.
#include <cstdint>
#include <cstdlib>

#include "monitor/poller.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), qsizetype(size));
    const std::optional<qint64> pid = varnel::Poller::pidFromDescription(text);
    if (pid && !text.contains(QStringLiteral("pid = "))) std::abort();
    if (pid && !text.contains(QString::number(*pid).right(1))) std::abort();
    return 0;
}
