#!/usr/bin/env bash
# Builds and runs the tests again under the sanitizers: the whole suite with
# AddressSanitizer + UndefinedBehaviorSanitizer, and the tests that cross threads
# with ThreadSanitizer. Any report fails the run.
# Usage: scripts/sanitize.sh [asan|tsan]...   (default: both)
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh test

# Tests are picked by their ctest labels: everything but the soak (which counts
# leaks the plain run already measures) under ASan + UBSan, and every test
# labelled `threads` (its code crosses threads) under TSan.
export ASAN_OPTIONS=halt_on_error=1:detect_leaks=1:abort_on_error=1
export LSAN_OPTIONS=suppressions=$PWD/scripts/sanitizers/lsan.supp:print_suppressions=0
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
# QProcess starts children the vfork way (sharing memory until exec), so
# ThreadSanitizer takes the child's fork bookkeeping for the parent's and stops
# the first thread the test program starts after it: die_after_fork=0.
export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:die_after_fork=0:suppressions=$PWD/scripts/sanitizers/tsan.supp

run() {
    local name=$1 flags=$2
    shift 2
    cmake -S . -B "build-$name" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVARNEL_WERROR=ON \
        -DVARNEL_BUILD_BENCH=OFF -DVARNEL_SANITIZE="$flags" >/dev/null
    cmake --build "build-$name"
    ctest --test-dir "build-$name" --output-on-failure -j 2 "$@"
}

for what in "${@:-asan tsan}"; do
    for step in $what; do
        case $step in
            asan) run asan address,undefined -LE soak ;;
            tsan) run tsan thread -L threads ;;
            *) echo "sanitize.sh: unknown step '$step'" >&2; exit 2 ;;
        esac
    done
done
