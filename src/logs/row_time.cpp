#include "logs/row_time.h"

#include <QDateTime>
#include <QTimeZone>

namespace varnel {

namespace {

// Days from 1970-01-01 to a proleptic Gregorian date: the well-known civil-from-days
// inverse, exact for every year a log can carry.
qint64 daysFromCivil(qint64 y, unsigned m, unsigned d) {
    y -= m <= 2;
    const qint64 era = (y >= 0 ? y : y - 399) / 400;
    const auto yoe = unsigned(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + qint64(doe) - 719468;
}

bool leapYear(qint64 y) {
    return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
}

unsigned daysInMonth(qint64 y, unsigned m) {
    static constexpr unsigned kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return m == 2 && leapYear(y) ? 29 : kDays[m - 1];
}

// Reads `count` digits at `at`, moving past them.
bool digits(const char*& at, const char* end, int count, unsigned& value) {
    if (end - at < count) return false;
    value = 0;
    for (int i = 0; i < count; ++i) {
        const char c = at[i];
        if (c < '0' || c > '9') return false;
        value = value * 10 + unsigned(c - '0');
    }
    at += count;
    return true;
}

bool expect(const char*& at, const char* end, char c) {
    if (at == end || *at != c) return false;
    ++at;
    return true;
}

// An optional "." and digits, read as milliseconds (digits past the third count for nothing);
// false for a point with no digit after it.
bool fraction(const char*& at, const char* end, qint64& ms) {
    if (at == end || *at != '.') return true;
    const char* const start = ++at;
    qint64 scale = 100;
    for (; at != end && *at >= '0' && *at <= '9'; ++at) {
        ms += scale * qint64(*at - '0');
        scale /= 10;
    }
    return at != start;
}

// A run of digits, optionally with a fraction, read as seconds since the epoch whatever its unit.
std::optional<Instant> epochNumber(const char* at, const char* end) {
    qint64 whole = 0;
    int wholeDigits = 0;
    for (; at != end && *at >= '0' && *at <= '9'; ++at) {
        if (whole > (std::numeric_limits<qint64>::max() - 9) / 10) return std::nullopt;
        whole = whole * 10 + (*at - '0');
        ++wholeDigits;
    }
    if (wholeDigits == 0) return std::nullopt;
    qint64 fractionMs = 0;
    if (!fraction(at, end, fractionMs)) return std::nullopt;
    if (at != end) return std::nullopt;
    // Ten digits are seconds until the year 2286; more are finer units.
    if (wholeDigits <= 11) return whole * 1000 + fractionMs;
    if (wholeDigits <= 14) return whole;
    if (wholeDigits <= 17) return whole / 1000;
    return whole / 1'000'000;
}

}  // namespace

std::optional<Instant> InstantReader::operator()(QUtf8StringView time) {
    const char* at = time.data();
    const char* const end = at + time.size();
    if (time.isEmpty()) return std::nullopt;
    if (time.size() < 5 || at[4] != '-') return epochNumber(at, end);

    unsigned year, month, day, hour, minute, second;
    if (!digits(at, end, 4, year) || !expect(at, end, '-') || !digits(at, end, 2, month) ||
        !expect(at, end, '-') || !digits(at, end, 2, day))
        return std::nullopt;
    if (at == end || (*at != 'T' && *at != ' ')) return std::nullopt;
    ++at;
    if (!digits(at, end, 2, hour) || !expect(at, end, ':') || !digits(at, end, 2, minute) ||
        !expect(at, end, ':') || !digits(at, end, 2, second))
        return std::nullopt;
    // A leap second reads as the last millisecond before the next minute would be wrong; the
    // minute's end is close enough for ordering and filtering.
    if (month < 1 || month > 12 || day < 1 || day > daysInMonth(year, month) || hour > 23 ||
        minute > 59 || second > 60)
        return std::nullopt;
    qint64 ms = 0;
    if (!fraction(at, end, ms)) return std::nullopt;
    const qint64 wallMs = daysFromCivil(year, month, day) * kDayMs +
                          ((qint64(hour) * 60 + minute) * 60 + std::min(second, 59u)) * 1000 + ms;
    if (at == end) return wallMs - localOffsetMs(wallMs);
    if (*at == 'Z' && at + 1 == end) return wallMs;
    if (*at != '+' && *at != '-') return std::nullopt;
    const qint64 sign = *at++ == '-' ? -1 : 1;
    unsigned offsetHours, offsetMinutes;
    if (!digits(at, end, 2, offsetHours)) return std::nullopt;
    if (at != end && *at == ':') ++at;
    if (!digits(at, end, 2, offsetMinutes) || at != end || offsetHours > 23 || offsetMinutes > 59)
        return std::nullopt;
    return wallMs - sign * (qint64(offsetHours) * 60 + offsetMinutes) * 60'000;
}

namespace {

// Asks the system, which costs a look at the zone file each time: far more than a parse.
qint64 systemOffsetMs(qint64 localMs) {
    // Taken as UTC first to find the offset that applies near it, then asked again at the
    // instant that offset gives, which settles every hour but the one a clock change skips.
    const QDateTime guess = QDateTime::fromMSecsSinceEpoch(localMs, QTimeZone::utc());
    const QDateTime local(guess.date(), guess.time());
    return qint64(local.offsetFromUtc()) * 1000;
}

}  // namespace

qint64 InstantReader::localOffsetMs(qint64 localMs) {
    const qint64 hour = localMs / kHourMs;
    if (hour == cachedHour_) return cachedOffsetMs_;
    // Bounded: a hostile log could name a different hour on every line.
    if (offsetsByHour_.size() >= 4096) offsetsByHour_.clear();
    if (offsetsByDay_.size() >= 4096) offsetsByDay_.clear();
    const qint64 day = floorDiv(localMs, kDayMs);
    auto byDay = offsetsByDay_.constFind(day);
    if (byDay == offsetsByDay_.cend()) {
        // Clocks change at most once a day: a day that ends on the offset it began with had
        // that offset throughout.
        const qint64 begins = systemOffsetMs(day * kDayMs);
        const bool whole = begins == systemOffsetMs(day * kDayMs + kDayMs - 1);
        byDay = offsetsByDay_.insert(day, whole ? std::optional(begins) : std::nullopt);
    }
    if (*byDay) {
        cachedOffsetMs_ = **byDay;
    } else {
        auto byHour = offsetsByHour_.constFind(hour);
        if (byHour == offsetsByHour_.cend())
            byHour = offsetsByHour_.insert(hour, systemOffsetMs(localMs));
        cachedOffsetMs_ = *byHour;
    }
    cachedHour_ = hour;
    return cachedOffsetMs_;
}

QList<Instant> rowInstants(const LogRows& rows) {
    QList<Instant> instants;
    instants.reserve(rows.size());
    InstantReader read;
    Instant last = kNoInstant;
    for (qsizetype i = 0; i < rows.size(); ++i) {
        const QUtf8StringView time = rows[i].time;
        if (!time.isEmpty())
            if (const auto instant = read(time)) last = *instant;
        instants.append(last);
    }
    return instants;
}

}  // namespace varnel
