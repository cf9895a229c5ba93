#pragma once

#include <QString>
#include <QStringList>

namespace varnel {

struct CommandResult {
    int code = -1;  // exit status, the signal number when killed, -1 when it never started
    QString out;    // stdout and stderr as written, strict UTF-8; empty when not valid UTF-8
};

// No tool the suite runs prints near this much; past it a tool is flooding.
inline constexpr qsizetype maxToolOutput = qsizetype{1024} * 1024;

// Starts `executable` (an absolute suite path, looked up under the sandbox root)
// with exactly `arguments`, no shell, and waits for it. The tool runs in a
// process group of its own. At the deadline the group is asked to terminate, and
// once the tool has ended (or a short grace has passed) the group is killed, so
// nothing the tool started outlives a time-out. Output beyond `maxToolOutput`
// stops the run at once the same way: the group is killed, `out` keeps the
// complete lines before the limit, and `code` is not 0. An argument that holds a
// NUL cannot be handed over and counts as a tool that could not start. Blocks the
// calling thread; safe to call from several threads at once.
CommandResult run(const QString& executable, const QStringList& arguments, double timeout = 8.0);

// True when a process whose name is exactly `name` exists (pgrep -x).
bool isProcessRunning(const QString& name);

}  // namespace varnel
