#pragma once

#include <QStringList>

#include "cli/cli_io.h"

namespace varnel::cli {

// `varnelctl logs list|parse|show ...`: the suite's logs as the log viewer sees them.
int logsCommand(const QStringList& args, Io& io);

}  // namespace varnel::cli
