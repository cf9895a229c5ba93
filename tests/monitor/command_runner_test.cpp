#include "monitor/command_runner.h"

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

const QString sh = QStringLiteral("/bin/sh");

CommandResult shell(const QString& script, double timeout = 8.0) {
    return run(sh, {QStringLiteral("-c"), script}, timeout);
}

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

int openDescriptors() { return int(QDir(QStringLiteral("/proc/self/fd")).count()); }

bool processGone(pid_t pid) {
    for (int i = 0; i < 200; ++i) {
        if (::kill(pid, 0) != 0 && errno == ESRCH) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

}  // namespace

TEST(CommandRunner, HandsArgumentsOverVerbatimWithoutAShell) {
    const CommandResult echo = run(QStringLiteral("/bin/echo"), {QStringLiteral("hello world")});
    EXPECT_EQ(echo.code, 0);
    EXPECT_EQ(echo.out, QStringLiteral("hello world\n"));

    const QStringList tricky = {QStringLiteral("$HOME"), QStringLiteral("*"),
                                QStringLiteral("a \"b\" 'c'"), QString(), QStringLiteral("é;|&")};
    const CommandResult printed = run(QStringLiteral("/usr/bin/printf"),
                                      QStringList{QStringLiteral("[%s]")} + tricky);
    EXPECT_EQ(printed.code, 0);
    EXPECT_EQ(printed.out, QStringLiteral("[$HOME][*][a \"b\" 'c'][][é;|&]"));
}

TEST(CommandRunner, JoinsBothStreamsInWriteOrderAndKeepsTheStatus) {
    const CommandResult both = shell(QStringLiteral("echo one; echo two >&2; echo three; exit 3"));
    EXPECT_EQ(both.code, 3);
    EXPECT_EQ(both.out, QStringLiteral("one\ntwo\nthree\n"));

    const CommandResult errOnly = shell(QStringLiteral("echo only-err >&2"));
    EXPECT_EQ(errOnly.code, 0);
    EXPECT_EQ(errOnly.out, QStringLiteral("only-err\n"));
}

TEST(CommandRunner, AProgramThatCannotStartGivesMinusOneAtOnce) {
    QTemporaryDir dir;
    QFile plain(dir.filePath(QStringLiteral("not-executable")));
    ASSERT_TRUE(plain.open(QIODevice::WriteOnly));
    plain.write("#!/bin/sh\necho hi\n");
    plain.close();

    for (const QString& path : {QStringLiteral("/nonexistent/tool"), plain.fileName(), dir.path(),
                                QStringLiteral("relative/tool")}) {
        const auto start = Clock::now();
        const CommandResult result = run(path, {QStringLiteral("x")});
        EXPECT_EQ(result.code, -1) << path.toStdString();
        EXPECT_TRUE(result.out.isEmpty()) << path.toStdString();
        EXPECT_LT(secondsSince(start), 0.5) << path.toStdString();
    }
}

TEST(CommandRunner, TimeOutTerminatesAndKeepsWhatWasWritten) {
    const auto start = Clock::now();
    const CommandResult result = shell(QStringLiteral("echo before; exec sleep 30"), 0.5);
    EXPECT_EQ(result.code, SIGTERM);
    EXPECT_EQ(result.out, QStringLiteral("before\n"));
    EXPECT_LT(secondsSince(start), 1.5);
}

TEST(CommandRunner, TimeOutKillsAStubbornProgramAndTheGrandchildHoldingThePipe) {
    // The shell ignores SIGTERM and leaves a grandchild (which also ignores it)
    // holding the output pipe: only a kill of the process group ends the read.
    const auto start = Clock::now();
    const CommandResult result = shell(
        QStringLiteral("trap '' TERM; sh -c 'trap \"\" TERM; sleep 30' & echo $!; sleep 30; wait"),
        1.0);
    const double elapsed = secondsSince(start);
    EXPECT_NE(result.code, 0);
    EXPECT_GE(elapsed, 1.0);
    EXPECT_LT(elapsed, 3.0);

    bool ok = false;
    const pid_t grandchild = pid_t(result.out.trimmed().toInt(&ok));
    ASSERT_TRUE(ok) << result.out.toStdString();
    EXPECT_TRUE(processGone(grandchild));
}

TEST(CommandRunner, AnExitedProgramWhoseGrandchildKeepsThePipeStillEndsNonZero) {
    const auto start = Clock::now();
    const CommandResult result = shell(QStringLiteral("sleep 30 & exit 0"), 0.5);
    EXPECT_NE(result.code, 0);
    EXPECT_LT(secondsSince(start), 2.5);
}

TEST(CommandRunner, ReadsMegabytesWholeAndRefusesInvalidUtf8) {
    const CommandResult big = shell(QStringLiteral("head -c 6000000 /dev/zero | tr '\\000' x"));
    EXPECT_EQ(big.code, 0);
    ASSERT_EQ(big.out.size(), 6'000'000);
    EXPECT_EQ(big.out.count(u'x'), 6'000'000);

    const CommandResult invalid = shell(QStringLiteral("printf 'ok \\377\\376 bad'; exit 4"));
    EXPECT_EQ(invalid.code, 4);
    EXPECT_TRUE(invalid.out.isEmpty());

    const CommandResult utf8 = run(QStringLiteral("/usr/bin/printf"), {QStringLiteral("→ ✓")});
    EXPECT_EQ(utf8.out, QStringLiteral("→ ✓"));
}

TEST(CommandRunner, LeavesNoZombieAndNoDescriptorBehind) {
    const int before = openDescriptors();
    for (int i = 0; i < 2000; ++i) {
        const CommandResult result = run(QStringLiteral("/bin/true"), {});
        ASSERT_EQ(result.code, 0);
    }
    run(QStringLiteral("/nonexistent"), {});
    shell(QStringLiteral("exec sleep 5"), 0.05);
    EXPECT_EQ(openDescriptors(), before);
    int status = 0;
    EXPECT_EQ(::waitpid(-1, &status, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST(CommandRunner, IsSafeFromManyThreadsAtOnce) {
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([t, &failures] {
            for (int i = 0; i < 40; ++i) {
                const QString word = QStringLiteral("t%1-%2").arg(t).arg(i);
                switch ((t + i) % 4) {
                    case 0:
                        if (run(QStringLiteral("/bin/echo"), {word}).out != word + u'\n') ++failures;
                        break;
                    case 1:
                        if (shell(QStringLiteral("echo %1 >&2; exit 7").arg(word)).code != 7)
                            ++failures;
                        break;
                    case 2:
                        if (run(QStringLiteral("/missing/") + word, {}).code != -1) ++failures;
                        break;
                    default:
                        if (shell(QStringLiteral("exec sleep 5"), 0.05).code == 0) ++failures;
                }
            }
        });
    }
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
