#pragma once

#include <unistd.h>
#include <QStringList>
#include <QTextStream>

#include "cli/text_buffer.h"

namespace varnel::cli {

// Exit statuses shared by the commands. Status uses the monitoring-plugin
// convention 0-3 on top of these.
inline constexpr int exitOk = 0;
inline constexpr int exitFailure = 1;
inline constexpr int exitUsage = 64;
// Apart from the statuses that report a health, so that a script can tell them apart.
inline constexpr int exitCannotWrite = 74;

// Where a command writes: text streams for standard output and error, and
// standard output's descriptor for commands that write bytes in bulk.
struct Io {
    QTextStream& out;
    QTextStream& err;
    bool outIsTerminal = false;
    int outFd = STDOUT_FILENO;
};

// Flushes standard output. When what was written did not arrive (a reader
// that closed the pipe, a full disk), says so on standard error as `command`
// and returns false: the command should stop with exitFailure.
bool flushOut(Io& io, const char* command);

// Says on standard error that the output cannot be written, and why.
void reportLostOutput(Io& io, const char* command, const QString& why);

// Standard output written as bytes, gathered into one buffer that is reused
// and written in large pieces. Text written to io.out before is flushed first.
class ByteOutput {
public:
    ByteOutput(Io& io, const char* command);

    TextBuffer& buffer() { return buffer_; }
    // Writes once enough is gathered. False when the output could not be
    // written (said on standard error): the command should stop with exitFailure.
    bool pass() { return buffer_.size() < kPiece || flush(); }
    // Writes everything gathered; false as pass().
    bool flush();

private:
    // As much as a pipe holds at once: a larger piece is not taken any sooner,
    // and each of its pages costs a fault when first written.
    static constexpr qsizetype kPiece = qsizetype(64) * 1024;

    Io& io_;
    const char* command_;
    TextBuffer buffer_;
};

}  // namespace varnel::cli
