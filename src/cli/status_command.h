#pragma once

#include <QStringList>

#include "cli/cli_io.h"

namespace varnel::cli {

// `varnelctl status [--format FORMAT] [--output FILE]`: one snapshot of the
// services, the installed and latest versions and the certificate state, for
// people, scripts, monitoring plugins, inventory and metrics collectors. It
// checks the sandbox root itself, as a plugin reports a bad one its own way.
int statusCommand(const QStringList& args, Io& io);

}  // namespace varnel::cli
