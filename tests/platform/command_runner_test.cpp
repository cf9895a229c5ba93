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

namespace {

CommandResult shell(const QString& script, double timeout = 8.0) {
    return run(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), script}, timeout);
}

// Killed is gone, even while init has yet to reap it (here, it may take its time).
bool processGone(pid_t pid) {
    const auto dead = [pid] {
        QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
        return !stat.open(QIODevice::ReadOnly) || stat.readAll().contains(") Z ");
    };
    for (int i = 0; i < 300 && !dead(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return dead();
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

TEST(CommandRunner, AProgramThatCannotStartGivesMinusOne) {
    // Missing, not executable, a directory, not absolute.
    for (const QString& path : {QStringLiteral("/nonexistent/tool"), QStringLiteral("/etc/passwd"),
                                QStringLiteral("/tmp"), QStringLiteral("relative/tool")}) {
        const CommandResult result = run(path, {QStringLiteral("x")});
        EXPECT_EQ(std::pair(result.code, result.out), std::pair(-1, QString()))
            << path.toStdString();
    }
}

// A script that prints a pid prints a descendant that must not outlive the run.
TEST(CommandRunner, TimeOutEndsTheProgramAndAllItStarted) {
    const std::tuple<const char*, int, const char*> cases[] = {
        {"echo before; exec sleep 30", SIGTERM, "before\n"},
        {"sleep 30 & exit 0", SIGTERM, ""},  // exited, but a grandchild holds the pipe
        // Both deaf to SIGTERM: only a kill of the process group ends them.
        {"trap '' TERM; sh -c 'trap \"\" TERM; sleep 30' & echo $!; sleep 30; wait", SIGKILL, {}},
        // The grandchild has let go of the pipe; the program dies when told to.
        {"sleep 30 >/dev/null 2>&1 & echo $!; exec sleep 30", SIGTERM, {}},
    };
    for (const auto& [script, code, out] : cases) {
        const CommandResult result = shell(QString::fromLatin1(script), 0.3);
        EXPECT_EQ(result.code, code) << script;
        if (out != nullptr)
            EXPECT_EQ(result.out, QLatin1String(out)) << script;
        else
            EXPECT_TRUE(processGone(pid_t(result.out.trimmed().toInt()))) << script;
    }
}

TEST(CommandRunner, StopsAFloodAndRefusesInvalidUtf8) {
    // Complete lines up to the limit, then the tool and its group are killed.
    const CommandResult lines = run(QStringLiteral("/usr/bin/yes"), {QStringLiteral("abc")}, 60);
    EXPECT_NE(lines.code, 0);
    EXPECT_GT(lines.out.size(), maxToolOutput - 4);
    EXPECT_LE(lines.out.size(), maxToolOutput);
    EXPECT_TRUE(lines.out.endsWith(QStringLiteral("abc\nabc\n")));
    const CommandResult zeros = shell(QStringLiteral("cat /dev/zero & sleep 30"), 60);
    EXPECT_EQ(std::pair(zeros.code, zeros.out), std::pair(SIGKILL, QString()));

    const CommandResult invalid = shell(QStringLiteral("printf 'ok \\377\\376 bad'; exit 4"));
    EXPECT_EQ(std::pair(invalid.code, invalid.out), std::pair(4, QString()));
    EXPECT_EQ(run(QStringLiteral("/usr/bin/printf"), {QStringLiteral("→ ✓")}).out,
              QStringLiteral("→ ✓"));
    // A NUL cannot travel in an argument: the tool would get a shorter one.
    EXPECT_EQ(run(QStringLiteral("/bin/echo"), {QStringLiteral("a\u0000b")}).code, -1);
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
    // What a child inherits when no other call runs: its pipe, and whatever the
    // test itself inherited.
    const QStringList fdList = {QStringLiteral("/proc/self/fd")};
    const QString alone = run(QStringLiteral("/bin/ls"), fdList).out;
    const auto once = [&](int t, int i) {
        const QString word = QStringLiteral("t%1-%2").arg(t).arg(i);
        switch ((t + i) % 5) {
            case 0:
                return run(QStringLiteral("/bin/echo"), {word}).out == word + u'\n';
            case 1: {
                const CommandResult r = shell(QStringLiteral("echo %1 >&2; exit 7").arg(word));
                return r.code == 7 && r.out == word + u'\n';
            }
            case 2:
                return run(QStringLiteral("/missing/") + word, {}).code == -1;
            case 3:  // and no other call's pipe
                return run(QStringLiteral("/bin/ls"), fdList).out == alone;
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
