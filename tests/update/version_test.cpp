#include "update/version.h"

#include <gtest/gtest.h>

#include "support/sim_suite.h"

using namespace varnel;
using varnel::test::SimSuite;

TEST(VersionIsNewer, ComparesLeadingNumbersOfDottedPieces) {
    struct Case {
        const char* candidate;
        const char* reference;
        bool newer;
    };
    const Case cases[] = {
        {"", "", false},
        {"", "1.0", false},
        {"0", "", true},
        {"beta", "", true},
        {"1.10", "1.9", true},
        {"1.9", "1.10", false},
        {"1.2.1", "1.2", true},
        {"1.2", "1.2.0", false},
        {"1.2.0", "1.2", false},
        {"2.0.0-beta.1", "2.0.0", true},
        {"1.2rc3", "1.2", false},
        {"v2.0", "1.9", false},
        {"1..2", "1.2", false},
        {".1.2.", "1.2", false},
        {"1.3", "1..2", true},
        {"9223372036854775807", "9223372036854775806", true},
        {"12345678901234567890", "0", false},  // twenty digits overflow to 0
        {"1.12345678901234567890", "1.1", false},
        {"12½", "1", false},     // the fraction joins the run: unreadable
        {"1.2a½", "1.1", true},  // the run ends at the letter
        {"1.٣", "1.2", false},   // Arabic-Indic three is not ASCII
        {"1.3٣", "1.2", false},
        {"1.3\u0301", "1.2", false},  // a combining mark on a digit stays with it
        {"2.3一", "2.2", false},      // a Han numeral is numeric too
        {"2.3x一", "2.2", true},
        {"-1", "0", false},  // a sign is not numeric: the piece is 0
        {" 1.5", "1.4", false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(versionIsNewer(QString::fromUtf8(c.candidate), QString::fromUtf8(c.reference)),
                  c.newer)
            << c.candidate << " vs " << c.reference;
    }
}

TEST(VersionFiles, ReadTrimmedTextOrNothing) {
    SimSuite& sim = SimSuite::instance();
    sim.generate(QStringLiteral("demo"));
    EXPECT_EQ(readInstalledVersion(), QStringLiteral("1.8.2"));
    EXPECT_EQ(readLatestVersion(), QStringLiteral("1.9.0"));

    const std::pair<QByteArray, const char*> installed[] = {
        {" \t1.8.3 beta\r\n", "1.8.3 beta"},
        {"\xe2\x80\xa8"
         "2.0\xc2\xa0\xe3\x80\x80",
         "2.0"},  // line separator, no-break and ideographic spaces
        {"\n", ""},
        {"1.8.\xff", ""},
        {"", ""},
    };
    for (const auto& [content, expected] : installed) {
        sim.setInstalledVersion(content);
        EXPECT_EQ(readInstalledVersion(), QString::fromUtf8(expected)) << content.toStdString();
    }
    sim.removePath(QStringLiteral("/Library/Application Support/Varnel/.installed_version"));
    EXPECT_EQ(readInstalledVersion(), QString());

    const QString state =
        QStringLiteral("/Library/Application Support/Varnel/.discovery-state.json");
    const std::pair<QByteArray, const char*> latest[] = {
        {R"({"last_resolved": {"agent_version_mac": "  2.1.0\n"}, "other": 1})", "2.1.0"},
        {R"({"last_resolved": {"agent_version_mac": ""}})", ""},
        {R"({"agent_version_mac": "2.1.0"})", ""},
        {R"({"last_resolved": {"agent_version_mac": 2.1}})", ""},
        {R"({"last_resolved": "2.1.0"})", ""},
        {R"([{"last_resolved": {"agent_version_mac": "2.1.0"}}])", ""},
        {R"({"last_resolved": {"agent_version_mac": "2.1.0"}} trailing)", ""},
        {"not json", ""},
    };
    for (const auto& [content, expected] : latest) {
        sim.writeFile(state, content);
        EXPECT_EQ(readLatestVersion(), QString::fromUtf8(expected)) << content.toStdString();
    }
    sim.removePath(state);
    EXPECT_EQ(readLatestVersion(), QString());
}
