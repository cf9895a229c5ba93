#pragma once

#include <spawn.h>

// The parts of starting a tool that differ between platforms. The runner's
// promise behind both: a tool's output pipe reaches that tool alone, however
// many threads start tools at the same moment.
namespace varnel::spawning {

// A pipe whose two ends no child inherits unless a spawn names them.
bool openPipe(int fds[2]);

// Adds what this platform needs to every spawn; the flags to add to the spawn's own.
short prepare(posix_spawn_file_actions_t* actions);

}  // namespace varnel::spawning
