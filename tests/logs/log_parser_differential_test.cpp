// The fast reading against the engines' reading, over realistic lines and over
// lines mutated with the characters where the two could part ways.
#include <gtest/gtest.h>

#include <random>

#include "logs/log_parser.h"
#include "logs/log_text.h"
#include "support/log_corpus.h"
#include "support/log_row_printer.h"

using namespace varnel;

namespace {

// Read alone and by a parser that read the lines before (and keeps their
// JSON layouts), a line must read as the engines read it.
::testing::AssertionResult sameRow(const QString& line, LogParser::Parser& kept) {
    const LogRow reference = LogParser::parseReference(line);
    for (const LogRow& fast : {LogParser::parse(line), LogParser::parse(line, kept)}) {
        if (fast == reference) continue;
        return ::testing::AssertionFailure()
               << "line: " << visibleText(line) << "\n fast: " << ::testing::PrintToString(fast)
               << "\n  ref: " << ::testing::PrintToString(reference);
    }
    return ::testing::AssertionSuccess();
}

QStringList mutationPieces() {
    // Separated by "|", which is not among them.
    QStringList pieces =
        QStringLiteral(
            "{|}|[|]|\"|:|: |,|\\|\\u|0|7|-|+|.|e|E| |\t|\n|\r|\x1b|\x1b[|\x1b[0m|m|;|T|Z"
            "|INFO|warning|err|CRITICAL|null|true|fals|msg|message|fields|level|ts|_|1e400"
            "|1.|.5|01|-0|12345678901234567|\\u00e9|\\ud83d|\\ude00|\\n|\\\"|\\x|  at |in "
            "|2024-05-01 10:00:00|2024-05-01T10:00:00.123+05:30|[svc]|[]")
            .split(u'|');
    const char16_t units[] = {0x00A0, 0x2028, 0x0661, 0x00E9, 0xD83D, 0xDE00, 0x0000,
                              0x0001, 0x017F, 0x212A, 0x0301, 0xFEFF, 0x0085, 0x0130,
                              0x3000, 0x1680, 0x000B, 0x00DF, 0xFFFE, 0xD7CE};
    for (char16_t u : units) pieces.append(QString(QChar(u)));
    pieces.append(QString::fromUtf8("\U0001F600"));
    pieces.append(QString::fromUtf8("\U0001D7CE"));  // a mathematical digit, outside the BMP
    return pieces;
}

}  // namespace

TEST(LogParserDifferential, RealisticLinesAgreeAndTakeTheShortcuts) {
    test_support::LogCorpus corpus(7);
    const QStringList lines = corpus.lines(3'000'000);
    qsizetype fast = 0;
    LogParser::Parser parser;
    LogParser::Parser kept;
    ByteStore side;
    for (const QString& line : lines) {
        ASSERT_TRUE(sameRow(line, kept));
        const QByteArray bytes = line.toUtf8();
        fast += parser.parse(QUtf8StringView(bytes), {false, true, true}, side).decidedFast;
    }
    // Only lines with text outside ASCII near a pattern need the engines.
    EXPECT_GT(double(fast) / double(lines.size()), 0.9);
}

TEST(LogParserDifferential, MutatedLinesAgree) {
    test_support::LogCorpus corpus(11);
    QStringList seeds = corpus.lines(200'000);
    seeds << "{}"
          << R"({"a":[1,{"b":null}],"msg":"x","level":1.25})"
          << "[INFO] x"
          << "a: b: c";
    const QStringList pieces = mutationPieces();
    LogParser::Parser kept;
    std::mt19937 rng(1234);
    auto pick = [&](qsizetype n) {
        return qsizetype(std::uniform_int_distribution<qsizetype>(0, n - 1)(rng));
    };
    for (int round = 0; round < 60'000; ++round) {
        QString line = seeds[pick(seeds.size())];
        if (line.size() > 400) line.truncate(400);
        const int edits = 1 + int(pick(4));
        for (int e = 0; e < edits; ++e) {
            const qsizetype at = pick(line.size() + 1);
            const qsizetype kind = pick(3);
            if (kind == 1)
                line.remove(at, 1 + pick(3));
            else if (kind == 0)
                line.insert(at, pieces[pick(pieces.size())]);
            else
                line.replace(at, 1, pieces[pick(pieces.size())]);
        }
        ASSERT_TRUE(sameRow(line, kept));
    }
}
