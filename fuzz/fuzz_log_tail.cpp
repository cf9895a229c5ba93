// Any file content, read back with several limits: never an error for a
// readable file, the limit respected, no byte-order mark left, and the text
// always buildable into rows.
#include <QFile>
#include <QTemporaryDir>
#include <cstdint>
#include <cstdlib>

#include "logs/log_rows.h"
#include "logs/log_tail.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const QTemporaryDir dir;
    static const QString path = dir.filePath(QStringLiteral("fuzz.log"));
    {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) std::abort();
        file.write(reinterpret_cast<const char*>(data), qint64(size));
    }
    const quint64 limits[] = {0, 1, 2, 3, 7, size / 2, size, size + 1, 4'000'000};
    for (quint64 limit : limits) {
        const varnel::LogTail tail = varnel::readLogTail(path, limit);
        if (tail.error) std::abort();
        if (tail.truncated != (size > limit)) std::abort();
        if (quint64(tail.text.size()) > limit) std::abort();
        if (tail.text.contains(QChar::ByteOrderMark)) std::abort();
        const varnel::LogRows rows = varnel::LogRows::build(tail.text);
        if (rows.size() > tail.text.size()) std::abort();
    }
    return 0;
}
