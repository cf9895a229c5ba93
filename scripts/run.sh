#!/usr/bin/env bash
# Builds varnelctl and shows the status of a simulated suite (sim/, scenario demo;
# pass healthy or empty to see the others).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh build >&2
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release -DVARNEL_BUILD_TESTS=OFF \
    -DVARNEL_BUILD_BENCH=OFF >/dev/null
cmake --build build --target varnelctl >&2
suite=build/sim-suite
sim/make-suite.sh "$suite" "${1:-demo}"
echo "Simulated suite in $suite; for scripts: VARNEL_ROOT=$suite build/src/cli/varnelctl status --json" >&2
VARNEL_ROOT=$suite build/src/cli/varnelctl status || true
