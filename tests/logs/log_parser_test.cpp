#include "logs/log_parser.h"

#include <gtest/gtest.h>

#include "support/log_row_printer.h"

using namespace varnel;

namespace {

struct Case {
    const char* line;
    const char* time;
    const char* level;
    const char* source;
    const char* message;
};

// A message that is the whole (colourless, trimmed) line.
constexpr const char* whole = nullptr;

// Every case is checked against both readings: the fast one and the engines'.
void expectRow(const Case& c) {
    const QString line = QString::fromUtf8(c.line);
    const QString raw = QString(line).replace(LogParser::ansiRegex(), QString()).trimmed();
    const LogRow expected{QString::fromUtf8(c.time), QString::fromUtf8(c.level),
                          QString::fromUtf8(c.source),
                          c.message ? QString::fromUtf8(c.message) : raw, raw};
    EXPECT_EQ(LogParser::parse(line), expected) << c.line;
    EXPECT_EQ(LogParser::parseReference(line), expected) << c.line;
}

}  // namespace

TEST(LogParser, WorkedExamples) {
    const Case cases[] = {
        {"2024-05-01T10:00:00.123Z  INFO agent::proxy: connection accepted",
         "2024-05-01T10:00:00.123Z", "INFO", "agent::proxy", "connection accepted"},
        {"[2024-05-01 10:00:00] [watcher] WARNING: socket closed", "2024-05-01 10:00:00", "WARN",
         "watcher", ": socket closed"},
        {"2024-05-01 10:00:00 ERROR: disk full", "2024-05-01 10:00:00", "ERROR", "", ": disk full"},
        {"2024-05-01 10:00:00 request failed with error 42", "2024-05-01 10:00:00", "ERROR", "",
         "request failed with error 42"},
        {"[INFO] started", "", "", "INFO", "started"},
        {"[a tag with spaces] INFO x", "", "INFO", "", whole},
        {"watchdog: worker restarted after 3 failures", "", "", "watchdog",
         "worker restarted after 3 failures"},
        {"a: b: c", "", "", "a", "b: c"},
        {"[2024-05-01T10:00:00.5+0530] x", "2024-05-01T10:00:00.5+0530", "", "", "x"},
        {"2024-05-01 10:00:00", "2024-05-01 10:00:00", "", "", ""},
        {"{not json", "", "", "", whole},
        {"{}", "", "", "", whole},
        {R"({"timestamp":"2024-05-01T10:00:00Z","level":"warning","target":"agent::ws","fields":{"message":"reconnecting"}})",
         "2024-05-01T10:00:00Z", "WARN", "agent::ws", "reconnecting"},
        {R"({"ts": 1714557600, "lvl": "err", "msg": "x"})", "1714557600", "ERROR", "", "x"},
        {R"({"level":"info"})", "", "INFO", "", whole},
        {R"({"message": null, "msg": "x"})", "", "", "", "x"},
        {R"({"msg": ""})", "", "", "", whole},
        {R"({"level": 30, "msg": "x"})", "", "30", "", "x"},
    };
    for (const Case& c : cases) expectRow(c);
}

