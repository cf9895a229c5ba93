#include "logs/log_tail.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringEncoder>
#include <QTemporaryDir>
#include <memory>

#include "platform/sandbox.h"

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
const QString kUnreadable =
    QStringLiteral("Cannot read this log (permission denied). Try \u2018Open Logs Folder\u2019.");

void write(const QString& suitePath, const QByteArray& bytes) {
    const QString host = sandbox::hostPath(suitePath);
    ASSERT_NE(host, suitePath) << "the sandbox root is not in effect";
    QDir().mkpath(QFileInfo(host).path());
    QFile file(host);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
                file.write(bytes) == bytes.size());
}

QByteArray utf16(const QString& text, bool littleEndian) {
    return QStringEncoder(littleEndian ? QStringConverter::Utf16LE : QStringConverter::Utf16BE)
        .encode(text);
}

// The whole result at once: text, truncated, error.
using Tail = std::tuple<QString, bool, std::optional<QString>>;
Tail read(const QString& path, quint64 maxBytes = 4'000'000) {
    const LogTail tail = readLogTail(path, maxBytes);
    return {tail.text.toString(), tail.truncated, tail.error};
}

}  // namespace

TEST(LogTail, FilesThatCannotBeRead) {
    EXPECT_EQ(read(QStringLiteral("/Library/Logs/Varnel/none.log")),
              Tail({}, false, QStringLiteral("Log file does not exist yet.")));
    QDir().mkpath(sandbox::hostPath(QStringLiteral("/Library/Logs/Varnel/folder.log")));
    EXPECT_EQ(read(QStringLiteral("/Library/Logs/Varnel/folder.log")),
              Tail({}, false, kUnreadable));

    // A named pipe with no writer is no file to read, and must not block.
    const QString pipe = QStringLiteral("/Library/Logs/Varnel/pipe.log");
    ASSERT_EQ(::mkfifo(QFile::encodeName(sandbox::hostPath(pipe)).constData(), 0600), 0);
    EXPECT_EQ(read(pipe), Tail({}, false, kUnreadable));
}

TEST(LogTail, PermissionDenied) {
    write(kLog, "secret\n");
    const QString host = sandbox::hostPath(kLog);
    ASSERT_TRUE(QFile::setPermissions(host, QFileDevice::Permissions()));
    if (::geteuid() != 0) {
        EXPECT_EQ(read(kLog), Tail({}, false, kUnreadable));
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
        ::_exit(read(kLog) == Tail({}, false, kUnreadable) ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == 2) GTEST_SKIP() << "cannot drop root privileges here";
    EXPECT_EQ(WEXITSTATUS(status), 0) << "an unreadable file did not give the permission message";
}

TEST(LogTail, TruncationAtTheLimit) {
    // A cut line is dropped, even when only one byte of it is missing; a tail
    // without a line feed is kept whole.
    const struct {
        QByteArray bytes;
        quint64 maxBytes;
        const char16_t* text;
        bool truncated;
    } cases[] = {{"", 10, u"", false},
                 {"first\nsecond\n", 13, u"first\nsecond\n", false},
                 {"first\nsecond\n", 12, u"second\n", true},
                 {"first\nsecond\n", 6, u"", true},
                 {"0123456789", 4, u"6789", true}};
    for (const auto& c : cases) {
        write(kLog, c.bytes);
        EXPECT_EQ(read(kLog, c.maxBytes),
                  Tail(QString::fromUtf16(c.text), c.truncated, std::nullopt))
            << c.bytes.toStdString() << " / " << c.maxBytes;
        const LogText text = readLogTail(kLog, c.maxBytes).text;
        EXPECT_EQ(text.lineFeeds(), text.bytes().count('\n')) << c.bytes.toStdString();
    }

    // The default limit is 4,000,000 bytes, not 4 MiB; the line feeds are
    // counted as the pieces come in.
    QByteArray big(4'000'000, 'a');
    for (qsizetype at = 1; at < big.size(); at += 4099) big[at] = '\n';
    write(kLog, big + "b");
    const LogTail tail = readLogTail(kLog);
    EXPECT_TRUE(tail.truncated);
    EXPECT_EQ(tail.text.size(), 3'999'999);
    EXPECT_EQ(tail.text.lineFeeds(), tail.text.bytes().count('\n'));
}

TEST(LogTail, EncodingsSignaturesAndBadBytes) {
    const QString text = QStringLiteral("caf\u00e9 \U0001F512\nzwei\n");
    const QString nul(QChar(0));
    const QString abxyz = QStringLiteral("ab\nxyz\n");
    const struct {
        QByteArray bytes;
        quint64 maxBytes;
        QString text;
    } cases[] = {
        {"\xEF\xBB\xBF" + text.toUtf8(), 100, text},
        {"x\xEF\xBB\xBFy\n", 100, "xy\n"},  // byte-order marks go wherever they stand
        {"\xFF\xFE" + utf16(text, true), 100, text},
        {"\xFE\xFF" + utf16(text, false), 100, text},
        // Without a signature UTF-16 is read as UTF-8: NULs and all.
        {utf16(QStringLiteral("ab"), true), 100, "a" + nul + "b" + nul},
        // 2 + 2*7 = 16 bytes; the last 11 would start at the odd offset 5, so the
        // read starts at 6: "\n", "x", "y", "z", "\n" after the cut line "b".
        {"\xFF\xFE" + utf16(abxyz, true), 11, "xyz\n"},
        {"\xFE\xFF" + utf16(abxyz, false), 11, "xyz\n"},
        // A lone surrogate is not valid UTF-16: the same bytes are read as UTF-8.
        {QByteArray::fromHex("fffe00d86100"), 100, "\uFFFD\uFFFD" + nul + "\uFFFDa" + nul},
        {"ok \xC3\x28 \xFF end\n", 100, "ok \uFFFD( \uFFFD end\n"},
        {"\xE2\x9F\xB6xyz", 5, "\uFFFD\uFFFDxyz"},  // a character cut at the start of the tail
        {QByteArray("a\0b\n", 4), 100, "a" + nul + "b\n"},
    };
    for (const auto& c : cases) {
        write(kLog, c.bytes);
        EXPECT_EQ(readLogTail(kLog, c.maxBytes).text.toString(), c.text)
            << c.bytes.toHex().toStdString();
    }
}
