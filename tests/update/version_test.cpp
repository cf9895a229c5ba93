#include "update/version.h"

#include <gtest/gtest.h>

#include "support/sim_suite.h"

using namespace varnel;
using varnel::test::SimSuite;

TEST(VersionIsNewer, ComparesLeadingNumbersOfDottedPieces) {
    // A piece's run of numeric characters ends at anything else. A run that holds a fraction,
    // a non-ASCII digit, a Han numeral or a combining mark, or more than 64 bits, reads as 0;
    // so does a piece that starts with a sign or a blank.
    using Pair = std::pair<const char*, const char*>;
    const Pair newer[] = {
        {"0", ""},        {"beta", ""},      {"1.10", "1.9"},
        {"1.2.1", "1.2"}, {"1.3", "1..2"},   {"2.0.0-beta.1", "2.0.0"},
        {"1.2a½", "1.1"}, {"2.3x一", "2.2"}, {"9223372036854775807", "9223372036854775806"}};
    const Pair notNewer[] = {{"", ""},
                             {"1.9", "1.10"},
                             {"1.2.0", "1.2"},
                             {"1.2rc3", "1.2"},
                             {"v2.0", "1.9"},
                             {"1..2", "1.2"},
                             {"12½", "1"},
                             {"1.3٣", "1.2"},
                             {"1.3\u0301", "1.2"},
                             {"2.3一", "2.2"},
                             {"-1", "0"},
                             {" 1.5", "1.4"},
                             {"12345678901234567890", "0"}};
    for (const auto& [candidate, reference] : newer)
        EXPECT_TRUE(versionIsNewer(QString::fromUtf8(candidate), QString::fromUtf8(reference)))
            << candidate << " vs " << reference;
    for (const auto& [candidate, reference] : notNewer)
        EXPECT_FALSE(versionIsNewer(QString::fromUtf8(candidate), QString::fromUtf8(reference)))
            << candidate << " vs " << reference;
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
    };
    for (const auto& [content, expected] : installed) {
        sim.setInstalledVersion(content);
        EXPECT_EQ(readInstalledVersion(), QString::fromUtf8(expected)) << content.toStdString();
    }

    const QString state =
        QStringLiteral("/Library/Application Support/Varnel/.discovery-state.json");
    const std::pair<QByteArray, const char*> latest[] = {
        {R"({"last_resolved": {"agent_version_mac": "  2.1.0\n"}, "other": 1})", "2.1.0"},
        {R"({"agent_version_mac": "2.1.0"})", ""},
        {R"({"last_resolved": {"agent_version_mac": 2.1}})", ""},
        {R"({"last_resolved": "2.1.0"})", ""},
        {R"([{"last_resolved": {"agent_version_mac": "2.1.0"}}])", ""},
        {R"({"last_resolved": {"agent_version_mac": "2.1.0"}} trailing)", ""},
    };
    for (const auto& [content, expected] : latest) {
        sim.writeFile(state, content);
        EXPECT_EQ(readLatestVersion(), QString::fromUtf8(expected)) << content.toStdString();
    }
}
