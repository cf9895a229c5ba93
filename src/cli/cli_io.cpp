#include "cli/cli_io.h"

#include <QFileDevice>

namespace varnel::cli {

bool flushOut(Io& io, const char* command) {
    io.out.flush();
    if (io.out.status() == QTextStream::Ok) return true;
    const auto* file = qobject_cast<const QFileDevice*>(io.out.device());
    reportLostOutput(
        io, command,
        file != nullptr && file->error() != QFileDevice::NoError ? file->errorString() : QString());
    return false;
}

void reportLostOutput(Io& io, const char* command, const QString& why) {
    io.err << "varnelctl " << command << ": cannot write the output"
           << (why.isEmpty() ? QString() : QStringLiteral(": ") + why) << '\n';
    io.err.flush();
}

}  // namespace varnel::cli
