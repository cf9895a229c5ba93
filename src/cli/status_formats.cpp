#include "cli/status_formats.h"

#include <QStringList>
#include <algorithm>
#include <array>

#include "cli/log_output.h"
#include "cli/terminal_text.h"
#include "status/health_summary.h"
#include "status/suite_problems.h"
#include "update/version.h"

namespace varnel::cli {

namespace {

constexpr std::array allHealths = {Health::running, Health::stopped, Health::inactive,
                                   Health::attention, Health::unknown};

// ----- text and JSON: today's output, unchanged -----

QString jsonHealth(Health health) {
    return QStringLiteral("\"health\": %1, \"label\": %2")
        .arg(jsonString(caseName(health)), jsonString(label(health)));
}

QString jsonBool(bool value) {
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

QString versionLine(const StatusReport& report) {
    const QString& latest = report.probe.latestVersion;
    const QString installed = report.probe.installedVersion.isEmpty()
                                  ? QStringLiteral("unknown")
                                  : report.probe.installedVersion;
    if (report.updateAvailable) return installed + QStringLiteral(", update available → ") + latest;
    if (latest.isEmpty()) return installed + QStringLiteral(" (latest unknown)");
    return installed + QStringLiteral(", up to date (latest ") + latest + u')';
}

qsizetype widest(const QStringList& texts) {
    qsizetype width = 0;
    for (const QString& text : texts) width = std::max(width, text.size());
    return width;
}

// The texts the suite's files and tools gave, as a terminal can show them: a
// line feed in a version must not forge a line of the report.
StatusReport forTerminal(StatusReport report) {
    SuiteProbe& probe = report.probe;
    probe.installedVersion = terminalSafe(probe.installedVersion);
    probe.latestVersion = terminalSafe(probe.latestVersion);
    probe.certificates.detail = terminalSafe(probe.certificates.detail);
    for (ServiceStatus& s : probe.services) {
        s.spec.title = terminalSafe(s.spec.title);
        s.extra = terminalSafe(s.extra);
    }
    return report;
}

// ----- the fleet formats -----

// Texts from the suite's files end up inside other programs' syntax: the
// characters that syntax reserves, and line breaks, must not reach it.
QString withoutReserved(QString text, QStringView reserved, QChar instead) {
    for (QChar& c : text) {
        if (c.category() == QChar::Other_Control)
            c = u' ';
        else if (reserved.contains(c))
            c = instead;
    }
    return text;
}

QString number(double value, int decimals) {
    return QString::number(value, 'f', decimals);
}

QString perfDatum(const QString& label, const QString& value, const QString& unit,
                  const QString& max) {
    return QStringLiteral("%1=%2%3;;;0;%4").arg(label, value, unit, max);
}

QString promEscaped(const QString& value) {
    QString out;
    out.reserve(value.size());
    for (const QChar c : value) {
        if (c == u'\\')
            out += QStringLiteral("\\\\");
        else if (c == u'"')
            out += QStringLiteral("\\\"");
        else if (c == u'\n')
            out += QStringLiteral("\\n");
        else
            out += c;
    }
    return u'"' + out + u'"';
}

// A scrape refuses label values past its configured length, so a garbage
// version must not cost the whole scrape.
QString promVersion(const QString& version) {
    constexpr qsizetype kMax = 128;
    return promEscaped(version.size() <= kMax ? version : version.left(kMax - 1) + QChar(0x2026));
}

class Metrics {
public:
    void family(const char* name, const char* help) {
        name_ = QLatin1String(name);
        text_ += QStringLiteral("# HELP %1 %2\n# TYPE %1 gauge\n").arg(name_, QLatin1String(help));
    }
    void sample(const QString& value, const QString& labels = {}) {
        text_ +=
            name_ + (labels.isEmpty() ? QString() : u'{' + labels + u'}') + u' ' + value + u'\n';
    }
    void healthSet(Health current, const QString& firstLabels) {
        for (const Health h : allHealths)
            sample(h == current ? QStringLiteral("1") : QStringLiteral("0"),
                   firstLabels + QStringLiteral("health=") + promEscaped(caseName(h)));
    }
    QString text() const { return text_; }

private:
    QString name_;
    QString text_;
};

QString zeroOrOne(bool value) {
    return value ? QStringLiteral("1") : QStringLiteral("0");
}

}  // namespace

StatusReport statusReport(SuiteProbe probe) {
    StatusReport report;
    report.overall = overallHealth(probe.services);
    report.updateAvailable = versionIsNewer(probe.latestVersion, probe.installedVersion);
    report.probe = std::move(probe);
    report.preferences = readPreferences();
    return report;
}

std::optional<StatusFormat> statusFormat(const QString& name) {
    static const std::pair<const char*, StatusFormat> names[] = {
        {"text", StatusFormat::text},
        {"json", StatusFormat::json},
        {"nagios", StatusFormat::nagios},
        {"jamf", StatusFormat::jamf},
        {"prometheus", StatusFormat::prometheus},
    };
    for (const auto& [known, format] : names)
        if (name == QLatin1String(known)) return format;
    return std::nullopt;
}

int healthExitStatus(Health overall) {
    switch (overall) {
        case Health::running:
            return 0;
        case Health::attention:
            return 1;
        case Health::stopped:
            return 2;
        case Health::inactive:
        case Health::unknown:
            break;
    }
    return 3;
}

QString statusText(const StatusReport& report) {
    const StatusReport safe = forTerminal(report);
    const QList<ServiceStatus>& services = safe.probe.services;
    const CertStatus& certificates = safe.probe.certificates;
    const qsizetype up =
        std::count_if(services.begin(), services.end(),
                      [](const ServiceStatus& s) { return s.health == Health::running; });
    QStringList lines;
    lines << QStringLiteral("Status        %1 (%2/%3 up)")
                 .arg(label(safe.overall))
                 .arg(up)
                 .arg(services.size());
    lines << QStringLiteral("Version       ") + versionLine(safe);
    lines << QStringLiteral("Certificates  %1 · %2")
                 .arg(label(certificates.health), certificates.detail);
    lines << QString();

    QStringList titles;
    QStringList labels;
    for (const ServiceStatus& s : services) {
        titles << s.spec.title;
        labels << label(s.health);
    }
    const qsizetype titleWidth = widest(titles);
    const qsizetype labelWidth = widest(labels);
    for (const ServiceStatus& s : services) {
        QString line = QStringLiteral("  ") + s.spec.title.leftJustified(titleWidth) +
                       QStringLiteral("  ") + label(s.health).leftJustified(labelWidth) +
                       QStringLiteral("  ") + s.extra;
        lines << line.trimmed().prepend(QStringLiteral("  "));
    }
    return lines.join(u'\n') + u'\n';
}

// Written by hand rather than through QJsonObject, which would sort the keys:
// people read this too, and the documented order puts the verdict first.
QString statusJson(const StatusReport& report) {
    const SuiteProbe& probe = report.probe;
    QStringList services;
    for (const ServiceStatus& s : probe.services)
        services.append(QStringLiteral("{\"key\": %1, \"title\": %2, %3, \"extra\": %4}")
                            .arg(jsonString(s.spec.key), jsonString(s.spec.title),
                                 jsonHealth(s.health), jsonString(s.extra)));
    const auto preference = [](const Preference& p) {
        return QStringLiteral("{\"value\": %1, \"managed\": %2}")
            .arg(jsonBool(p.value), jsonBool(p.managed));
    };
    return QStringLiteral(
               "{\"overall\": {%1}, \"tooltip\": %2, \"services\": [%3], "
               "\"installedVersion\": %4, \"latestVersion\": %5, \"updateAvailable\": %6, "
               "\"certificates\": {%7, \"detail\": %8}, "
               "\"preferences\": {\"notifyOnHealthChange\": %9, \"historyEnabled\": %10}}\n")
        .arg(jsonHealth(report.overall), jsonString(tooltipText(probe.services)),
             services.join(QStringLiteral(", ")), jsonString(probe.installedVersion),
             jsonString(probe.latestVersion), jsonBool(report.updateAvailable),
             jsonHealth(probe.certificates.health), jsonString(probe.certificates.detail),
             preference(report.preferences.notifyOnHealthChange),
             preference(report.preferences.historyEnabled));
}

QString nagiosStatus(const StatusReport& report) {
    static const char* const states[] = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};
    const SuiteProblems problems = suiteProblems(report.probe);
    const QString summary =
        problems.none() ? QStringLiteral("%1, %2 of %3 services up")
                              .arg(label(report.overall))
                              .arg(problems.running)
                              .arg(problems.expected)
                        : label(report.overall) + QStringLiteral(": ") + problemLine(problems);
    const QString expected = QString::number(problems.expected);
    const QString deployed = QString::number(problems.deployed);
    const QStringList perfData = {
        perfDatum(QStringLiteral("services_running"), QString::number(problems.running), {},
                  expected),
        perfDatum(QStringLiteral("services_expected"), expected, {}, expected),
        perfDatum(QStringLiteral("certificates_trusted"),
                  QString::number(report.probe.certificates.trusted), {}, deployed),
        perfDatum(QStringLiteral("certificates_deployed"), deployed, {}, deployed),
        QStringLiteral("probe_duration=%1s;;;0").arg(number(report.probe.seconds, 3)),
    };
    QString out = QStringLiteral("VARNEL %1 - %2 | %3\n")
                      .arg(QLatin1String(states[healthExitStatus(report.overall)]),
                           withoutReserved(summary, u"|", u'/'), perfData.join(u' '));
    for (const ServiceStatus& s : problems.down) {
        QString line = s.spec.title + QStringLiteral(": ") + label(s.health);
        if (!s.extra.isEmpty()) line += QStringLiteral(" (") + s.extra + u')';
        out += withoutReserved(line, u"|", u'/') + u'\n';
    }
    return out;
}

QString nagiosUnknown(const QString& why) {
    return QStringLiteral("VARNEL UNKNOWN - ") + withoutReserved(why, u"|", u'/') + u'\n';
}

QString jamfStatus(const StatusReport& report) {
    const QString problems = problemLine(suiteProblems(report.probe));
    QString text = caseName(report.overall);
    if (!problems.isEmpty()) text += QStringLiteral(": ") + problems;
    return QStringLiteral("<result>") + withoutReserved(text, u"<>", u'_') +
           QStringLiteral("</result>\n");
}

QString prometheusStatus(const StatusReport& report) {
    const SuiteProbe& probe = report.probe;
    Metrics m;
    m.family("varnel_service_up",
             "Whether the service is running (1) or not (0); the scheduled updater is 0 "
             "between its runs.");
    for (const ServiceStatus& s : probe.services)
        m.sample(zeroOrOne(s.health == Health::running),
                 QStringLiteral("service=%1,label=%2")
                     .arg(promEscaped(s.spec.key), promEscaped(s.spec.title)));
    m.family("varnel_service_health",
             "The service's health as a state set: 1 for the current state, 0 for the others.");
    for (const ServiceStatus& s : probe.services)
        m.healthSet(s.health, QStringLiteral("service=%1,").arg(promEscaped(s.spec.key)));
    m.family("varnel_overall_health",
             "The suite's overall health as a state set: 1 for the current state, 0 for the "
             "others.");
    m.healthSet(report.overall, {});
    m.family("varnel_certificates_trusted", "Deployed CA certificates the system trusts for SSL.");
    m.sample(QString::number(probe.certificates.trusted));
    m.family("varnel_certificates_deployed", "CA certificates the suite has deployed.");
    m.sample(QString::number(probe.certificates.deployed));
    m.family("varnel_update_available",
             "Whether the latest version is newer than the installed one (1) or not (0).");
    m.sample(zeroOrOne(report.updateAvailable));
    m.family("varnel_build_info",
             "The installed and the latest version of the suite; empty when unknown.");
    m.sample(QStringLiteral("1"),
             QStringLiteral("installed=%1,latest=%2")
                 .arg(promVersion(probe.installedVersion), promVersion(probe.latestVersion)));
    m.family("varnel_probe_duration_seconds", "How long the probe took.");
    m.sample(number(probe.seconds, 6));
    m.family("varnel_last_probe_timestamp_seconds", "When the probe ended, in Unix time.");
    m.sample(number(double(probe.finishedUtc.toMSecsSinceEpoch()) / 1000.0, 3));
    return m.text();
}

}  // namespace varnel::cli