TEST(LogParser, PlainTextEdges) {
    const Case cases[] = {
        // blank lines
        {"", "", "", "", whole},
        {" \t ", "", "", "", ""},
        // colour sequences vanish before anything else
        {"\x1b[32mINFO\x1b[0m started", "", "INFO", "", "started"},
        {"\x1b[2m2024-05-01 10:00:00\x1b[0m \x1b[31mERROR\x1b[0m x", "2024-05-01 10:00:00", "ERROR",
         "", "x"},
        {"\x1b[ not a sequence", "", "", "", whole},
        // any letter case, normalised
        {"fatal a", "", "FATAL", "", "a"},
        {"Warn a", "", "WARN", "", "a"},
        {"err a", "", "ERROR", "", "a"},
        {"critical a", "", "FATAL", "", "a"},
        // inside longer words no level is seen
        {"INFORMATION MY_ERROR x", "", "", "", whole},
        // a level at position 2 is taken out, at 3 it stays
        {"- INFO x", "", "INFO", "", "x"},
        {"-- INFO x", "", "INFO", "", whole},
        // the level search sees only 80 characters
        {"0123456789012345678901234567890123456789012345678901234567890123456789012345678 ERROR",
         "", "", "", whole},
        {"01234567890123456789012345678901234567890123456789012345678901234567890123 ERROR", "",
         "ERROR", "", whole},
        // the window's end is the text's end for the word boundary
        {"012345678901234567890123456789012345678901234567890123456789012345678901234 INFORMATION",
         "", "INFO", "", whole},
        // tags of 24 and 25 characters, an empty tag
        {"[abcdefghijklmnopqrstuvwx] m", "", "", "abcdefghijklmnopqrstuvwx", "m"},
        {"[abcdefghijklmnopqrstuvwxy] m", "", "", "", whole},
        {"[] m", "", "", "", "m"},
        {"[]  svc: m", "", "", "svc", "m"},
        // prefixes of 40 and 41 characters, and one with a space
        {"abcdefghijklmnopqrstuvwxyzabcdefghijklmn: m", "", "",
         "abcdefghijklmnopqrstuvwxyzabcdefghijklmn", "m"},
        {"abcdefghijklmnopqrstuvwxyzabcdefghijklmno: m", "", "", "", whole},
        {"a b: c", "", "", "", whole},
        {": c", "", "", "", whole},
        // a comma before the fraction ends the stamp at the seconds
        {"2024-05-01 10:00:00,123 INFO x", "2024-05-01 10:00:00", "INFO", "", ",123 INFO x"},
        {"2024-05-01T10:00:00+05:30 x", "2024-05-01T10:00:00+05:30", "", "", "x"},
        {"2024-05-01T10:00:00+05:3x y", "2024-05-01T10:00:00", "", "", "+05:3x y"},
        {"2024-05-01T10:00:00. x", "2024-05-01T10:00:00", "", "", ". x"},
        {"2024-05-01T10:00:00] x", "2024-05-01T10:00:00", "", "", "x"},
        {"[2024-05-01T10:00 x", "", "", "", whole},
        // a line feed inside a plain line becomes a space
        {"svc: a\nb", "", "", "svc", "a b"},
        // Unicode digits are digits, and a letter before a level word joins it
        {"\u0662\u0660\u0662\u0664-05-01 10:00:00 x", "\u0662\u0660\u0662\u0664-05-01 10:00:00", "",
         "", "x"},
        {"\u00e9ERROR x", "", "", "", whole},
        {"\u00e9 ERROR x", "", "ERROR", "", "x"},
        // limits count code points: an emoji is one character
        {"[\U0001F600bcdefghijklmnopqrstuvwx] m", "", "", "\U0001F600bcdefghijklmnopqrstuvwx", "m"},
        {"\U0001F600 INFO x", "", "INFO", "", "x"},
        // non-breaking spaces are blanks and white space
        {"\u00a0[svc]\u00a0 x\u00a0", "", "", "svc", "x"},
    };
    for (const Case& c : cases) expectRow(c);
}

