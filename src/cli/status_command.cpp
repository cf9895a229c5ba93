#include "cli/status_command.h"

#include "cli/log_output.h"
#include "cli/options.h"
#include "cli/terminal_text.h"

#include "status/health_summary.h"
#include "status/suite_probe.h"
#include "update/version.h"

namespace varnel::cli {

namespace {

const char* const statusUsage =
    "Usage: varnelctl status [--json]\n"
    "\n"
    "Probes the suite's services once and reports them with the installed and latest\n"
    "versions and the state of its CA certificates.\n"
    "\n"
    "Options:\n"
    "  --json         one JSON object instead of the text report\n"
    "  -h, --help     show this help\n"
    "\n"
    "Exit status: 0 running, 1 needs attention, 2 stopped, 3 unknown, 64 bad usage.\n";

struct Report {
    QList<ServiceStatus> services;
    QString installed;
    QString latest;
    CertStatus certificates;
    Health overall = Health::unknown;
    bool updateAvailable = false;
};

// The same probe as the tray's refresh.
Report gather() {
    const SuiteProbe probe = probeSuite();
    Report report;
    report.services = probe.services;
    report.installed = probe.installedVersion;
    report.latest = probe.latestVersion;
    report.certificates = probe.certificates;
    report.overall = overallHealth(report.services);
    report.updateAvailable = versionIsNewer(report.latest, report.installed);
    return report;
}

QString jsonHealth(Health health) {
    return QStringLiteral("\"health\": %1, \"label\": %2")
        .arg(jsonString(caseName(health)), jsonString(label(health)));
}

// Written by hand rather than through QJsonObject, which would sort the keys:
// people read this too, and the documented order puts the verdict first.
QString toJson(const Report& report) {
    QStringList services;
    for (const ServiceStatus& s : report.services)
        services.append(QStringLiteral("{\"key\": %1, \"title\": %2, %3, \"extra\": %4}")
                            .arg(jsonString(s.spec.key), jsonString(s.spec.title),
                                 jsonHealth(s.health), jsonString(s.extra)));
    return QStringLiteral(
               "{\"overall\": {%1}, \"tooltip\": %2, \"services\": [%3], "
               "\"installedVersion\": %4, \"latestVersion\": %5, \"updateAvailable\": %6, "
               "\"certificates\": {%7, \"detail\": %8}}\n")
        .arg(jsonHealth(report.overall), jsonString(tooltipText(report.services)),
             services.join(QStringLiteral(", ")), jsonString(report.installed),
             jsonString(report.latest),
             report.updateAvailable ? QStringLiteral("true") : QStringLiteral("false"),
             jsonHealth(report.certificates.health), jsonString(report.certificates.detail));
}

QString versionLine(const Report& report) {
    const QString installed =
        report.installed.isEmpty() ? QStringLiteral("unknown") : report.installed;
    if (report.updateAvailable)
        return installed + QStringLiteral(", update available → ") + report.latest;
    if (report.latest.isEmpty()) return installed + QStringLiteral(" (latest unknown)");
    return installed + QStringLiteral(", up to date (latest ") + report.latest + u')';
}

qsizetype widest(const QStringList& texts) {
    qsizetype width = 0;
    for (const QString& text : texts) width = std::max(width, text.size());
    return width;
}

// The texts the suite's files and tools gave, as a terminal can show them: a
// line feed in a version must not forge a line of the report.
Report forTerminal(Report report) {
    report.installed = terminalSafe(report.installed);
    report.latest = terminalSafe(report.latest);
    report.certificates.detail = terminalSafe(report.certificates.detail);
    for (ServiceStatus& s : report.services) {
        s.spec.title = terminalSafe(s.spec.title);
        s.extra = terminalSafe(s.extra);
    }
    return report;
}

QString toText(const Report& report) {
    const qsizetype up =
        std::count_if(report.services.begin(), report.services.end(),
                      [](const ServiceStatus& s) { return s.health == Health::running; });
    QStringList lines;
    lines << QStringLiteral("Status        %1 (%2/%3 up)")
                 .arg(label(report.overall))
                 .arg(up)
                 .arg(report.services.size());
    lines << QStringLiteral("Version       ") + versionLine(report);
    lines << QStringLiteral("Certificates  %1 · %2")
                 .arg(label(report.certificates.health), report.certificates.detail);
    lines << QString();

    QStringList titles;
    QStringList labels;
    for (const ServiceStatus& s : report.services) {
        titles << s.spec.title;
        labels << label(s.health);
    }
    const qsizetype titleWidth = widest(titles);
    const qsizetype labelWidth = widest(labels);
    for (const ServiceStatus& s : report.services) {
        QString line = QStringLiteral("  ") + s.spec.title.leftJustified(titleWidth) +
                       QStringLiteral("  ") + label(s.health).leftJustified(labelWidth) +
                       QStringLiteral("  ") + s.extra;
        lines << line.trimmed().prepend(QStringLiteral("  "));
    }
    return lines.join(u'\n') + u'\n';
}

int exitStatus(Health overall) {
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

}  // namespace

int statusCommand(const QStringList& args, Io& io) {
    Options options(QStringLiteral("status"), statusUsage);
    options.flag(QStringLiteral("json"));
    if (const auto stop = options.parse(args, io)) return *stop;
    if (!options.positional().isEmpty())
        return options.usageError(io, QStringLiteral("status takes no arguments"));
    const bool json = options.isSet(QStringLiteral("json"));
    const Report report = gather();
    io.out << (json ? toJson(report) : toText(forTerminal(report)));
    if (!flushOut(io, "status")) return exitFailure;
    return exitStatus(report.overall);
}

}  // namespace varnel::cli
