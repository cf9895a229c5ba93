// What GNUstep's headers expect of an Objective-C runtime with blocks, which
// this machine's runtime is not: declared only for the syntax check of the
// macOS-only sources. Never part of a build.
#pragma once

extern "C" {
void* _Block_copy(const void* block);
void _Block_release(const void* block);
}
