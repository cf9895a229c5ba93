#pragma once

#include <QStringList>
#include <QTextStream>

namespace varnel::cli {

// Exit statuses shared by the commands. Status uses the monitoring-plugin
// convention 0-3 on top of these.
inline constexpr int exitOk = 0;
inline constexpr int exitFailure = 1;
inline constexpr int exitUsage = 64;
// Apart from the statuses that report a health, so that a script can tell them apart.
inline constexpr int exitCannotWrite = 74;

// Where a command writes. Tests hand in string streams; the program, stdout and stderr.
struct Io {
    QTextStream& out;
    QTextStream& err;
    bool outIsTerminal = false;
};

// Flushes standard output. When what was written did not arrive (a reader
// that closed the pipe, a full disk), says so on standard error as `command`
// and returns false: the command should stop with exitFailure.
bool flushOut(Io& io, const char* command);

// Says on standard error that the output cannot be written, and why.
void reportLostOutput(Io& io, const char* command, const QString& why);

}  // namespace varnel::cli
