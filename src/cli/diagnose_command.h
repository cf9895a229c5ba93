#pragma once

#include <QStringList>

#include "cli/cli_io.h"

namespace varnel::cli {

// `varnelctl diagnose [--output FILE]`: one file that starts a support case, a
// .tar.gz of the status, the version files, the tools' answers during one
// probe, the logs' tails and a manifest; never a private key. Prints the
// bundle's path. Exits 0 when it is written, 74 when it cannot be, 64 for bad
// usage.
int diagnoseCommand(const QStringList& args, Io& io);

}  // namespace varnel::cli
