#include "update/privileged_action.h"

#include <gtest/gtest.h>

using namespace varnel;

namespace {

// Reads an AppleScript string literal starting at `pos` (just after its opening
// quote); returns its value and moves `pos` past the closing quote.
std::optional<QString> readLiteral(const QString& script, qsizetype& pos) {
    QString value;
    while (pos < script.size()) {
        const QChar c = script[pos++];
        if (c == u'"') return value;
        if (c != u'\\') {
            value += c;
            continue;
        }
        if (pos >= script.size()) return std::nullopt;
        const QChar e = script[pos++];
        value += e == u'n' ? QChar(u'\n') : e == u'r' ? QChar(u'\r') : e == u't' ? QChar(u'\t') : e;
    }
    return std::nullopt;
}

// Splits `do shell script "A" with administrator privileges with prompt "B"`
// into its two decoded literals; nothing when the script has any other shape.
std::optional<std::pair<QString, QString>> decode(const QString& script) {
    const QString head = "do shell script \"";
    const QString middle = " with administrator privileges with prompt \"";
    if (!script.startsWith(head)) return std::nullopt;
    qsizetype pos = head.size();
    const auto command = readLiteral(script, pos);
    if (!command || script.mid(pos, middle.size()) != middle) return std::nullopt;
    pos += middle.size();
    const auto prompt = readLiteral(script, pos);
    if (!prompt || pos != script.size()) return std::nullopt;
    return std::pair{*command, *prompt};
}

}  // namespace

TEST(PrivilegedAction, ScriptsAndPromptsReadAsTheyShould) {
    EXPECT_EQ(administratorScript(restartRequest("com.varnel.agent")),
              "do shell script \"launchctl kickstart -k system/com.varnel.agent\" with "
              "administrator privileges with prompt \"Varnel needs administrator access to "
              "restart the Agent service.\"");
    EXPECT_EQ(restartRequest("com.varnel.endpoint.watcher").prompt,
              "Varnel needs administrator access to restart the com.varnel.endpoint.watcher "
              "service.");

    struct Case {
        const char* installed;
        const char* latest;
        const char* prompt;
    };
    const Case cases[] = {
        {"1.8.2", "1.9.0",
         "Varnel needs administrator access to install the update (1.8.2 → 1.9.0)."},
        {"1.8.2", "1.8.2", "Varnel needs administrator access to install the update (latest)."},
        {"1.8.2", "", "Varnel needs administrator access to install the update (latest)."},
        {"", "1.9.0", "Varnel needs administrator access to install the update ( → 1.9.0)."},
    };
    for (const Case& c : cases) {
        const PrivilegedRequest request = updateRequest(c.installed, c.latest);
        EXPECT_EQ(request.prompt, QString::fromUtf8(c.prompt));
        EXPECT_EQ(request.command, "launchctl kickstart -k system/com.varnel.endpoint.updater");
    }
}

TEST(PrivilegedAction, HostileVersionTextsStayInsideThePrompt) {
    const QString hostile[] = {
        "\" & (do shell script \"id\") & \"",
        "1.0\\\" & (do shell script \"id\") & \"\\",
        "9.9\"\nset x to \"y",
        "\\\\\\",
        "2.0\r\t\"\"end",
    };
    for (const QString& latest : hostile) {
        for (const QString& installed : {QString("1.0"), latest}) {
            const PrivilegedRequest request = updateRequest(installed, latest + "9");
            const auto decoded = decode(administratorScript(request));
            ASSERT_TRUE(decoded) << administratorScript(request).toStdString();
            EXPECT_EQ(decoded->first, request.command);
            EXPECT_EQ(decoded->second, request.prompt);
            EXPECT_FALSE(administratorScript(request).contains(u'\n'));
        }
    }
}

TEST(PrivilegedAction, OutcomesAndReports) {
    EXPECT_EQ(classify({0, "anything -128 cancel"}), ActionOutcome::succeeded);
    EXPECT_EQ(classify({1, "0:71: execution error: User canceled. (-128)\n"}),
              ActionOutcome::cancelled);
    EXPECT_EQ(classify({1, "Operation CANCELLED by user"}), ActionOutcome::cancelled);
    EXPECT_EQ(classify({1, "41:100: execution error: sh: zzz: command not found (127)"}),
              ActionOutcome::failed);
    EXPECT_EQ(classify({-1, ""}), ActionOutcome::failed);
    EXPECT_EQ(classify({15, ""}), ActionOutcome::failed);

    EXPECT_EQ(restartReport(ActionOutcome::succeeded, "com.varnel.agent"),
              "Agent restart requested.");
    EXPECT_EQ(restartReport(ActionOutcome::succeeded, "com.varnel.endpoint.watcher"),
              "com.varnel.endpoint.watcher restart requested.");
    EXPECT_EQ(restartReport(ActionOutcome::failed, "x"),
              "Restart failed. See Console for details.");
    EXPECT_TRUE(restartReport(ActionOutcome::cancelled, "x").isEmpty());
    EXPECT_EQ(updateReport(ActionOutcome::succeeded),
              "Update started — installing in the background.");
    EXPECT_EQ(updateReport(ActionOutcome::failed), "Could not start update. See the updater log.");
    EXPECT_TRUE(updateReport(ActionOutcome::cancelled).isEmpty());
    EXPECT_EQ(notificationLine("Varnel", "Agent restart requested."),
              "Varnel: Varnel — Agent restart requested.");
}
