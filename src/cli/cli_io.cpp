#include "cli/cli_io.h"

#include <QFileDevice>
#include <cerrno>

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

ByteOutput::ByteOutput(Io& io, const char* command) : io_(io), command_(command) {
    io_.out.flush();
    buffer_.room(kPiece + kPiece / 4);
}

bool ByteOutput::flush() {
    const char* p = buffer_.data();
    qsizetype left = buffer_.size();
    while (left > 0) {
        const ssize_t n = ::write(io_.outFd, p, size_t(left));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            reportLostOutput(io_, command_, n < 0 ? qt_error_string(errno) : QString());
            buffer_.clear();
            return false;
        }
        p += n;
        left -= n;
    }
    buffer_.clear();
    return true;
}

void reportLostOutput(Io& io, const char* command, const QString& why) {
    io.err << "varnelctl " << command << ": cannot write the output"
           << (why.isEmpty() ? QString() : QStringLiteral(": ") + why) << '\n';
    io.err.flush();
}

}  // namespace varnel::cli
