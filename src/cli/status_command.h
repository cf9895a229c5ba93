#pragma once

#include <QStringList>

#include "cli/cli_io.h"

namespace varnel::cli {

// `varnelctl status [--json]`: one snapshot of the services, the installed and
// latest versions and the certificate state. Exits 0 when the suite runs, 1 when
// it needs attention, 2 when it is stopped, 3 when nothing is known; 64 for a
// bad option.
int statusCommand(const QStringList& args, Io& io);

}  // namespace varnel::cli
