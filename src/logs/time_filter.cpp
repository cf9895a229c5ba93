#include "logs/time_filter.h"

#include <algorithm>

namespace varnel {

namespace {

// By TimeChoice's order.
constexpr QStringView kTimeTitles[] = {u"All times", u"Last 5 minutes", u"Last hour", u"Last day",
                                       u"Range\u2026"};

}  // namespace

const QList<TimeChoice>& timeChoices() {
    static const QList<TimeChoice> choices = {TimeChoice::all, TimeChoice::last5Minutes,
                                              TimeChoice::lastHour, TimeChoice::lastDay,
                                              TimeChoice::range};
    return choices;
}

QStringView timeChoiceTitle(TimeChoice choice) {
    return kTimeTitles[int(choice)];
}

std::optional<TimeWindow> timeWindow(const TimeFilter& filter, Instant newest) {
    qint64 back = 0;
    switch (filter.choice) {
        case TimeChoice::all:
            return std::nullopt;
        case TimeChoice::range:
            return TimeWindow{std::min(filter.rangeFrom, filter.rangeTo),
                              std::max(filter.rangeFrom, filter.rangeTo)};
        case TimeChoice::last5Minutes:
            back = 5 * kMinuteMs;
            break;
        case TimeChoice::lastHour:
            back = 60 * kMinuteMs;
            break;
        case TimeChoice::lastDay:
            back = kMinuteMs * 60 * 24;
            break;
    }
    // An empty window: no row carries an instant, so no row can be in the last anything.
    if (newest == kNoInstant) return TimeWindow{kNoInstant + 1, kNoInstant + 1};
    return TimeWindow{newest - back, newest};
}

Instant newestInstant(const QList<Instant>& instants) {
    // kNoInstant is the smallest value, so it loses to any real instant.
    return instants.isEmpty() ? kNoInstant : *std::max_element(instants.cbegin(), instants.cend());
}

QList<qsizetype> filterRows(const LogRows& rows, const QList<Instant>& instants,
                            const RowFilter& filter, const std::optional<TimeWindow>& window,
                            qsizetype from, qsizetype to) {
    QList<qsizetype> shown = filterRows(rows, filter, from, to);
    if (!window) return shown;
    // Narrowing afterwards keeps the level and search pass as it is; the time test is one
    // comparison pair per row that passed.
    const auto outside = [&](qsizetype index) {
        const Instant at = instants.value(index, kNoInstant);
        return at == kNoInstant || at < window->from || at > window->to;
    };
    shown.erase(std::remove_if(shown.begin(), shown.end(), outside), shown.end());
    return shown;
}

void followInstants(QList<Instant>& instants, const LogRows& rows, const LogFollowChange& change) {
    if (change.kind == LogFollowChange::Kind::nothing) return;
    if (change.kind == LogFollowChange::Kind::reloaded) {
        instants = rowInstants(rows);
        return;
    }
    // A fold adds lines to the last row but never changes its time, so only the front and the
    // end need reading.
    const qsizetype kept = instants.size() - std::min(change.dropped, instants.size());
    instants.remove(0, instants.size() - kept);
    instants.insert(0, change.rederived, kNoInstant);
    InstantReader read;
    const auto own = [&](qsizetype i) -> std::optional<Instant> {
        const QUtf8StringView time = rows[i].time;
        return time.isEmpty() ? std::nullopt : read(time);
    };
    // Rows at the new front carried a dropped row's instant; they carry nothing now, up to the
    // first row with a time of its own.
    Instant last = kNoInstant;
    for (qsizetype i = 0; i < instants.size(); ++i) {
        const std::optional<Instant> at = own(i);
        if (at && i >= change.rederived) break;
        if (at) last = *at;
        instants[i] = last;
    }
    last = instants.isEmpty() ? kNoInstant : instants.last();
    for (qsizetype i = instants.size(); i < rows.size(); ++i) {
        if (const std::optional<Instant> at = own(i)) last = *at;
        instants.append(last);
    }
}

}  // namespace varnel
