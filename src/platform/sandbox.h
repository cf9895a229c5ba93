#pragma once

#include <QString>
#include <optional>

// The sandbox root: one directory, named by VARNEL_ROOT, under which every
// absolute path of the suite and every system tool is looked up. Tests and the
// demo point it at a simulated suite; unset or empty, paths are used as they are.
namespace varnel::sandbox {

// The root, read from the environment once, on first use; empty when unset.
const QString& root();

// A message for people when VARNEL_ROOT is set but names no existing directory.
// Programs check this before doing anything else and exit with status 2.
std::optional<QString> rootProblem();

// The place where a suite path really lives: the root joined with the path.
QString hostPath(const QString& suitePath);

// The inverse, for showing paths found on disk: the suite's own name for them.
QString suitePath(const QString& hostPath);

}  // namespace varnel::sandbox
