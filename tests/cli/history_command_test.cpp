#include <gtest/gtest.h>

#include <QDateTime>

#include "cli/varnelctl_process.h"
#include "support/sim_suite.h"

using varnel::test::Outcome;
using varnel::test::SimSuite;
using varnel::test::varnelctl;

TEST(HistoryCommand, PrintsWhatCanBeReadAsATableOrJsonLines) {
    SimSuite& sim = SimSuite::instance();
    sim.generate(QStringLiteral("empty"));
    const QStringList env{"XDG_STATE_HOME=/state", "TZ=UTC"};
    const auto run = [&](const QStringList& args) { return varnelctl(args, sim.root(), env); };
    EXPECT_TRUE(run({"history"}).err.contains("no history yet"));

    const QDateTime now = QDateTime::currentDateTimeUtc();
    const auto at = [&](qint64 ago) { return now.addSecs(-ago); };
    const auto line = [&](qint64 ago, const char* rest) {
        return "{\"time\":\"" + at(ago).toString(Qt::ISODateWithMs).toUtf8() + "\"," + rest + "}\n";
    };
    const char* overall =
        R"j("what":"overall","from":"attention","to":"stopped","detail":"Varnel — Stopped (5/9 up)")j";
    // The rotated file first; then damage: a foreign line and a write cut short.
    sim.writeFile("/state/varnel-status/history.jsonl.1",
                  line(7200, R"("what":"service","service":"proxy","from":null,"to":"running",)"
                             R"("detail":"Running","start":true)"));
    sim.writeFile("/state/varnel-status/history.jsonl",
                  line(600, R"("what":"service","service":"proxy","from":"running",)"
                            R"("to":"stopped","detail":"Stopped \u001b[2J")") +
                      "garbage\n" + line(60, overall) + "{\"time\":\"2026-");

    const Outcome proxy = run({"history", "--service", "proxy"});
    EXPECT_EQ(proxy.code, 0);
    const QString time = QStringLiteral("yyyy-MM-dd HH:mm:ss");
    EXPECT_EQ(proxy.out, at(7200).toString(time) + "  Proxy  at start: Running  Running\n" +
                             at(600).toString(time) +
                             "  Proxy  Running → Stopped  Stopped \u241B[2J\n");
    EXPECT_TRUE(proxy.err.contains("skipped 2 unreadable lines of")) << proxy.err.toStdString();

    const QStringList recent =
        run({"history", "--json", "--since", "30m"}).out.split('\n', Qt::SkipEmptyParts);
    ASSERT_EQ(recent.size(), 2);
    EXPECT_EQ(recent[1] + '\n', QString::fromUtf8(line(60, overall)));

    for (const QStringList& args :
         {QStringList{"history", "--since", "5x"}, QStringList{"history", "--service", "nope"},
          QStringList{"history", "extra"}})
        EXPECT_EQ(run(args).code, 64) << args.join(' ').toStdString();
}
