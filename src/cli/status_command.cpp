#include "cli/status_command.h"

#include "cli/atomic_file.h"
#include "cli/options.h"
#include "cli/status_formats.h"
#include "cli/terminal_text.h"
#include "platform/sandbox.h"

namespace varnel::cli {

namespace {

const char* const statusUsage =
    "Usage: varnelctl status [--format FORMAT] [--output FILE]\n"
    "\n"
    "Probes the suite's services once and reports them with the installed and latest\n"
    "versions and the state of its CA certificates.\n"
    "\n"
    "Options:\n"
    "  --format FORMAT  text (the default), json, nagios, jamf or prometheus\n"
    "  --json           the same as --format json\n"
    "  --output FILE    write FILE instead of standard output, replacing it whole\n"
    "                   (never half-written; mode 0644)\n"
    "  -h, --help       show this help\n"
    "\n"
    "Exit status: 0 running, 1 needs attention, 2 stopped, 3 unknown; 64 bad usage, 74\n"
    "the output could not be written. nagios: 3 for every problem of its own, never 64.\n"
    "jamf and prometheus: 0 whenever the probe ran and the output was written.\n";

constexpr int exitPluginUnknown = 3;

QString render(StatusFormat format, const StatusReport& report) {
    switch (format) {
        case StatusFormat::text:
            return statusText(report);
        case StatusFormat::json:
            return statusJson(report);
        case StatusFormat::nagios:
            return nagiosStatus(report);
        case StatusFormat::jamf:
            return jamfStatus(report);
        case StatusFormat::prometheus:
            break;
    }
    return prometheusStatus(report);
}

int exitStatus(StatusFormat format, Health overall) {
    if (format == StatusFormat::jamf || format == StatusFormat::prometheus) return exitOk;
    return healthExitStatus(overall);
}

// Picks the format, or says why not.
std::optional<StatusFormat> chosenFormat(const Options& options, QString& problem) {
    const bool json = options.isSet(QStringLiteral("json"));
    if (!options.isSet(QStringLiteral("format")))
        return json ? StatusFormat::json : StatusFormat::text;
    const QString name = options.value(QStringLiteral("format"));
    const auto format = statusFormat(name);
    if (!format)
        problem = QStringLiteral("unknown format \"%1\" (text, json, nagios, jamf or prometheus)")
                      .arg(terminalSafe(name));
    else if (json && *format != StatusFormat::json)
        problem = QStringLiteral("--json and --format %1 disagree").arg(name);
    return problem.isEmpty() ? format : std::nullopt;
}

}  // namespace

int statusCommand(const QStringList& args, Io& io) {
    Options options(QStringLiteral("status"), statusUsage);
    options.flag(QStringLiteral("json"));
    options.valued(QStringLiteral("format"), QStringLiteral("FORMAT"));
    options.valued(QStringLiteral("output"), QStringLiteral("FILE"));
    const auto stop = options.parse(args, io);
    // A monitoring system reads its plugin's standard output and maps every
    // status past 3 to a failure of its own, so the plugin answers in kind.
    const bool plugin = options.value(QStringLiteral("format")) == QStringLiteral("nagios");
    const auto pluginFailure = [&](const QString& why) {
        io.out << nagiosUnknown(why);
        io.out.flush();
        return exitPluginUnknown;
    };
    if (stop)
        return plugin && *stop != exitOk
                   ? pluginFailure(QStringLiteral("bad usage: ") + options.problem())
                   : *stop;

    QString problem;
    const auto format = chosenFormat(options, problem);
    if (problem.isEmpty() && !options.positional().isEmpty())
        problem = QStringLiteral("status takes no arguments");
    if (!problem.isEmpty()) {
        const int code = options.usageError(io, problem);
        return plugin ? pluginFailure(QStringLiteral("bad usage: ") + problem) : code;
    }
    if (const auto rootProblem = sandbox::rootProblem()) {
        io.err << "varnelctl: " << *rootProblem << '\n';
        return plugin ? pluginFailure(*rootProblem) : 2;
    }

    const StatusReport report = statusReport(probeSuite());
    const QString text = render(*format, report);
    const auto cannotWrite = [&](const QString& why) {
        reportLostOutput(io, "status", why);
        return plugin ? pluginFailure(QStringLiteral("cannot write the output: ") + why)
                      : exitCannotWrite;
    };
    if (options.isSet(QStringLiteral("output"))) {
        const QString path = options.value(QStringLiteral("output"));
        if (const auto why = replaceFile(path, text.toUtf8()))
            return cannotWrite(QStringLiteral("%1: %2").arg(terminalSafe(path), *why));
    } else {
        io.out << text;
        // Standard output itself is lost here: nothing more can be said on it.
        if (!flushOut(io, "status")) return plugin ? exitPluginUnknown : exitCannotWrite;
    }
    return exitStatus(*format, report.overall);
}

}  // namespace varnel::cli
