#include "platform/preferences.h"

#include <gtest/gtest.h>

#include "platform/file_system.h"
#include "platform/user_folders.h"
#include "support/sim_suite.h"

using namespace varnel;

namespace {

class UserFiles : public ::testing::Test {
protected:
    void SetUp() override { sim.generate(QStringLiteral("empty")); }
    test::SimSuite& sim = test::SimSuite::instance();
};

}  // namespace

TEST_F(UserFiles, PreferencesAreOnUntilSetAndAnAdministratorsValueStands) {
    EXPECT_EQ(readPreferences(), (Preferences{{true, false}, {true, false}}));
    EXPECT_EQ(writePreference(historyEnabledKey, false), std::nullopt);
    EXPECT_EQ(readPreferences(), (Preferences{{true, false}, {false, false}}));

    sim.writeFile("/etc/xdg/com.varnel.tray.conf",
                  "[General]\nHistoryEnabled=true\nNotifyOnHealthChange=maybe\n");
    EXPECT_EQ(readPreferences(), (Preferences{{true, false}, {true, true}}));
    EXPECT_TRUE(writePreference(historyEnabledKey, false).has_value());
    EXPECT_EQ(writePreference(notifyOnHealthChangeKey, false), std::nullopt);

    // A folder in the file's place is neither read nor written through.
    const QString user = userConfigFolder() + QStringLiteral("/com.varnel.tray.conf");
    sim.removePath(user);
    sim.writeFile(user + QStringLiteral("/NotifyOnHealthChange"), "false");
    EXPECT_TRUE(readPreferences().notifyOnHealthChange.value);
    EXPECT_TRUE(writePreference(notifyOnHealthChangeKey, false).has_value());
}

TEST_F(UserFiles, AppendingMovesAFullFileAsideWholeAndNeverWritesThroughOddPaths) {
    const QString path = userLogFolder() + QStringLiteral("/history.jsonl");
    const QString previous = path + QStringLiteral(".1");
    const auto files = [&] {
        return std::tuple(fs::readFile(previous, 1024), fs::readFile(path, 1024));
    };
    for (const char* line : {"one\n", "two\n", "three\n"})
        EXPECT_TRUE(fs::appendRotating(path, line, 12)) << line;
    EXPECT_EQ(files(), std::tuple("one\ntwo\n", "three\n"));
    sim.writeFile(path, QByteArray(100, 'x'));  // larger than ever written: moved, not cut
    EXPECT_TRUE(fs::appendRotating(path, "four\n", 12));
    EXPECT_EQ(files(), std::tuple(QByteArray(100, 'x'), "four\n"));

    // A folder where the full file would go, or in the file's place; a link there.
    sim.writeFile(path, "0123456789\n");
    sim.removePath(previous);
    sim.writeFile(previous + QStringLiteral("/kept"), "kept");
    EXPECT_FALSE(fs::appendRotating(path, "five\n", 12));
    EXPECT_EQ(fs::readFile(path, 1024), "0123456789\n");
    sim.removePath(path);
    sim.writeFile(path + QStringLiteral("/inside"), {});
    EXPECT_FALSE(fs::appendRotating(path, "six\n", 12));
    sim.removePath(path);
    QFile::link(sim.hostPath(QStringLiteral("/elsewhere")), sim.hostPath(path));
    EXPECT_FALSE(fs::appendRotating(path, "seven\n", 12));
    EXPECT_FALSE(fs::exists(QStringLiteral("/elsewhere")));
}
