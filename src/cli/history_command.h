#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <optional>

#include "cli/cli_io.h"

namespace varnel::cli {

// `varnelctl history [--json] [--since DURATION] [--service KEY]`: the status
// history the tray application keeps, oldest first, as a table or as JSON
// lines. Exits 0, also when there is no history yet; 64 for bad usage.
int historyCommand(const QStringList& args, Io& io);

// The last `maxBytes` of a history file, starting at a whole line; nothing when
// it is missing or not a regular file. `cut` tells whether older lines were left.
std::optional<QByteArray> readHistoryTail(const QString& path, qsizetype maxBytes, bool& cut);

}  // namespace varnel::cli
