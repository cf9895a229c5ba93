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

// varnelctl's tests cover the scripts of a restart and of an update offer.
TEST(PrivilegedAction, UpdatePromptWithoutANewerVersion) {
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"1.8.2", "1.8.2", "latest"},
        {"1.8.2", "", "latest"},
        {"", "1.9.0", " → 1.9.0"},  // any version is newer than none
    };
    for (const auto& [installed, latest, what] : cases)
        EXPECT_EQ(updateRequest(installed, latest).prompt,
                  QStringLiteral("Varnel needs administrator access to install the update (%1).")
                      .arg(QString::fromUtf8(what)));
}

TEST(PrivilegedAction, HostileVersionTextsStayInsideAShortPrompt) {
    const QString hostile[] = {
        "\" & (do shell script \"id\") & \"",
        "1.0\\\" & (do shell script \"id\") & \"\\",
        "9.9\"\nset x to \"y",
        "\\\\\\",
        "2.0\r\t\"\"end",
        QStringLiteral("1.9\u0000\u202e\u2028\u00850"),  // a NUL, a direction mark, line ends
        QString(200'000, u'9') + QStringLiteral("\U0001F600"),
    };
    for (const QString& latest : hostile) {
        for (const QString& installed : {QString("1.0"), latest}) {
            const PrivilegedRequest request = updateRequest(installed, latest + "9");
            const QString script = administratorScript(request);
            const auto decoded = decode(script);
            ASSERT_TRUE(decoded) << script.toStdString();
            EXPECT_EQ(decoded->first, request.command);
            EXPECT_EQ(decoded->second, request.prompt);
            EXPECT_LE(request.prompt.size(), maxPromptLength);
            EXPECT_TRUE(request.prompt.endsWith(QStringLiteral(").")));
            for (const QChar c : request.prompt)
                EXPECT_TRUE(c.isPrint() || c.isSurrogate()) << script.toStdString();
        }
    }
    const QString longest = updateRequest("1.0", "2." + QString(1000, u'7')).prompt;
    EXPECT_TRUE(longest.endsWith("(1.0 → 2." + QString(116, u'7') + "…)."))
        << longest.toStdString();
    EXPECT_EQ(updateRequest("1.0", QStringLiteral("1.1\u00002")).prompt,
              "Varnel needs administrator access to install the update (1.0 → 1.12).");
}

TEST(PrivilegedAction, OutcomesAndTheReportsOnlyTheTrayWrites) {
    EXPECT_EQ(classify({0, "anything -128 cancel"}), ActionOutcome::succeeded);
    EXPECT_EQ(classify({1, "Operation CANCELLED by user"}), ActionOutcome::cancelled);
    EXPECT_EQ(classify({-1, ""}), ActionOutcome::failed);  // osascript did not start
    EXPECT_EQ(classify({15, ""}), ActionOutcome::failed);  // timed out
    EXPECT_TRUE(restartReport(ActionOutcome::cancelled, "x").isEmpty());
    EXPECT_TRUE(updateReport(ActionOutcome::cancelled).isEmpty());
    EXPECT_EQ(notificationLine("Varnel", "Agent restart requested."),
              "Varnel: Varnel — Agent restart requested.");
}