TEST(LogParser, JsonEdges) {
    const Case cases[] = {
        // first key that gives a value; null, objects and arrays give none
        {R"({"time":{"a":1},"@timestamp":"t","severity":[1],"level":null,"lvl":"notice"})", "t",
         "NOTICE", "", whole},
        // an empty string is a value: the next key is not tried
        {R"({"message":"","msg":"x"})", "", "", "", whole},
        {R"({"ts":"","time":"t","msg":"m"})", "", "", "", "m"},
        // booleans are 1 and 0, numbers keep their digits
        {R"({"time":true,"level":false,"source":-12,"msg":"m"})", "1", "0", "-12", "m"},
        {R"({"ts":1.5,"msg":"m"})", "1.5", "", "", "m"},
        {R"({"ts":1e3,"msg":"m"})", "1000", "", "", "m"},
        {R"({"ts":-0,"msg":"m"})", "0", "", "", "m"},
        // the nested message: only a string, only when no top-level text
        {R"({"fields":{"message":7},"level":"INFO"})", "", "INFO", "", whole},
        {R"({"msg":"top","fields":{"message":"nested"}})", "", "", "", "top"},
        {R"({"fields":{"message":"a"},"fields":{"other":1}})", "", "", "", whole},
        // the last of duplicate keys wins
        {R"({"msg":"a","msg":"b"})", "", "", "", "b"},
        {R"({"msg":"a","msg":null,"body":"c"})", "", "", "", "c"},
        // escapes are decoded; a line break stays a line break in JSON
        {R"({"msg":"say \"hi\"\nbye \u00e9\/"})", "", "", "", "say \"hi\"\nbye \u00e9/"},
        {R"({"m\u0073g":"escaped key"})", "", "", "", "escaped key"},
        // a top-level array, trailing text, overflow and bad syntax are plain text
        {R"({"msg":"x"} tail)", "", "", "", whole},
        {R"({"msg":1e400})", "", "", "", whole},
        {R"({"msg":"x",})", "", "", "", whole},
        {R"({"level":"info" "msg":"x"})", "", "INFO", "", whole},
        // any other level word arrives upper-cased, Unicode included
        {R"({"level":"stra\u00dfe"})", "", "STRASSE", "", whole},
        // a level word with a space after it is another word
        {R"({"level":"warn "})", "", "WARN ", "", whole},
        {R"({"level":"err  "})", "", "ERR  ", "", whole},
        // colour codes are removed before the JSON is read
        {"\x1b[1m{\"msg\":\"x\"}\x1b[0m", "", "", "", "x"},
    };
    for (const Case& c : cases) expectRow(c);
}

// A parser keeps the layouts of the JSON lines it read: a line laid out as
// one before must still read exactly as it reads alone.
TEST(LogParser, JsonLinesSharingALayoutReadAsEachAlone) {
    const char* lines[] = {
        R"({"ts":1,"level":7,"ok":true,"msg":"a"})",
        // numbers whose text only Qt gives
        R"({"ts":2,"level":7.50,"ok":false,"msg":"b"})",
        R"({"ts":3,"level":-0,"ok":true,"msg":"c"})",
        R"({"ts":4,"level":8,"ok":true,"msg":"say \"hi\" \u00e9"})",
        R"({"ts":5,"level":8,"ok":true,"msg":"\ud83d\ude00"})",
        "{\"ts\":6,\"level\":8,\"ok\":true,\"msg\":\"\xEF\xBB\xBFmark\"}",
        // the same bytes up to where they part
        R"({"ts":7,"level":8,"ok":true,"msg":"d","msg":"e"})",
        R"({"ts":8,"level":8,"ok":true,"msg":5})",
        R"({"ts":9,"level":8,"ok":nul,"msg":"f"})",
        R"({"ts":10,"level":8,"ok":true,"msg":"g"}})",
        R"({"ts":11,"level":8,"ok":true,"msg":"h\"})",
        R"({"ts":1e3,"level":8,"ok":true,"msg":"i"})",
        R"({"ts":12,"level":"x","ok":true,"msg":"","fields":{"message":"n"}})",
        R"({"ts":13,"level":"y","ok":true,"msg":"j","fields":{"message":"n"}})",
    };
    LogParser::Parser kept;
    for (const char* text : lines) {
        const QString line = QString::fromUtf8(text);
        EXPECT_EQ(LogParser::parse(line, kept), LogParser::parseReference(line)) << text;
    }
}

TEST(LogParser, StripsColourAndReadsLoneSurrogatesAsReplacements) {
    EXPECT_EQ(LogParser::stripANSI(u"\x1b[1;31mred\x1b[0m \x1b[x \x1b[12"), u"red  \x1b[12");

    const QString broken = QStringLiteral("INFO a") + QChar(0xD800) + QStringLiteral(" b");
    const LogRow row = LogParser::parse(broken);
    EXPECT_EQ(row, LogParser::parseReference(broken));
    EXPECT_EQ(row.level, u"INFO");
    EXPECT_EQ(row.message, QStringLiteral("a\uFFFD b"));
}
