#!/usr/bin/env bash
# Fails on formatting drift (clang-format), on what .clang-tidy checks, and on
# warnings of the shell-script checker in our scripts.
# Usage: scripts/lint.sh [format|tidy|shell]...   (default: all three)
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh build lint

mapfile -t sources < <(git ls-files -co --exclude-standard '*.cpp' '*.h' '*.mm')

format() {
    clang-format --dry-run -Werror "${sources[@]}"
}

shell() {
    mapfile -t scripts < <(git ls-files -co --exclude-standard '*.sh' 'sim/tools/*' '.ci/run' \
        'packaging/macos/scripts/*')
    shellcheck --severity=warning "${scripts[@]}"
}

tidy() {
    cmake -S . -B build-lint -G Ninja -DCMAKE_BUILD_TYPE=Debug -DVARNEL_BUILD_TESTS=OFF \
        -DVARNEL_BUILD_BENCH=OFF >/dev/null
    # Generated sources (moc) must exist before their includers are checked.
    cmake --build build-lint --target varnel_tray_autogen varnel_viewer_autogen >/dev/null
    mapfile -t units < <(git ls-files -co --exclude-standard 'src/*.cpp' | grep -v '_mac\.')
    run-clang-tidy -quiet -p build-lint -j 2 "${units[@]}" >build-lint/tidy.log 2>&1 || {
        grep -E 'warning:|error:' build-lint/tidy.log >&2
        exit 1
    }
}

for what in "${@:-format shell tidy}"; do
    for step in $what; do
        case $step in
            format) format ;;
            tidy) tidy ;;
            shell) shell ;;
            *) echo "lint.sh: unknown step '$step'" >&2; exit 2 ;;
        esac
    done
done
