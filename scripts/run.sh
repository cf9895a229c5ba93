#!/usr/bin/env bash
# Builds varnelctl and shows what it can do.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh build >&2
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release -DVARNEL_BUILD_TESTS=OFF \
    -DVARNEL_BUILD_BENCH=OFF >/dev/null
cmake --build build --target varnelctl >&2
build/src/cli/varnelctl --help
