#include "platform/command_runner.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>
#include <vector>

using namespace varnel;
using Clock = std::chrono::steady_clock;

namespace {

CommandResult shell(const QString& script, double timeout = 8.0) {
    return run(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), script}, timeout);
}

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

std::pair<CommandResult, double> timedShell(const QString& script, double timeout) {
    const auto start = Clock::now();
    CommandResult result = shell(script, timeout);
    return {result, secondsSince(start)};
}

bool processGone(pid_t pid) {
    for (int i = 0; i < 200 && ::kill(pid, 0) == 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return ::kill(pid, 0) != 0 && errno == ESRCH;
}

}  // namespace

TEST(CommandRunner, HandsArgumentsOverVerbatimWithoutAShell) {
    const QStringList tricky = {QStringLiteral("$HOME"), QStringLiteral("*"),
                                QStringLiteral("a \"b\" 'c'"), QString(), QStringLiteral("é;|&")};
    EXPECT_EQ(
        run(QStringLiteral("/usr/bin/printf"), QStringList{QStringLiteral("[%s]\n")} + tricky).out,
        QStringLiteral("[$HOME]\n[*]\n[a \"b\" 'c']\n[]\n[é;|&]\n"));
}

TEST(CommandRunner, JoinsBothStreamsInWriteOrderAndKeepsTheStatus) {
    const CommandResult both = shell(QStringLiteral("echo one; echo two >&2; echo three; exit 3"));
    EXPECT_EQ(both.code, 3);
    EXPECT_EQ(both.out, QStringLiteral("one\ntwo\nthree\n"));
}

TEST(CommandRunner, AProgramThatCannotStartGivesMinusOneAtOnce) {
    // Missing, not executable, a directory, not absolute.
    for (const QString& path : {QStringLiteral("/nonexistent/tool"), QStringLiteral("/etc/passwd"),
                                QStringLiteral("/tmp"), QStringLiteral("relative/tool")}) {
        const auto start = Clock::now();
        const CommandResult result = run(path, {QStringLiteral("x")});
        EXPECT_EQ(std::pair(result.code, result.out), std::pair(-1, QString()))
            << path.toStdString();
        EXPECT_LT(secondsSince(start), 0.5) << path.toStdString();
    }
}

TEST(CommandRunner, TimeOutTerminatesAndKeepsWhatWasWritten) {
    const auto [result, seconds] = timedShell(QStringLiteral("echo before; exec sleep 30"), 0.5);
    EXPECT_EQ(result.code, SIGTERM);
    EXPECT_EQ(result.out, QStringLiteral("before\n"));
    EXPECT_LT(seconds, 1.5);

    // Exited with 0, but a grandchild keeps the pipe past the deadline.
    const auto [orphaned, orphanedSeconds] = timedShell(QStringLiteral("sleep 30 & exit 0"), 0.5);
    EXPECT_NE(orphaned.code, 0);
    EXPECT_LT(orphanedSeconds, 2.5);
}

TEST(CommandRunner, TimeOutKillsAStubbornProgramAndTheGrandchildHoldingThePipe) {
    // Both ignore SIGTERM: only a kill of the process group ends the read.
    const auto [result, seconds] = timedShell(
        QStringLiteral("trap '' TERM; sh -c 'trap \"\" TERM; sleep 30' & echo $!; sleep 30; wait"),
        1.0);
    EXPECT_NE(result.code, 0);
    EXPECT_GE(seconds, 1.0);
    EXPECT_LT(seconds, 3.0);
    bool ok = false;
    const pid_t grandchild = pid_t(result.out.trimmed().toInt(&ok));
    ASSERT_TRUE(ok) << result.out.toStdString();
    EXPECT_TRUE(processGone(grandchild));
}

TEST(CommandRunner, ReadsMegabytesWholeAndRefusesInvalidUtf8) {
    const CommandResult big = shell(QStringLiteral("head -c 6000000 /dev/zero | tr '\\000' x"));
    EXPECT_EQ(big.code, 0);
    EXPECT_TRUE(big.out == QString(6'000'000, u'x')) << big.out.size();

    const CommandResult invalid = shell(QStringLiteral("printf 'ok \\377\\376 bad'; exit 4"));
    EXPECT_EQ(std::pair(invalid.code, invalid.out), std::pair(4, QString()));
    EXPECT_EQ(run(QStringLiteral("/usr/bin/printf"), {QStringLiteral("→ ✓")}).out,
              QStringLiteral("→ ✓"));
}

TEST(CommandRunner, LeavesNoZombieAndNoDescriptorBehind) {
    QDir fds(QStringLiteral("/proc/self/fd"));
    const uint before = fds.count();
    for (int i = 0; i < 2000; ++i) ASSERT_EQ(run(QStringLiteral("/bin/true"), {}).code, 0);
    run(QStringLiteral("/nonexistent"), {});
    shell(QStringLiteral("exec sleep 5"), 0.05);
    fds.refresh();
    EXPECT_EQ(fds.count(), before);
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST(CommandRunner, IsSafeFromManyThreadsAtOnce) {
    const auto once = [](int t, int i) {
        const QString word = QStringLiteral("t%1-%2").arg(t).arg(i);
        switch ((t + i) % 4) {
            case 0:
                return run(QStringLiteral("/bin/echo"), {word}).out == word + u'\n';
            case 1: {
                const CommandResult r = shell(QStringLiteral("echo %1 >&2; exit 7").arg(word));
                return r.code == 7 && r.out == word + u'\n';
            }
            case 2:
                return run(QStringLiteral("/missing/") + word, {}).code == -1;
            default:
                return shell(QStringLiteral("exec sleep 5"), 0.05).code != 0;
        }
    };
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([t, &failures, &once] {
            for (int i = 0; i < 40; ++i) failures += once(t, i) ? 0 : 1;
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failures.load(), 0);
}

TEST(CommandRunner, ProcessCheckMatchesWholeNamesOnly) {
    QTemporaryDir dir;
    const QString sleeper = dir.filePath(QStringLiteral("vrnl-sleeper"));
    ASSERT_TRUE(QFile::copy(QStringLiteral("/bin/sleep"), sleeper));
    std::thread holder([&] { run(sleeper, {QStringLiteral("3")}, 1.5); });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_TRUE(isProcessRunning(QStringLiteral("vrnl-sleeper")));
    EXPECT_FALSE(isProcessRunning(QStringLiteral("vrnl-sleep")));
    EXPECT_FALSE(isProcessRunning(QStringLiteral("rnl-sleeper")));
    holder.join();
    EXPECT_FALSE(isProcessRunning(QStringLiteral("vrnl-sleeper")));
}
