#!/usr/bin/env bash
# Installs what is missing, builds everything with warnings as errors, and runs
# every test but the long soak (scripts/soak.sh runs that one).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh test
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release -DVARNEL_WERROR=ON >/dev/null
cmake --build build
# Most tests wait on tools and timers rather than compute: four at a time
# fill two cores.
ctest --test-dir build --output-on-failure -j 4 -LE soak "$@"
