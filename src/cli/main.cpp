#include <unistd.h>

#include <QCoreApplication>
#include <QTextStream>
#include <cstdio>
#include <optional>

#include "cli/action_commands.h"
#include "cli/cli_io.h"
#include "cli/diagnose_command.h"
#include "cli/history_command.h"
#include "cli/logs_command.h"
#include "cli/status_command.h"
#include "platform/sandbox.h"

namespace {

using namespace varnel::cli;

const char* const usage =
    "Usage: varnelctl COMMAND [OPTIONS]\n"
    "\n"
    "The Varnel endpoint suite's status, from a terminal or a script.\n"
    "\n"
    "Commands:\n"
    "  status         probe the services, versions and certificates once, as text, JSON\n"
    "                 or for monitoring, inventory and metrics (--format); exit 0\n"
    "                 running, 1 needs attention, 2 stopped, 3 unknown\n"
    "  logs           list the suite's logs, show one of them, or take log lines apart\n"
    "  restart LABEL  restart a service (administrator approval)\n"
    "  update         start the suite's updater now (administrator approval)\n"
    "  history        the status changes Varnel Status has seen, oldest first\n"
    "  diagnose       write a support bundle (.tar.gz) and print its path\n"
    "\n"
    "Options:\n"
    "  -h, --help     show this help (COMMAND --help for a command's own)\n"
    "\n"
    "Environment:\n"
    "  VARNEL_ROOT    look the whole suite up under this directory (a simulated suite)\n";

struct Command {
    const char* name;
    int (*run)(const QStringList& args, Io& io);
    bool checksRoot = false;  // reports a bad sandbox root in its own output format
    // Tools, threads that report back and settings need the application
    // object; the logs only read files and write the standard streams, and a
    // log command started in a loop should not pay for setting it up.
    bool needsApplication = true;
};

const Command commands[] = {
    {"status", statusCommand, true},
    {.name = "logs", .run = logsCommand, .needsApplication = false},
    {"restart", restartCommand},
    {"update", updateCommand},
    {"diagnose", diagnoseCommand},
    {"history", historyCommand},
};

}  // namespace

int main(int argc, char** argv) {
    QTextStream out(stdout);
    QTextStream err(stderr);
    const auto rootProblem = varnel::sandbox::rootProblem();
    Io io{out, err, ::isatty(STDOUT_FILENO) == 1};

    QStringList args;
    for (int i = 1; i < argc; ++i) args.append(QString::fromLocal8Bit(argv[i]));
    if (args.isEmpty() || args.first() == QStringLiteral("--help") ||
        args.first() == QStringLiteral("-h")) {
        (args.isEmpty() ? err : out) << usage;
        return args.isEmpty() ? exitUsage : exitOk;
    }
    const QString name = args.takeFirst();
    for (const Command& command : commands) {
        if (name != QLatin1String(command.name)) continue;
        if (rootProblem && !command.checksRoot) {
            err << "varnelctl: " << *rootProblem << '\n';
            return 2;
        }
        std::optional<QCoreApplication> app;
        if (command.needsApplication) app.emplace(argc, argv);
        return command.run(args, io);
    }
    err << "varnelctl: unknown command \"" << name << "\"\n\n" << usage;
    return exitUsage;
}
