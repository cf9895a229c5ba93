#include "status/health_notifications.h"

#include <QStringList>

#include "status/health_summary.h"

namespace varnel {

namespace {

const QString overallKey = QStringLiteral("overall");
constexpr qint64 kMinimumGapMs = 60'000;
constexpr int kProbesToHold = 2;

bool isDown(Health health) {
    return health != Health::running;
}

// "Proxy", "Proxy and Agent", "Agent, Proxy and Network Extension".
QString names(const QStringList& titles) {
    if (titles.size() == 1) return titles.first();
    return titles.mid(0, titles.size() - 1).join(QStringLiteral(", ")) + QStringLiteral(" and ") +
           titles.last();
}

QString sentence(const QStringList& titles, Health health) {
    const bool one = titles.size() == 1;
    const auto verb = [&](const char* singular, const char* plural) {
        return QLatin1String(one ? singular : plural);
    };
    QString state;
    switch (health) {
        case Health::running:
            state = verb("is running again", "are running again");
            break;
        case Health::stopped:
            state = QStringLiteral("stopped");
            break;
        case Health::attention:
            state = verb("needs attention", "need attention");
            break;
        case Health::inactive:
            state = verb("is idle", "are idle");
            break;
        case Health::unknown:
            state = QStringLiteral("could not be checked");
            break;
    }
    return names(titles) + u' ' + state + u'.';
}

QString title(Health overall) {
    switch (overall) {
        case Health::running:
            return QStringLiteral("Varnel protection is back");
        case Health::stopped:
            return QStringLiteral("Varnel protection stopped");
        case Health::attention:
            return QStringLiteral("Varnel needs attention");
        case Health::inactive:
        case Health::unknown:
            break;
    }
    return QStringLiteral("Varnel status unknown");
}

// The services that changed, grouped by where they went, in the order of
// their states' first appearance; then what the user can do about it.
QString text(const QList<ServiceStatus>& told, Health overall) {
    QList<Health> order;
    for (const ServiceStatus& s : told)
        if (!order.contains(s.health)) order.append(s.health);
    QStringList sentences;
    int down = 0;
    for (const Health health : order) {
        QStringList titles;
        for (const ServiceStatus& s : told)
            if (s.health == health) titles << s.spec.title;
        sentences << sentence(titles, health);
        if (isDown(health)) down += int(titles.size());
    }
    if (down > 0)
        sentences << (down == 1 ? QStringLiteral("Open the Varnel menu to restart it.")
                                : QStringLiteral("Open the Varnel menu to restart them."));
    else if (told.isEmpty())
        sentences << (isDown(overall) ? QStringLiteral("Open the Varnel menu for details.")
                                      : QStringLiteral("All core services are running."));
    return sentences.join(u' ');
}

// Advances one subject; true when its change is to be told now.
bool advance(NotificationState::Subject& subject, Health now, const QDateTime& nowUtc) {
    if (now == subject.shown) {
        subject.pending = now;
        subject.seen = 0;
        return false;
    }
    subject.seen = now == subject.pending ? subject.seen + 1 : 1;
    subject.pending = now;
    if (subject.seen < kProbesToHold) return false;
    if (!isDown(now) && !subject.toldDown) {
        subject.shown = now;  // back from something nobody was told about
        return false;
    }
    if (subject.lastNotifiedUtc.isValid() &&
        subject.lastNotifiedUtc.msecsTo(nowUtc) < kMinimumGapMs)
        return false;
    subject.shown = now;
    subject.toldDown = isDown(now);
    subject.lastNotifiedUtc = nowUtc;
    subject.seen = 0;
    return true;
}

}  // namespace

NotificationStep decideNotification(const NotificationState& before,
                                    const QList<ServiceStatus>& probe, const QDateTime& nowUtc) {
    NotificationStep step{before, std::nullopt};
    auto& subjects = step.state.subjects;
    const auto observe = [&](const QString& key, Health health) {
        const auto [it, isNew] = subjects.try_emplace(key);
        if (isNew) {
            it->second.shown = it->second.pending = health;
            return false;
        }
        return advance(it->second, health, nowUtc);
    };

    const Health overall = overallHealth(probe);
    bool any = observe(overallKey, overall);
    QList<ServiceStatus> told;
    for (const ServiceStatus& service : probe) {
        if (!isCoreService(service.spec) || !observe(service.spec.key, service.health)) continue;
        told.append(service);
        any = true;
    }
    if (any) step.notification = HealthNotification{title(overall), text(told, overall)};
    return step;
}

}  // namespace varnel
