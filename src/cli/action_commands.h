#pragma once

#include <QStringList>

#include "cli/cli_io.h"

namespace varnel::cli {

// `varnelctl restart LABEL|KEY` and `varnelctl update`: the tray menu's actions,
// through the same administrator-approval dialog. Exit 0 on success, 1 on
// failure, 2 when the approval was cancelled.
int restartCommand(const QStringList& args, Io& io);
int updateCommand(const QStringList& args, Io& io);

}  // namespace varnel::cli
