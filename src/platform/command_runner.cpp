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

#include "platform/sandbox.h"
#include "platform/text.h"

extern char** environ;

namespace varnel {

namespace {

using Clock = std::chrono::steady_clock;

// How long a program that was asked to terminate (and anything that inherited
// its pipe) may take to let go before the whole process group is killed.
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
#if defined(__APPLE__)
    if (::pipe(fds) != 0) return false;
    ::fcntl(fds[0], F_SETFD, FD_CLOEXEC);
    ::fcntl(fds[1], F_SETFD, FD_CLOEXEC);
#else
    if (::pipe2(fds, O_CLOEXEC) != 0) return false;
#endif
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

pid_t spawn(const QByteArray& path, const QStringList& arguments, int writeEnd) {
    std::vector<QByteArray> storage;
    storage.reserve(size_t(arguments.size()) + 1);
    storage.push_back(path);
    for (const QString& argument : arguments) storage.push_back(argument.toUtf8());
    std::vector<char*> argv;
    argv.reserve(storage.size() + 1);
    for (QByteArray& item : storage) argv.push_back(item.data());
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
    posix_spawnattr_setflags(
        &attr, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    pid_t pid = -1;
    const int rc = ::posix_spawn(&pid, path.constData(), &actions, &attr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
    return rc == 0 ? pid : -1;
}

// Reaps `pid` without blocking past `deadline`; true when it was reaped.
bool reapBefore(pid_t pid, int& status, Clock::time_point deadline) {
    auto pause = std::chrono::microseconds(20);
    while (true) {
        const pid_t done = ::waitpid(pid, &status, WNOHANG);
        if (done == pid) return true;
        if (done < 0 && errno != EINTR) return true;  // not ours to wait for any more
        if (Clock::now() >= deadline) return false;
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, std::chrono::microseconds(10'000));
    }
}

void reapBlocking(pid_t pid, int& status) {
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
}

}  // namespace

CommandResult run(const QString& executable, const QStringList& arguments, double timeout) {
    const QByteArray path = QFile::encodeName(sandbox::hostPath(executable));
    int fds[2];
    if (!makePipe(fds)) return {};
    const auto started = Clock::now();
    const pid_t pid = spawn(path, arguments, fds[1]);
    // Our copy of the write end goes at once, so the read below ends when the
    // program and everything that inherited the pipe have closed theirs.
    closeQuietly(fds[1]);
    if (pid < 0) {
        closeQuietly(fds[0]);
        return {};
    }

    const auto deadline = started + std::chrono::duration_cast<Clock::duration>(
                                        std::chrono::duration<double>(std::max(0.0, timeout)));
    const auto killAt = deadline + terminateGrace;
    bool terminated = false;
    bool killed = false;
    QByteArray bytes;
    char buffer[65536];

    auto terminate = [&] {
        if (!terminated) {
            ::kill(pid, SIGTERM);
            terminated = true;
        }
    };

    while (true) {
        if (!terminated && Clock::now() >= deadline) terminate();
        if (terminated && Clock::now() >= killAt) {
            ::killpg(pid, SIGKILL);
            killed = true;
            break;
        }
        pollfd item{fds[0], POLLIN, 0};
        const int ready = ::poll(&item, 1, millisUntil(terminated ? killAt : deadline));
        if (ready < 0) {
            if (errno == EINTR) continue;
            break;
        }
        if (ready == 0) continue;
        const ssize_t got = ::read(fds[0], buffer, sizeof buffer);
        if (got > 0) {
            bytes.append(buffer, qsizetype(got));
        } else if (got == 0 || (errno != EINTR && errno != EAGAIN)) {
            break;  // end of file: every writer has gone
        }
    }
    closeQuietly(fds[0]);

    int status = 0;
    if (killed) {
        reapBlocking(pid, status);
    } else if (!reapBefore(pid, status, terminated ? killAt : deadline)) {
        // The program closed its output but lives on past the deadline.
        terminate();
        if (!reapBefore(pid, status, Clock::now() + terminateGrace)) {
            ::killpg(pid, SIGKILL);
            reapBlocking(pid, status);
        }
    }

    int code = -1;
    if (WIFEXITED(status))
        code = WEXITSTATUS(status);
    else if (WIFSIGNALED(status))
        code = WTERMSIG(status);
    // A program that exits cleanly when told to terminate still ran out of time.
    if (terminated && code == 0) code = SIGTERM;
    return {code, text::decodeUtf8Strict(bytes, text::Bom::keep).value_or(QString())};
}

bool isProcessRunning(const QString& name) {
    return run(QStringLiteral("/usr/bin/pgrep"), {QStringLiteral("-x"), name}, 4).code == 0;
}

}  // namespace varnel
