#!/usr/bin/env bash
# Installs what is missing, builds everything with warnings as errors, and runs
# every test but the long soak (scripts/soak.sh runs that one).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh test
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release -DVARNEL_WERROR=ON >/dev/null
cmake --build build
ctest --test-dir build --output-on-failure -j 2 -LE soak "$@"
