#include <fcntl.h>
#include <unistd.h>

#include "platform/command_runner_spawn.h"

namespace varnel::spawning {

// There is no pipe2 here, so the ends are open without close-on-exec for a
// moment. Our own spawns start with every descriptor closed but those they name
// (below); the flags still cover anything else in the process that forks.
bool openPipe(int fds[2]) {
    if (::pipe(fds) != 0) return false;
    ::fcntl(fds[0], F_SETFD, FD_CLOEXEC);
    ::fcntl(fds[1], F_SETFD, FD_CLOEXEC);
    return true;
}

short prepare(posix_spawn_file_actions_t* actions) {
    // Closing by default would take standard input too; tools keep ours.
    posix_spawn_file_actions_addinherit_np(actions, STDIN_FILENO);
    return POSIX_SPAWN_CLOEXEC_DEFAULT;
}

}  // namespace varnel::spawning
