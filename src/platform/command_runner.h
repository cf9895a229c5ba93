#pragma once

#include <QString>
#include <QStringList>

namespace varnel {

struct CommandResult {
    int code = -1;  // exit status, the signal number when killed, -1 when it never started
    QString out;    // stdout and stderr as written, strict UTF-8; empty when not valid UTF-8
};

// Starts `executable` (an absolute suite path, looked up under the sandbox root)
// with exactly `arguments`, no shell, and waits for it. At the deadline the
// program is asked to terminate; whatever still holds the output pipe a short
// grace later is killed with its whole process group. Blocks the calling thread;
// safe to call from several threads at once.
CommandResult run(const QString& executable, const QStringList& arguments, double timeout = 8.0);

// True when a process whose name is exactly `name` exists (pgrep -x).
bool isProcessRunning(const QString& name);

}  // namespace varnel
