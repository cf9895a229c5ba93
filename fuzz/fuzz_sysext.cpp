// The system-extension table, as any bytes: the network extension is stopped
// exactly when no line names it, and never anything but running, attention or
// stopped.
#include <cstdint>
#include <cstdlib>

#include "monitor/catalogue.h"
#include "monitor/poller.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QString table = QString::fromUtf8(reinterpret_cast<const char*>(data), qsizetype(size));
    const varnel::ServiceSpec& extension = varnel::SERVICES[2];
    const varnel::ServiceStatus status = varnel::Poller::status(extension, table);
    const bool named = table.contains(QStringLiteral("ai.ostrel.agent.sentinel"));
    if (named == (status.health == varnel::Health::stopped)) std::abort();
    if (status.health != varnel::Health::running && status.health != varnel::Health::attention &&
        status.health != varnel::Health::stopped)
        std::abort();
    if (!(status.spec == extension)) std::abort();
    return 0;
}
