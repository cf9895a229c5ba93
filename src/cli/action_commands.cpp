#include "cli/action_commands.h"

#include "cli/options.h"
#include "monitor/catalogue.h"
#include "update/privileged_action.h"
#include "update/version.h"

namespace varnel::cli {

namespace {

constexpr int exitCancelled = 2;

const char* const restartUsage =
    "Usage: varnelctl restart LABEL\n"
    "\n"
    "Restarts a service of the suite as root, after an administrator approves.\n"
    "LABEL is a launchd label (com.varnel.agent, com.varnel.endpoint.updater,\n"
    "com.varnel.endpoint.watcher) or a service key (agent, proxy, ...); services\n"
    "without a label of their own are restarted through the agent.\n"
    "Exit status: 0 requested, 1 failed, 2 cancelled, 64 usage.\n";

const char* const updateUsage =
    "Usage: varnelctl update\n"
    "\n"
    "Starts the suite's updater now, after an administrator approves.\n"
    "Exit status: 0 started, 1 failed, 2 cancelled, 64 usage.\n";

// The launchd label to restart for a label or a service key, as the menu would.
std::optional<QString> restartTarget(const QString& word) {
    for (const ServiceSpec& spec : SERVICES) {
        if (spec.restartLabel && *spec.restartLabel == word) return word;
        if (spec.key == word) return spec.restartLabel.value_or(QStringLiteral("com.varnel.agent"));
    }
    return std::nullopt;
}

int report(ActionOutcome outcome, const QString& text, Io& io) {
    switch (outcome) {
        case ActionOutcome::succeeded:
            io.out << text << '\n';
            return exitOk;
        case ActionOutcome::failed:
            io.err << text << '\n';
            return exitFailure;
        case ActionOutcome::cancelled:
            break;
    }
    io.err << "Cancelled.\n";
    return exitCancelled;
}

}  // namespace

int restartCommand(const QStringList& args, Io& io) {
    Options options(QStringLiteral("restart"), restartUsage);
    if (const auto stop = options.parse(args, io)) return *stop;
    const QStringList words = options.positional();
    if (words.size() != 1)
        return options.usageError(io, QStringLiteral("restart takes one LABEL or KEY"));
    const std::optional<QString> label = restartTarget(words.first());
    if (!label)
        return options.usageError(io, QStringLiteral("unknown service \"%1\"").arg(words.first()));
    const ActionOutcome outcome = runWithAdministratorRights(restartRequest(*label));
    return report(outcome, restartReport(outcome, *label), io);
}

int updateCommand(const QStringList& args, Io& io) {
    Options options(QStringLiteral("update"), updateUsage);
    if (const auto stop = options.parse(args, io)) return *stop;
    if (!options.positional().isEmpty())
        return options.usageError(io, QStringLiteral("update takes no arguments"));
    const ActionOutcome outcome =
        runWithAdministratorRights(updateRequest(readInstalledVersion(), readLatestVersion()));
    return report(outcome, updateReport(outcome), io);
}

}  // namespace varnel::cli
