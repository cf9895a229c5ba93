#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (ASan and UBSan on) into build-fuzz
# and runs each for FUZZ_SECONDS (60 by default), starting from the committed
# seeds. New inputs go to build-fuzz/corpus and whatever libFuzzer finds
# (crash-, timeout-, leak-, oom- files) to build-fuzz/artifacts, never into the
# repository.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh build fuzz
seconds="${FUZZ_SECONDS:-60}"
cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
    -DVARNEL_BUILD_FUZZ=ON -DVARNEL_BUILD_TESTS=OFF -DVARNEL_BUILD_BENCH=OFF \
    -DVARNEL_SANITIZE=address,undefined >/dev/null
targets=(fuzz_log_parser fuzz_log_tail fuzz_launchctl fuzz_sysext fuzz_version fuzz_discovery_state)
cmake --build build-fuzz --target "${targets[@]}"
for target in "${targets[@]}"; do
    work="build-fuzz/corpus/$target"
    artifacts="build-fuzz/artifacts/$target"
    mkdir -p "$work" "$artifacts"
    echo "Fuzzing $target for ${seconds}s"
    "build-fuzz/fuzz/$target" -max_total_time="$seconds" -max_len=8192 -timeout=20 \
        -print_final_stats=1 \
        -artifact_prefix="$artifacts/" "$work" "fuzz/corpus/$target"
done
