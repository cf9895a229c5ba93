#include "logs/log_registry.h"

#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include "monitor/file_system.h"
#include "monitor/sandbox.h"

using namespace varnel;

namespace {

// sandbox::root() is read once per process, so the whole binary shares one root,
// emptied before every test.
class SuiteRoot : public ::testing::Environment {
public:
    void SetUp() override {
        ASSERT_TRUE(dir_.isValid());
        qputenv("VARNEL_ROOT", dir_.path().toUtf8());
        ASSERT_EQ(sandbox::root(), QDir::cleanPath(dir_.path()));
    }

private:
    QTemporaryDir dir_;
};

[[maybe_unused]] const auto* const suiteRoot = ::testing::AddGlobalTestEnvironment(new SuiteRoot);

const QString serviceDir = QStringLiteral("/Library/Logs/Varnel");
const QString supportDir = QStringLiteral("/Library/Application Support/Varnel/logs");
const QString updaterDir = QStringLiteral("/var/log/ostrel/varnel-endpoint");
const QString ostrelDir = QStringLiteral("/var/log/ostrel");

constexpr qint64 base = 1'714'557'600;

class LogRegistryTest : public ::testing::Test {
protected:
    void SetUp() override {
        for (const char* top : {"Library", "var"})
            QDir(sandbox::hostPath(QStringLiteral("/") + top)).removeRecursively();
    }

    // A file of the suite, modified `secs` after a fixed moment.
    static void file(const QString& suitePath, qint64 secs = 0) {
        const QString host = sandbox::hostPath(suitePath);
        ASSERT_TRUE(QDir().mkpath(QFileInfo(host).path()));
        QFile f(host);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.close();
        const timeval stamp{base + secs, 0};
        const timeval times[2] = {stamp, stamp};
        ASSERT_EQ(::utimes(QFile::encodeName(host).constData(), times), 0);
    }

    static void folder(const QString& suitePath) {
        ASSERT_TRUE(QDir().mkpath(sandbox::hostPath(suitePath)));
    }

    static QStringList titles() {
        QStringList out;
        for (const LogSource& s : LogRegistry::discover()) out << s.title;
        return out;
    }

