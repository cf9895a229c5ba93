#include <gtest/gtest.h>

#include "status/health_notifications.h"
#include "status/status_history.h"
#include "support/health_letters.h"

using namespace varnel;
using namespace varnel::letters;

namespace {

// The catalogue with agent, proxy and network extension as given, the rest running.
QList<ServiceStatus> services(Health agent, Health proxy, Health sysext) {
    const QList<Health> core{agent, proxy, sysext};  // the catalogue's first three
    QList<ServiceStatus> out;
    for (const ServiceSpec& spec : SERVICES) {
        const Health h = out.size() < core.size() ? core[out.size()] : R;
        out.append({spec, h, h == R ? QString() : QStringLiteral("not running")});
    }
    return out;
}

const QDateTime t0 = QDateTime(QDate(2026, 5, 1), QTime(12, 0), Qt::UTC);

}  // namespace

TEST(HealthNotifications, TellChangesThatHoldOnceAMinuteAndTogether) {
    const std::tuple<int, QList<ServiceStatus>, const char*, const char*> steps[] = {
        {0, services(S, R, R), nullptr, nullptr},   // found at start: not news
        {10, services(R, R, R), nullptr, nullptr},  // back from what nobody was told of
        {20, services(R, R, R), nullptr, nullptr},
        {30, services(R, S, R), nullptr, nullptr},  // one odd probe
        {40, services(R, R, R), nullptr, nullptr},
        {50, services(S, S, R), nullptr, nullptr},
        {60, services(S, S, R), "Varnel protection stopped",
         "Agent and Proxy stopped. Open the Varnel menu to restart them."},
        {70, services(S, S, R), nullptr, nullptr},  // told once
        {80, services(R, R, R), nullptr, nullptr},
        {90, services(R, R, R), nullptr, nullptr},  // held, but within a minute of the last
        {130, services(R, R, R), "Varnel protection is back", "Agent and Proxy are running again."},
        {140, services(R, R, A), nullptr, nullptr},
        // The overall change waits for its minute; the service's goes out.
        {150, services(R, R, A), "Varnel needs attention",
         "Network Extension needs attention. Open the Varnel menu to restart it."},
    };
    NotificationState state;
    for (const auto& [second, probe, title, text] : steps) {
        NotificationStep next = decideNotification(state, probe, t0.addSecs(second));
        EXPECT_EQ(next.notification,
                  title ? std::optional(HealthNotification{title, text}) : std::nullopt)
            << "at " << second << " s";
        state = std::move(next.state);
    }
}

TEST(StatusHistory, StartsOnceThenRecordsChangesAndReadsBackWhatIsValid) {
    SuiteProbe probe;
    probe.services = services(R, R, A);
    probe.installedVersion = "1.8.2";
    probe.latestVersion = "1.9.0";
    probe.certificates = {A, "2/3 trusted", 2, 3};
    const WatchedState first = watchedState(probe, std::nullopt);
    const QList<HistoryRecord> start = historyChanges(std::nullopt, first, t0);
    ASSERT_EQ(start.size(), 12);  // overall, nine services, certificates, latest version
    EXPECT_EQ(start[0],
              (HistoryRecord{
                  t0, "overall", {}, {}, "attention", "Varnel — Needs attention (8/9 up)", true}));
    EXPECT_EQ(start.last().detail, "Update available → 1.9.0");

    // The proxy stops while the latest version cannot be read: that is no news.
    probe.services = services(R, S, A);
    probe.latestVersion.clear();
    const WatchedState second = watchedState(probe, first);
    const QList<HistoryRecord> changes = historyChanges(first, second, t0.addMSecs(10'250));
    ASSERT_EQ(changes.size(), 2);
    EXPECT_EQ(historyLine(changes[1]),
              "{\"time\":\"2026-05-01T12:00:10.250Z\",\"what\":\"service\",\"service\":\"proxy\","
              "\"from\":\"running\",\"to\":\"stopped\",\"detail\":\"Stopped — not running\"}\n");
    probe.latestVersion = "2.0.0";
    const QList<HistoryRecord> update = historyChanges(second, watchedState(probe, second), t0);
    ASSERT_EQ(update.size(), 1);
    EXPECT_EQ(std::tuple(update[0].from, update[0].to), std::tuple("1.9.0", "2.0.0"));

    // Read back past damage: a foreign line, one without a time, a torn last write.
    QByteArray file;
    for (const HistoryRecord& record : start + changes) file += historyLine(record);
    file +=
        "not json\n{\"what\":\"overall\",\"to\":\"running\"}\n" + historyLine(update[0]).left(40);
    const HistoryText read = parseHistory(file);
    EXPECT_EQ(read.records, start + changes);
    EXPECT_EQ(read.unreadable, 3);
}
