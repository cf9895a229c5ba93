#include "status/status_history.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "platform/user_folders.h"
#include "status/health_summary.h"
#include "update/version.h"

namespace varnel {

namespace {

const QString overallWhat = QStringLiteral("overall");
const QString serviceWhat = QStringLiteral("service");
const QString certificatesWhat = QStringLiteral("certificates");
const QString latestVersionWhat = QStringLiteral("latestVersion");

// Versions and certificate details come from the suite's files: a line stays a
// line of reasonable length whatever they hold.
QString bounded(const QString& text) {
    constexpr qsizetype kMax = 160;
    return text.size() <= kMax ? text : text.left(kMax - 1) + QChar(0x2026);
}

// The state line of the service's submenu: "Running — pid 812".
QString serviceDetail(const ServiceStatus& status) {
    QString detail = label(status.health);
    if (!status.extra.isEmpty()) detail += QStringLiteral(" — ") + status.extra;
    return detail;
}

QString versionDetail(const WatchedState& state) {
    if (versionIsNewer(state.latestVersion, state.installedVersion))
        return QStringLiteral("Update available → ") + state.latestVersion;
    return QStringLiteral("Up to date (latest %1)").arg(state.latestVersion);
}

// Quotes and escapes through Qt's own writer.
QByteArray jsonText(const QString& text) {
    const QByteArray array = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    return array.mid(1, array.size() - 2);
}

}  // namespace

WatchedState watchedState(const SuiteProbe& probe, const std::optional<WatchedState>& before) {
    WatchedState state{probe.services, probe.certificates.health, probe.certificates.detail,
                       probe.installedVersion, probe.latestVersion};
    if (before) {
        if (state.latestVersion.isEmpty()) state.latestVersion = before->latestVersion;
        if (state.installedVersion.isEmpty()) state.installedVersion = before->installedVersion;
    }
    return state;
}

QList<HistoryRecord> historyChanges(const std::optional<WatchedState>& before,
                                    const WatchedState& now, const QDateTime& atUtc) {
    const bool start = !before;
    QList<HistoryRecord> records;
    const auto add = [&](const QString& what, const QString& service, const QString& from,
                         const QString& to, const QString& detail) {
        if (!start && from == to) return;
        records.append({atUtc, what, service, start ? QString() : bounded(from), bounded(to),
                        bounded(detail), start});
    };

    const auto overall = [](const WatchedState& state) {
        return caseName(overallHealth(state.services));
    };
    add(overallWhat, {}, start ? QString() : overall(*before), overall(now),
        tooltipText(now.services));
    for (const ServiceStatus& service : now.services) {
        QString from;
        if (before) {
            // A service the earlier probe did not have (never, with one catalogue) starts unknown.
            from = caseName(Health::unknown);
            for (const ServiceStatus& earlier : before->services)
                if (earlier.spec.key == service.spec.key) from = caseName(earlier.health);
        }
        add(serviceWhat, service.spec.key, from, caseName(service.health), serviceDetail(service));
    }
    add(certificatesWhat, {}, start ? QString() : caseName(before->certificates),
        caseName(now.certificates), now.certDetail);
    if (!now.latestVersion.isEmpty())
        add(latestVersionWhat, {}, start ? QString() : before->latestVersion, now.latestVersion,
            versionDetail(now));
    return records;
}

QString historyPath() {
    return userLogFolder() + QStringLiteral("/history.jsonl");
}

QString previousHistoryPath() {
    return historyPath() + QStringLiteral(".1");
}

// Written by hand, not through QJsonObject, to keep the keys in reading order.
QByteArray historyLine(const HistoryRecord& record) {
    QByteArray line = "{\"time\":" + jsonText(record.timeUtc.toUTC().toString(Qt::ISODateWithMs)) +
                      ",\"what\":" + jsonText(record.what);
    if (record.what == serviceWhat) line += ",\"service\":" + jsonText(record.service);
    line += ",\"from\":" + (record.start ? QByteArray("null") : jsonText(record.from)) +
            ",\"to\":" + jsonText(record.to) + ",\"detail\":" + jsonText(record.detail);
    if (record.start) line += ",\"start\":true";
    return line + "}\n";
}

HistoryText parseHistory(QByteArrayView text) {
    static const QStringList known{overallWhat, serviceWhat, certificatesWhat, latestVersionWhat};
    HistoryText out;
    qsizetype begin = 0;
    while (begin < text.size()) {
        qsizetype end = text.indexOf('\n', begin);
        if (end < 0) end = text.size();
        const QByteArrayView line = text.sliced(begin, end - begin);
        begin = end + 1;
        if (line.trimmed().isEmpty()) continue;

        const QJsonObject object = QJsonDocument::fromJson(line.toByteArray()).object();
        HistoryRecord record{
            QDateTime::fromString(object.value(QStringLiteral("time")).toString(),
                                  Qt::ISODateWithMs),
            object.value(QStringLiteral("what")).toString(),
            object.value(QStringLiteral("service")).toString(),
            object.value(QStringLiteral("from")).toString(),
            object.value(QStringLiteral("to")).toString(),
            object.value(QStringLiteral("detail")).toString(),
            object.value(QStringLiteral("start")).toBool(),
        };
        const bool valid = record.timeUtc.isValid() && known.contains(record.what) &&
                           object.value(QStringLiteral("to")).isString() &&
                           (record.what != serviceWhat || !record.service.isEmpty());
        if (!valid) {
            ++out.unreadable;
            continue;
        }
        record.timeUtc = record.timeUtc.toUTC();
        out.records.append(std::move(record));
    }
    return out;
}

}  // namespace varnel
