#include "cli/cli_io.h"

namespace varnel::cli {

bool wantsHelp(const QStringList& args) {
    return args.contains(QStringLiteral("--help")) || args.contains(QStringLiteral("-h"));
}

}  // namespace varnel::cli
