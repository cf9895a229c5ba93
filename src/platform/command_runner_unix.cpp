#include <fcntl.h>
#include <unistd.h>

#include "platform/command_runner_spawn.h"

namespace varnel::spawning {

// Created close-on-exec in one step: a tool another thread starts meanwhile
// must never hold this pipe open, or its reader would wait for that tool too.
bool openPipe(int fds[2]) {
    return ::pipe2(fds, O_CLOEXEC) == 0;
}

short prepare(posix_spawn_file_actions_t* /*actions*/) {
    return 0;
}

}  // namespace varnel::spawning
