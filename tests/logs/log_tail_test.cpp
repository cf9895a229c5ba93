#include "logs/log_tail.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <memory>

#include "logs/log_rows.h"
#include "monitor/sandbox.h"

using namespace varnel;

namespace {

// The files live under a sandbox root, and the reader is handed the suite's
// own paths, as the app does.
class SuiteRoot : public ::testing::Environment {
public:
    void SetUp() override {
        dir_ = std::make_unique<QTemporaryDir>();
        qputenv("VARNEL_ROOT", dir_->path().toUtf8());
    }
    void TearDown() override { dir_.reset(); }

private:
    std::unique_ptr<QTemporaryDir> dir_;
};

const auto* const kSuiteRoot = ::testing::AddGlobalTestEnvironment(new SuiteRoot);

const QString kLog = QStringLiteral("/Library/Logs/Varnel/agent.log");
const QString kMissing = QStringLiteral("Log file does not exist yet.");
const QString kUnreadable =
    QStringLiteral("Cannot read this log (permission denied). Try \u2018Open Logs Folder\u2019.");

void write(const QString& suitePath, const QByteArray& bytes) {
    const QString host = sandbox::hostPath(suitePath);
    ASSERT_NE(host, suitePath) << "the sandbox root is not in effect";
    QDir().mkpath(QFileInfo(host).path());
    QFile file(host);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    ASSERT_EQ(file.write(bytes), bytes.size());
}

QByteArray utf16(const QString& text, bool littleEndian) {
    QByteArray out;
    for (QChar c : text) {
        const char lo = char(c.unicode() & 0xFF);
        const char hi = char(c.unicode() >> 8);
        out.append(littleEndian ? lo : hi).append(littleEndian ? hi : lo);
    }
    return out;
}

}  // namespace

TEST(LogTail, FilesThatCannotBeRead) {
    LogTail tail = readLogTail(QStringLiteral("/Library/Logs/Varnel/none.log"));
    EXPECT_EQ(tail.error, kMissing);
    EXPECT_TRUE(tail.text.isEmpty());
    EXPECT_FALSE(tail.truncated);

    QDir().mkpath(sandbox::hostPath(QStringLiteral("/Library/Logs/Varnel/folder.log")));
    tail = readLogTail(QStringLiteral("/Library/Logs/Varnel/folder.log"));
    EXPECT_EQ(tail.error, kUnreadable);
    EXPECT_TRUE(tail.text.isEmpty());
    EXPECT_FALSE(tail.truncated);

    // A named pipe with no writer must neither block nor fail.
    const QString pipe = QStringLiteral("/Library/Logs/Varnel/pipe.log");
    ASSERT_EQ(::mkfifo(QFile::encodeName(sandbox::hostPath(pipe)).constData(), 0600), 0);
    QElapsedTimer clock;
    clock.start();
    tail = readLogTail(pipe);
    EXPECT_LT(clock.elapsed(), 1000);
    EXPECT_FALSE(tail.error);
    EXPECT_TRUE(tail.text.isEmpty());
}

TEST(LogTail, PermissionDenied) {
    write(kLog, "secret\n");
    const QString host = sandbox::hostPath(kLog);
    ASSERT_TRUE(QFile::setPermissions(host, QFileDevice::Permissions()));
    if (::geteuid() != 0) {
        const LogTail tail = readLogTail(kLog);
        EXPECT_EQ(tail.error, kUnreadable);
        EXPECT_TRUE(tail.text.isEmpty());
        return;
    }
    // Root reads files whatever their mode, so read as "nobody" in a child,
    // with the folders above the file open to it.
    for (QString dir = QFileInfo(host).path(); dir.startsWith(sandbox::root());
         dir = QFileInfo(dir).path())
        ::chmod(QFile::encodeName(dir).constData(), 0755);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        if (::setgid(65534) != 0 || ::setuid(65534) != 0) ::_exit(2);
        const LogTail tail = readLogTail(kLog);
        ::_exit(tail.error == kUnreadable && tail.text.isEmpty() ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == 2) GTEST_SKIP() << "cannot drop root privileges here";
    EXPECT_EQ(WEXITSTATUS(status), 0) << "an unreadable file did not give the permission message";
}

