// The few Darwin libc names the macOS-only sources use, declared as Darwin does,
// so that those sources can be syntax-checked with a Linux libc. Never part of a
// build.
#pragma once

#include <spawn.h>
#include <sys/stat.h>

#define st_mtimespec st_mtim
#define st_ctimespec st_ctim
#define POSIX_SPAWN_CLOEXEC_DEFAULT 0x4000

extern "C" int posix_spawn_file_actions_addinherit_np(posix_spawn_file_actions_t*, int);