    static QStringList paths() {
        QStringList out;
        for (const LogSource& s : LogRegistry::discover()) out << s.path;
        return out;
    }
};

TEST_F(LogRegistryTest, NothingInstalledFindsNothing) {
    EXPECT_TRUE(LogRegistry::discover().isEmpty());
    EXPECT_FALSE(LogRegistry::newest(QStringLiteral("log")));
    folder(serviceDir);  // an empty folder and three missing ones
    EXPECT_TRUE(LogRegistry::discover().isEmpty());
}

TEST_F(LogRegistryTest, KnownLogsComeFirstInTheirOwnOrderThenEachFolderSorted) {
    file(supportDir + "/zeta.log");
    file(supportDir + "/alpha.log");
    file(ostrelDir + "/varnel-postinstall.log");
    file(serviceDir + "/proxy.log");
    file(serviceDir + "/agent.stderr.log");
    file(serviceDir + "/agent.stdout.log");
    file(updaterDir + "/varnel_endpoint.stdout.log");
    file(updaterDir + "/extra.log");
    file(ostrelDir + "/other.log");

    const QList<LogSource> expected = {
        {QStringLiteral("Agent \u2014 output"), serviceDir + "/agent.stdout.log"},
        {QStringLiteral("Agent \u2014 errors"), serviceDir + "/agent.stderr.log"},
        {QStringLiteral("Updater \u2014 output"), updaterDir + "/varnel_endpoint.stdout.log"},
        {QStringLiteral("Installer \u2014 postinstall"), ostrelDir + "/varnel-postinstall.log"},
        {QStringLiteral("proxy.log"), serviceDir + "/proxy.log"},
        {QStringLiteral("alpha.log"), supportDir + "/alpha.log"},
        {QStringLiteral("zeta.log"), supportDir + "/zeta.log"},
        {QStringLiteral("extra.log"), updaterDir + "/extra.log"},
        {QStringLiteral("other.log"), ostrelDir + "/other.log"},
    };
    EXPECT_EQ(LogRegistry::discover(), expected);
}

TEST_F(LogRegistryTest, AKnownPathThatIsAFolderIsListedLikeAFile) {
    folder(serviceDir + "/agent.stderr.log");
    folder(serviceDir + "/archive.log.d");  // scanned folders list sub-folders too
    EXPECT_EQ(titles(), QStringList({QStringLiteral("Agent \u2014 errors"),
                                     QStringLiteral("archive.log \u00B7 d")}));
}

TEST_F(LogRegistryTest, RotatedCopiesKeepOnlyTheNewestOfEachBaseName) {
    // The known file is already taken and does not compete with its rotation.
    file(serviceDir + "/agent.stdout.log", 100);
    file(serviceDir + "/agent.stdout.log.1", 10);
    file(serviceDir + "/proxy.log.1", 10);
    file(serviceDir + "/proxy.log.2", 20);
    file(serviceDir + "/proxy.log.3", 15);
    file(serviceDir + "/proxy.log.3.gz", 99);

    EXPECT_EQ(LogRegistry::discover(),
              (QList<LogSource>{
                  {QStringLiteral("Agent \u2014 output"), serviceDir + "/agent.stdout.log"},
                  {QStringLiteral("agent.stdout.log \u00B7 1"), serviceDir + "/agent.stdout.log.1"},
                  {QStringLiteral("proxy.log \u00B7 2"), serviceDir + "/proxy.log.2"},
              }));
}

TEST_F(LogRegistryTest, EqualTimesGoToTheFirstListedAndUnreadableTimesLose) {
    file(serviceDir + "/proxy.log", 50);
    file(serviceDir + "/proxy.log.1", 50);
    const QStringList listed = *fs::list(serviceDir);
    const QString first =
        listed.first() == QStringLiteral("proxy.log") ? "proxy.log" : "proxy.log.1";
    EXPECT_EQ(paths(), QStringList{serviceDir + "/" + first});

    // A dangling link has no attributes: it is older than anything.
    QDir(sandbox::hostPath(serviceDir)).removeRecursively();
    file(serviceDir + "/proxy.log.1", -1'000'000'000);
    ASSERT_TRUE(QFile::link(QStringLiteral("/nonexistent/target"),
                            sandbox::hostPath(serviceDir + "/proxy.log.2")));
    EXPECT_EQ(paths(), QStringList{serviceDir + "/proxy.log.1"});
    QFile::remove(sandbox::hostPath(serviceDir + "/proxy.log.1"));
    EXPECT_EQ(paths(), QStringList{serviceDir + "/proxy.log.2"});
}

TEST_F(LogRegistryTest, NamesAreTitledFromTheirFirstLogMark) {
    for (const char* name : {"app.txt", "APP.LOG", "my.logfile", "x.log.log", ".hidden.log",
                             "stderr.log-2024", "Proxy.log", "proxy.log", "notes.gz"})
        file(supportDir + "/" + name);
    EXPECT_EQ(titles(), QStringList({
                            ".hidden.log",
                            "Proxy.log",
                            "my.log \u00B7 ile",
                            "proxy.log",
                            "stderr.log \u00B7 2024",
                            "x.log \u00B7 log",
                        }));
}

TEST_F(LogRegistryTest, TitlesSortByCodePointOfTheirComposedForm) {
    // By UTF-16 units the astral U+1F600 would sort before U+FF01; by code point it comes after.
    // A decomposed e-acute composes to U+00E9 and so sorts after "f".
    file(supportDir + QString::fromUtf8("/\xF0\x9F\x98\x80.log"));
    file(supportDir + QString::fromUtf8("/\xEF\xBC\x81.log"));
    file(supportDir + QString::fromUtf8("/e\xCC\x81.log"));
    file(supportDir + "/f.log");
    file(supportDir + QString::fromUtf8("/a.log\xF0\x9F\x98\x80x"));
    EXPECT_EQ(titles(), QStringList({
                            QStringLiteral("a.log \u00B7 x"),
                            QStringLiteral("f.log"),
                            QString::fromUtf8("e\xCC\x81.log"),
                            QString::fromUtf8("\xEF\xBC\x81.log"),
                            QString::fromUtf8("\xF0\x9F\x98\x80.log"),
                        }));
}

TEST_F(LogRegistryTest, HintsResolveToTheFirstDiscoveredMatchNotTheNewest) {
    file(serviceDir + "/agent.stdout.log", 0);
    file(serviceDir + "/proxy.log", 0);
    file(supportDir + "/proxy.log", 500);
    file(supportDir + "/proxy.log.7", 900);

    EXPECT_EQ(LogRegistry::newest(QStringLiteral("proxy.log")), serviceDir + "/proxy.log");
    EXPECT_EQ(LogRegistry::newest(QStringLiteral("log.7")), supportDir + "/proxy.log.7");
    EXPECT_EQ(LogRegistry::newest(QStringLiteral("stdout")), serviceDir + "/agent.stdout.log");
    // Only the file name counts, and case matters.
    EXPECT_FALSE(LogRegistry::newest(QStringLiteral("Varnel")));
    EXPECT_FALSE(LogRegistry::newest(QStringLiteral("PROXY")));
    EXPECT_FALSE(LogRegistry::newest(QStringLiteral("watcher")));
}

}  // namespace