TEST(LogTail, TruncationAtTheLimit) {
    write(kLog, "");
    LogTail tail = readLogTail(kLog);
    EXPECT_EQ(tail.text, QString());
    EXPECT_FALSE(tail.truncated);
    EXPECT_FALSE(tail.error);

    write(kLog, "first\nsecond\n");  // 13 bytes
    tail = readLogTail(kLog, 13);
    EXPECT_EQ(tail.text, u"first\nsecond\n");
    EXPECT_FALSE(tail.truncated);

    // One byte over: the cut line is dropped, even when only one byte is missing.
    tail = readLogTail(kLog, 12);
    EXPECT_EQ(tail.text, u"second\n");
    EXPECT_TRUE(tail.truncated);

    tail = readLogTail(kLog, 6);  // "econd\n": nothing after the cut line
    EXPECT_EQ(tail.text, QString());
    EXPECT_TRUE(tail.truncated);

    // No line feed in the tail: kept whole.
    write(kLog, "0123456789");
    tail = readLogTail(kLog, 4);
    EXPECT_EQ(tail.text, u"6789");
    EXPECT_TRUE(tail.truncated);

    // The default limit is 4,000,000 bytes, not 4 MiB.
    QByteArray big(4'000'000, 'a');
    big[1] = '\n';
    write(kLog, big + "b");
    tail = readLogTail(kLog);
    EXPECT_TRUE(tail.truncated);
    EXPECT_EQ(tail.text.size(), 3'999'999);
}

TEST(LogTail, EncodingsAndSignatures) {
    const QString text = QStringLiteral("caf\u00e9 \U0001F512\nzwei\n");

    write(kLog, "\xEF\xBB\xBF" + text.toUtf8());
    EXPECT_EQ(readLogTail(kLog).text, text);

    // Byte-order marks are removed wherever they stand.
    write(kLog,
          "a\xEF\xBB\xBF"
          "b\n");
    EXPECT_EQ(readLogTail(kLog).text, u"ab\n");

    write(kLog, "\xFF\xFE" + utf16(text, true));
    EXPECT_EQ(readLogTail(kLog).text, text);
    write(kLog, "\xFE\xFF" + utf16(text, false));
    EXPECT_EQ(readLogTail(kLog).text, text);

    // Without a signature UTF-16 is read as UTF-8: NULs and all.
    write(kLog, utf16(QStringLiteral("ab"), true));
    EXPECT_EQ(readLogTail(kLog).text, QStringLiteral("a") + QChar(0) + u'b' + QChar(0));

    // 2 + 2*7 = 16 bytes; the last 11 would start at the odd offset 5, so the
    // read starts at 6: "\n", "x", "y", "z", "\n" after the cut line "b".
    const QByteArray le = "\xFF\xFE" + utf16(QStringLiteral("ab\nxyz\n"), true);
    write(kLog, le);
    LogTail tail = readLogTail(kLog, 11);
    EXPECT_TRUE(tail.truncated);
    EXPECT_EQ(tail.text, u"xyz\n");
    write(kLog, "\xFE\xFF" + utf16(QStringLiteral("ab\nxyz\n"), false));
    EXPECT_EQ(readLogTail(kLog, 11).text, u"xyz\n");

    // A lone surrogate is not valid UTF-16: the same bytes are read as UTF-8.
    write(kLog, QByteArray("\xFF\xFE\x00\xD8"
                           "a\x00",
                           6));
    EXPECT_EQ(readLogTail(kLog).text,
              QStringLiteral("\uFFFD\uFFFD") + QChar(0) + QStringLiteral("\uFFFDa") + QChar(0));
}

TEST(LogTail, BadBytesAndHugeLines) {
    write(kLog, "ok \xC3\x28 \xFF end\n");
    LogTail tail = readLogTail(kLog);
    EXPECT_EQ(tail.text, QStringLiteral("ok \uFFFD( \uFFFD end\n"));

    // A multi-byte character cut at the start of the tail.
    write(kLog, "\xE2\x9F\xB6xyz");
    EXPECT_EQ(readLogTail(kLog, 5).text, QStringLiteral("\uFFFD\uFFFDxyz"));

    write(kLog, QByteArray("a\0b\n", 4));
    EXPECT_EQ(readLogTail(kLog).text, QStringLiteral("a") + QChar(0) + QStringLiteral("b\n"));

    // One line of 10 MB: the last 4,000,000 bytes, whole, and one row.
    write(kLog, QByteArray(10'000'000, 'x'));
    QElapsedTimer clock;
    clock.start();
    tail = readLogTail(kLog);
    const LogRows rows = LogRows::build(tail.text);
    EXPECT_TRUE(tail.truncated);
    EXPECT_EQ(tail.text.size(), 4'000'000);
    ASSERT_EQ(rows.size(), 1);
    EXPECT_EQ(rows[0].message.size(), 4'000'000);
    EXPECT_LT(clock.elapsed(), 2000);
}
