#pragma once

#include <QDateTime>
#include <QList>
#include <QString>
#include <map>
#include <optional>

#include "monitor/catalogue.h"

namespace varnel {

// What the notifications remember from probe to probe, for the overall health
// (under the key "overall") and each core service (under its own key).
struct NotificationState {
    struct Subject {
        Health shown = Health::unknown;    // what the user knows: found at start, or told
        Health pending = Health::unknown;  // another state seen lately, not yet told
        int seen = 0;                      // in how many probes in a row
        bool toldDown = false;             // the last notification said it went wrong
        QDateTime lastNotifiedUtc;

        bool operator==(const Subject&) const = default;
    };
    std::map<QString, Subject> subjects;

    bool operator==(const NotificationState&) const = default;
};

struct HealthNotification {
    QString title;
    QString text;

    bool operator==(const HealthNotification&) const = default;
};

struct NotificationStep {
    NotificationState state;
    std::optional<HealthNotification> notification;
};

// Whether a probe is news to the user. A change is told once it has held for
// two probes in a row, so one odd probe says nothing, and at most once a
// minute for each subject; a change that comes sooner waits for the minute to
// pass and is dropped if it goes away meanwhile. The state found at the first
// probe is told nothing, and neither is a recovery from a state the user was
// never told of. Whatever is due at one probe makes one notification.
NotificationStep decideNotification(const NotificationState& before,
                                    const QList<ServiceStatus>& probe, const QDateTime& nowUtc);

}  // namespace varnel
