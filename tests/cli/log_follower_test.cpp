#include "cli/log_follower.h"

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::cli;
using Kind = FollowStep::Kind;

namespace {

LogTail tail(const QString& text, bool truncated = false) {
    return {text, truncated, {}};
}

LogTail failure(const QString& error) {
    return {{}, false, error};
}

QStringList messages(const FollowStep& step) {
    QStringList out;
    for (const FollowItem& item : step.items)
        out << (item.kind == FollowItem::Kind::continuation ? "+" : "") + item.row.message;
    return out;
}

const QString head = QStringLiteral(
    "2024-05-01 10:00:00 INFO one\n"
    "2024-05-01 10:00:01 ERROR two\n");

TEST(LogFollower, PrintsOnlyWhatIsNewAndPassesTheFilter) {
    LogFollower follower(QStringLiteral("ERROR"), {});
    FollowStep step = follower.start(tail(head));
    EXPECT_EQ(step.kind, Kind::restart);
    EXPECT_EQ(messages(step), QStringList{"two"});
    EXPECT_EQ(step.shown, 1);
    EXPECT_EQ(step.total, 2);

    EXPECT_EQ(follower.update(tail(head), false).kind, Kind::nothing);

    step = follower.update(tail(head + "2024-05-01 10:00:02 ERROR three\n"
                                       "2024-05-01 10:00:03 INFO four\n"
                                       "2024-05-01 10:00:04 ERROR five\n"),
                           false);
    EXPECT_EQ(step.kind, Kind::grown);
    EXPECT_EQ(messages(step), QStringList({"three", "five"}));
}

TEST(LogFollower, LinesFoldedIntoAPrintedRowComeAsAContinuation) {
    LogFollower follower(QStringLiteral("All levels"), {});
    follower.start(tail(head));
    const FollowStep step = follower.update(
        tail(head + "    at tls.Handshake(conn:12)\n    at net.Dial(dial:7)\n"), false);
    ASSERT_EQ(step.items.size(), 1);
    EXPECT_EQ(step.items[0].kind, FollowItem::Kind::continuation);
    EXPECT_EQ(step.items[0].row.message,
              QStringLiteral("at tls.Handshake(conn:12)  \u27F6  at net.Dial(dial:7)"));
    EXPECT_EQ(step.items[0].row.raw,
              QStringLiteral("    at tls.Handshake(conn:12)\n    at net.Dial(dial:7)"));

    // The next time-stamped row is a row again, and nothing is repeated.
    EXPECT_EQ(messages(follower.update(tail(head + "    at tls.Handshake(conn:12)\n"
                                                   "    at net.Dial(dial:7)\n"
                                                   "2024-05-01 10:00:09 INFO next\n"),
                                       false)),
              QStringList{"next"});
}

TEST(LogFollower, ARowThatChangedIsPrintedWholeWhenItWasNotOrCannotBeContinued) {
    // Hidden by the search until a folded line brings the word in: then it is shown whole.
    LogFollower searching(QStringLiteral("All levels"), QStringLiteral("dial"));
    EXPECT_TRUE(searching.start(tail(head)).items.isEmpty());
    EXPECT_EQ(messages(searching.update(tail(head + "    at net.Dial(dial:7)\n"), false)),
              QStringList{QStringLiteral("two  \u27F6  at net.Dial(dial:7)")});

    // Caught half-written: the finished line replaces nothing, so it is printed again.
    LogFollower follower(QStringLiteral("All levels"), {});
    EXPECT_EQ(messages(follower.start(tail(head + "2024-05-01 10:00:02 WARN thr"))),
              QStringList({"one", "two", "thr"}));
    EXPECT_EQ(messages(follower.update(tail(head + "2024-05-01 10:00:02 WARN three\n"), false)),
              QStringList{"three"});
}

TEST(LogFollower, ASlidingTailIsFollowedAndAnythingElseStartsOver) {
    LogFollower follower(QStringLiteral("All levels"), {});
    follower.start(tail(head + "2024-05-01 10:00:02 INFO three\n", true));
    // The window moved past "one": only "four" is new.
    FollowStep step = follower.update(tail("2024-05-01 10:00:01 ERROR two\n"
                                           "2024-05-01 10:00:02 INFO three\n"
                                           "2024-05-01 10:00:03 INFO four\n",
                                           true),
                                      false);
    EXPECT_EQ(step.kind, Kind::grown);
    EXPECT_EQ(messages(step), QStringList{"four"});

    // Text that does not continue the old one, or a file said to be replaced: all of it again.
    step = follower.update(tail(QStringLiteral("2024-05-02 00:00:00 INFO fresh\n")), false);
    EXPECT_EQ(step.kind, Kind::restart);
    EXPECT_EQ(messages(step), QStringList{"fresh"});
    step = follower.update(tail(QStringLiteral("2024-05-02 00:00:00 INFO fresh\n")), true);
    EXPECT_EQ(step.kind, Kind::restart);
    EXPECT_EQ(messages(step), QStringList{"fresh"});
}

TEST(LogFollower, AnUnreadableLogWarnsOnceAndIsReadAfreshWhenItReturns) {
    LogFollower follower(QStringLiteral("All levels"), {});
    const QString gone = QStringLiteral("Log file does not exist yet.");
    FollowStep step = follower.start(failure(gone));
    EXPECT_EQ(step.kind, Kind::failed);
    ASSERT_EQ(step.items.size(), 1);
    EXPECT_EQ(step.items[0].row, (LogRow{{}, QStringLiteral("WARN"), {}, gone, gone}));

    EXPECT_EQ(follower.update(failure(gone), false).kind, Kind::nothing);
    step = follower.update(tail(head), false);
    EXPECT_EQ(step.kind, Kind::restart);
    EXPECT_EQ(messages(step), QStringList({"one", "two"}));
    EXPECT_EQ(follower.update(failure(gone), false).kind, Kind::failed);

    // The warning row obeys the level choice like any other.
    LogFollower errorsOnly(QStringLiteral("ERROR"), {});
    EXPECT_TRUE(errorsOnly.start(failure(gone)).items.isEmpty());
}

}  // namespace
