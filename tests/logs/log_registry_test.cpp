#include "logs/log_registry.h"

#include <gtest/gtest.h>
#include <sys/time.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include "platform/file_system.h"
#include "platform/sandbox.h"

using namespace varnel;

namespace {

// sandbox::root() is read once per process: the binary shares one root, emptied per test.
class SuiteRoot : public ::testing::Environment {
public:
    void SetUp() override { qputenv("VARNEL_ROOT", dir_.path().toUtf8()); }

private:
    QTemporaryDir dir_;
};

[[maybe_unused]] const auto* const suiteRoot = ::testing::AddGlobalTestEnvironment(new SuiteRoot);

const QString serviceDir = QStringLiteral("/Library/Logs/Varnel");
const QString supportDir = QStringLiteral("/Library/Application Support/Varnel/logs");

class LogRegistryTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(sandbox::root().isEmpty());
        for (const char* top : {"/Library", "/var"})
            QDir(sandbox::hostPath(QLatin1String(top))).removeRecursively();
    }

    // A file (or a folder) of the suite, modified `secs` after a fixed moment.
    static void make(const QString& path, qint64 secs = 0, bool asFolder = false) {
        const QString host = sandbox::hostPath(path);
        ASSERT_TRUE(QDir().mkpath(asFolder ? host : QFileInfo(host).path()));
        ASSERT_TRUE(asFolder || QFile(host).open(QIODevice::WriteOnly));
        const timeval times[2] = {{1'714'557'600 + secs, 0}, {1'714'557'600 + secs, 0}};
        ASSERT_EQ(::utimes(QFile::encodeName(host).constData(), times), 0);
    }

    static QStringList titles() {
        QStringList out;
        for (const LogSource& s : LogRegistry::discover()) out << s.title;
        return out;
    }
};

TEST_F(LogRegistryTest, KnownLogsComeFirstInTheirOwnOrderThenEachFolderSorted) {
    EXPECT_TRUE(LogRegistry::discover().isEmpty());  // four missing folders
    const QList<LogSource> expected = {
        {QStringLiteral("Agent \u2014 output"), serviceDir + "/agent.stdout.log"},
        {QStringLiteral("Agent \u2014 errors"), serviceDir + "/agent.stderr.log"},
        {QStringLiteral("Installer \u2014 postinstall"), "/var/log/ostrel/varnel-postinstall.log"},
        {"proxy.log", serviceDir + "/proxy.log"},
        {"alpha.log", supportDir + "/alpha.log"},
        {"zeta.log", supportDir + "/zeta.log"},
        {"extra.log", "/var/log/ostrel/varnel-endpoint/extra.log"},
        {"other.log", "/var/log/ostrel/other.log"}};
    // Made in reverse; a folder is listed like a file.
    for (auto it = expected.rbegin(); it != expected.rend(); ++it)
        make(it->path, 0, it->path.endsWith(u"stderr.log") || it->path.endsWith(u"extra.log"));
    EXPECT_EQ(LogRegistry::discover(), expected);
}

TEST_F(LogRegistryTest, EachBaseNameKeepsItsNewestFileAndTheFirstListedOnATie) {
    // The known file is taken already and does not compete with its rotation.
    make(serviceDir + "/agent.stdout.log", 100);
    make(serviceDir + "/agent.stdout.log.1", 10);
    make(serviceDir + "/proxy.log.1", 10);
    make(serviceDir + "/proxy.log.2", 20);
    make(serviceDir + "/proxy.log.3.gz", 99);
    make(supportDir + "/tie.log", 50);
    make(supportDir + "/tie.log.1", 50);
    // A dangling link has no time: it loses to any sibling.
    ASSERT_TRUE(QFile::link("/nonexistent", sandbox::hostPath(serviceDir + "/proxy.log.9")));

    const QString tie = fs::list(supportDir)->first();
    EXPECT_EQ(titles(), QStringList({QStringLiteral("Agent \u2014 output"),
                                     QStringLiteral("agent.stdout.log \u00B7 1"),
                                     QStringLiteral("proxy.log \u00B7 2"),
                                     tie == "tie.log" ? "tie.log" : "tie.log \u00B7 1"}));
}

TEST_F(LogRegistryTest, NamesAreTitledFromTheirFirstLogMarkAndSortedByCodePoint) {
    // By UTF-16 units U+1F600 would sort before U+FF01. A decomposed e-acute composes to
    // U+00E9 and so sorts after "x". An astral character after ".log" is dropped whole.
    for (const char* name :
         {"app.txt", "APP.LOG", "my.logfile", "x.log.log", "Proxy.log", "proxy.log", "notes.gz",
          "\xF0\x9F\x98\x80.log", "\xEF\xBC\x81.log", "e\xCC\x81.log", "a.log\xF0\x9F\x98\x80x"})
        make(supportDir + "/" + QString::fromUtf8(name));
    EXPECT_EQ(
        titles(),
        QStringList(
            {"Proxy.log", QStringLiteral("a.log \u00B7 x"), QStringLiteral("my.log \u00B7 ile"),
             "proxy.log", QStringLiteral("x.log \u00B7 log"), QString::fromUtf8("e\xCC\x81.log"),
             QString::fromUtf8("\xEF\xBC\x81.log"), QString::fromUtf8("\xF0\x9F\x98\x80.log")}));
}

TEST_F(LogRegistryTest, HintsResolveToTheFirstDiscoveredMatchNotTheNewest) {
    make(serviceDir + "/proxy.log", 0);
    make(supportDir + "/proxy.log", 500);
    make(supportDir + "/proxy.log.7", 900);
    EXPECT_EQ(LogRegistry::newest("proxy.log"), serviceDir + "/proxy.log");
    EXPECT_EQ(LogRegistry::newest("log.7"), supportDir + "/proxy.log.7");
    // Only the file name counts, and case matters.
    EXPECT_FALSE(LogRegistry::newest("Varnel"));
    EXPECT_FALSE(LogRegistry::newest("PROXY"));
}

}  // namespace
