#include "platform/command_runner.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QFile>
#include <cerrno>
#include <chrono>
#include <thread>
#include <vector>

#include "platform/command_runner_spawn.h"
#include "platform/sandbox.h"
#include "platform/text.h"

extern char** environ;

namespace varnel {

namespace {

using Clock = std::chrono::steady_clock;

// How long a tool that was asked to terminate (and anything that inherited its
// pipe) may take to let go before the whole process group is killed.
constexpr auto terminateGrace = std::chrono::milliseconds(500);

int millisUntil(Clock::time_point when) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(when - Clock::now());
    return left.count() <= 0 ? 0 : int(std::min<long long>(left.count(), 60'000));
}

void closeQuietly(int fd) {
    if (fd >= 0) ::close(fd);
}

// The pipe's write end must not sit on 0-2 in the parent (possible when the
// application was started with its standard streams closed): dup2 onto the same
// number would leave its close-on-exec flag set and the child would lose it.
bool makePipe(int fds[2]) {
    if (!spawning::openPipe(fds)) return false;
    if (fds[1] <= STDERR_FILENO) {
        const int moved = ::fcntl(fds[1], F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        ::close(fds[1]);
        fds[1] = moved;
        if (moved < 0) {
            ::close(fds[0]);
            return false;
        }
    }
    return true;
}

pid_t spawn(const QByteArray& path, const std::vector<QByteArray>& arguments, int writeEnd) {
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 2);
    argv.push_back(const_cast<char*>(path.constData()));
    for (const QByteArray& item : arguments) argv.push_back(const_cast<char*>(item.constData()));
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, writeEnd, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, writeEnd, STDERR_FILENO);

    // Own process group, so a time-out can reach grandchildren; clean signal
    // state, so a tool never inherits a mask or an ignored SIGPIPE from us.
    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    sigset_t noSignals;
    sigemptyset(&noSignals);
    sigset_t defaults;
    sigemptyset(&defaults);
    for (int sig : {SIGPIPE, SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGCHLD}) sigaddset(&defaults, sig);
    posix_spawnattr_setsigmask(&attr, &noSignals);
    posix_spawnattr_setsigdefault(&attr, &defaults);
    posix_spawnattr_setpgroup(&attr, 0);
    const short platformFlags = spawning::prepare(&actions);
    posix_spawnattr_setflags(&attr, short(POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK |
                                          POSIX_SPAWN_SETSIGDEF | platformFlags));

    pid_t pid = -1;
    const int rc = ::posix_spawn(&pid, path.constData(), &actions, &attr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
    return rc == 0 ? pid : -1;
}

// Waits, until `deadline` at most, for `pid` to end, without reaping it: while
// it is unreaped its number cannot be reused, so its process group can still be
// killed safely. True when it has ended (or is not ours to wait for).
bool endedBefore(pid_t pid, Clock::time_point deadline) {
    auto pause = std::chrono::microseconds(20);
    while (true) {
        siginfo_t info{};
        const int rc = ::waitid(P_PID, id_t(pid), &info, WEXITED | WNOHANG | WNOWAIT);
        if (rc == 0 && info.si_pid == pid) return true;
        if (rc < 0 && errno != EINTR) return true;
        if (Clock::now() >= deadline) return false;
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, std::chrono::microseconds(10'000));
    }
}

int reap(pid_t pid) {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) return WTERMSIG(status);
    return -1;
}

// What a flood leaves readable: the complete lines before the limit (a cut
// could fall inside a character).
QByteArray completeLines(QByteArray bytes) {
    bytes.truncate(bytes.lastIndexOf('\n') + 1);
    return bytes;
}

}  // namespace

CommandResult run(const QString& executable, const QStringList& arguments, double timeout) {
    const QByteArray path = QFile::encodeName(sandbox::hostPath(executable));
    std::vector<QByteArray> encoded;
    encoded.reserve(size_t(arguments.size()));
    for (const QString& argument : arguments) {
        // A NUL would end the argument early: the tool would get another one.
        if (argument.contains(QChar(u'\0'))) return {};
        encoded.push_back(argument.toUtf8());
    }
    if (path.contains('\0')) return {};

    int fds[2];
    if (!makePipe(fds)) return {};
    const auto started = Clock::now();
    const pid_t pid = spawn(path, encoded, fds[1]);
    // Our copy of the write end goes at once, so the read below ends when the
    // tool and everything that inherited the pipe have closed theirs.
    closeQuietly(fds[1]);
    if (pid < 0) {
        closeQuietly(fds[0]);
        return {};
    }

    const auto deadline = started + std::chrono::duration_cast<Clock::duration>(
                                        std::chrono::duration<double>(std::max(0.0, timeout)));
    const auto killAt = deadline + terminateGrace;
    int stoppedBy = 0;  // the signal that ended the run early, if one did
    QByteArray bytes;
    char buffer[65536];

    auto terminate = [&] {
        if (stoppedBy == 0) {
            ::killpg(pid, SIGTERM);
            stoppedBy = SIGTERM;
        }
    };

    bool forced = false;  // no more waiting: the group is killed at once
    while (true) {
        if (Clock::now() >= deadline) terminate();
        if (stoppedBy != 0 && Clock::now() >= killAt) {
            forced = true;
            break;
        }
        pollfd item{fds[0], POLLIN, 0};
        const int ready = ::poll(&item, 1, millisUntil(stoppedBy != 0 ? killAt : deadline));
        if (ready < 0) {
            if (errno == EINTR) continue;
            break;
        }
        if (ready == 0) continue;
        const ssize_t got = ::read(fds[0], buffer, sizeof buffer);
        if (got > 0) {
            bytes.append(buffer, qsizetype(got));
            if (bytes.size() > maxToolOutput) {
                stoppedBy = SIGKILL;
                forced = true;
                bytes = completeLines(bytes.left(maxToolOutput));
                break;
            }
        } else if (got == 0 || (errno != EINTR && errno != EAGAIN)) {
            break;  // end of file: every writer has gone
        }
    }
    closeQuietly(fds[0]);

    if (!forced && !endedBefore(pid, stoppedBy != 0 ? killAt : deadline) && stoppedBy == 0) {
        // The tool closed its output but lives on past the deadline.
        terminate();
        endedBefore(pid, Clock::now() + terminateGrace);
    }
    // Whatever a stopped tool started goes with it, whether it still holds the
    // pipe or has let go of it and would linger.
    if (stoppedBy != 0) ::killpg(pid, SIGKILL);
    int code = reap(pid);
    // A tool that exits cleanly when told to stop still did not finish.
    if (stoppedBy != 0 && code == 0) code = stoppedBy;
    return {code, text::decodeUtf8Strict(bytes, text::Bom::keep).value_or(QString())};
}

bool isProcessRunning(const QString& name) {
    return run(QStringLiteral("/usr/bin/pgrep"), {QStringLiteral("-x"), name}, 4).code == 0;
}

}  // namespace varnel
