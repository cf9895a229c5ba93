#include "cli/log_follower.h"

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::cli;
using Kind = FollowStep::Kind;

namespace {

LogTail tail(const QString& text, bool truncated = false) {
    return {text, truncated, {}};
}

// The messages printed, a continuation marked with "+".
QStringList printed(const FollowStep& step) {
    QStringList out;
    for (const FollowItem& item : step.items)
        out << (item.kind == FollowItem::Kind::continuation ? "+" : "") + item.row.message;
    return out;
}

const QString head =
    QStringLiteral("2024-05-01 10:00:00 INFO one\n2024-05-01 10:00:01 ERROR two\n");

TEST(LogFollower, APrintedRowThatGrowsGetsAContinuationOrIsPrintedAgainWhole) {
    LogFollower follower(QStringLiteral("All levels"), {});
    EXPECT_EQ(printed(follower.start(tail(head))), QStringList({"one", "two"}));
    const FollowStep step = follower.update(tail(head + "    at a(x:1)\n    at b(y:2)\n"), false);
    EXPECT_EQ(printed(step), QStringList{QStringLiteral("+at a(x:1)  \u27F6  at b(y:2)")});
    EXPECT_EQ(step.items[0].row.raw, QStringLiteral("    at a(x:1)\n    at b(y:2)"));

    // Caught half-written, then finished: printed again.
    const QString more = head + "    at a(x:1)\n    at b(y:2)\n2024-05-01 10:00:02 WARN thr";
    EXPECT_EQ(printed(follower.update(tail(more), false)), QStringList{"thr"});
    EXPECT_EQ(printed(follower.update(tail(more + "ee\n"), false)), QStringList{"three"});
    EXPECT_EQ(follower.update(tail(more + "ee\n"), false).kind, Kind::nothing);

    // A row the search hid until a folded line brought the word in is printed whole.
    LogFollower searching(QStringLiteral("ERROR"), QStringLiteral("DIAL"));
    EXPECT_TRUE(searching.start(tail(head)).items.isEmpty());
    EXPECT_EQ(printed(searching.update(tail(head + "    at net.Dial\n"), false)),
              QStringList{QStringLiteral("two  \u27F6  at net.Dial")});
}

TEST(LogFollower, ASlidingTailIsFollowedAndAnythingElseStartsOver) {
    LogFollower follower(QStringLiteral("All levels"), {});
    follower.start(tail(head + "2024-05-01 10:00:02 INFO three\n", true));
    const QString slid = QStringLiteral(
        "2024-05-01 10:00:01 ERROR two\n2024-05-01 10:00:02 INFO three\n"
        "2024-05-01 10:00:03 INFO four\n");
    FollowStep step = follower.update(tail(slid, true), false);
    EXPECT_EQ(step.kind, Kind::grown);
    EXPECT_EQ(printed(step), QStringList{"four"});
    const QString fresh = QStringLiteral("2024-05-02 00:00:00 INFO fresh\n");
    step = follower.update(tail(fresh), false);
    EXPECT_EQ(step.kind, Kind::restart);
    EXPECT_EQ(printed(step), QStringList{"fresh"});
    EXPECT_EQ(follower.update(tail(fresh), true).kind, Kind::restart);

    // Unreadable: the warning row once; readable again: everything afresh.
    const LogTail gone{{}, false, QStringLiteral("Log file does not exist yet.")};
    EXPECT_EQ(printed(follower.update(gone, false)), QStringList{*gone.error});
    EXPECT_EQ(follower.update(gone, false).kind, Kind::nothing);
    EXPECT_EQ(printed(follower.update(tail(head), false)), QStringList({"one", "two"}));
}

}  // namespace
