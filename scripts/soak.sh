#!/usr/bin/env bash
# The tray app's long run: thousands of refreshes must leave no descriptor,
# child process or memory behind. Builds like scripts/test.sh.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh test
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release -DVARNEL_WERROR=ON >/dev/null
cmake --build build
ctest --test-dir build --output-on-failure -L soak "$@"
