#!/usr/bin/env bash
# Fails on formatting drift (clang-format), on what .clang-tidy checks, on
# warnings of the shell-script checker in our scripts, and on syntax errors in
# the macOS-only sources (checked with clang against GNUstep's AppKit headers and
# declarations of the few Darwin libc, CoreFoundation and user-notification
# names they use, in scripts/mac-syntax: a check of their syntax, not a macOS
# build).
# Usage: scripts/lint.sh [format|tidy|shell|mac]...   (default: all four)
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

configure() {
    cmake -S . -B build-lint -G Ninja -DCMAKE_BUILD_TYPE=Debug -DVARNEL_BUILD_TESTS=OFF -DVARNEL_UNITY_BUILD=OFF \
        -DVARNEL_BUILD_BENCH=OFF >/dev/null
}

tidy() {
    configure
    # Generated sources (moc) must exist before their includers are checked.
    cmake --build build-lint --target varnel_tray_autogen varnel_viewer_autogen >/dev/null
    mapfile -t units < <(git ls-files -co --exclude-standard 'src/*.cpp' | grep -v '_mac\.')
    run-clang-tidy -quiet -p build-lint -j 2 "${units[@]}" >build-lint/tidy.log 2>&1 || {
        grep -E 'warning:|error:' build-lint/tidy.log >&2
        exit 1
    }
}

mac() {
    configure
    local qt layers=()
    qt=$(qmake6 -query QT_INSTALL_HEADERS 2>/dev/null || echo /usr/include/x86_64-linux-gnu/qt6)
    for root in build-lint/layers/*; do layers+=(-I "$root"); done
    local common=(-fsyntax-only -std=c++20 -fPIC -Werror=implicit-function-declaration
        -isystem "$qt" -isystem "$qt/QtCore" -isystem "$qt/QtGui" -isystem "$qt/QtWidgets"
        -isystem scripts/mac-syntax/include "${layers[@]}")
    # Qt declares its macOS-only members (QMenu::toNSMenu) under this macro.
    local objc=(-x objective-c++ -DQ_OS_MACOS -fobjc-runtime=gnustep-2.0 -fobjc-exceptions -fblocks
        -fconstant-string-class=NSConstantString -DGNUSTEP -DGNUSTEP_BASE_LIBRARY=1
        -DGNU_GUI_LIBRARY=1 -DGNU_RUNTIME=1 -isystem /usr/include/GNUstep
        -isystem "$(gcc -print-file-name=include)" -Wno-objc-method-access
        -Wno-objc-protocol-method-implementation)
    local file failed=0
    while IFS= read -r file; do
        case $file in
            *.mm) clang++ "${common[@]}" "${objc[@]}" "$file" || failed=1 ;;
            *.cpp) clang++ "${common[@]}" -include scripts/mac-syntax/darwin_libc.h "$file" ||
                failed=1 ;;
        esac
    done < <(git ls-files -co --exclude-standard 'src/*_mac.mm' 'src/*_mac.cpp')
    return $failed
}

for what in "${@:-format shell tidy mac}"; do
    for step in $what; do
        case $step in
            format) format ;;
            tidy) tidy ;;
            shell) shell ;;
            mac) mac ;;
            *) echo "lint.sh: unknown step '$step'" >&2; exit 2 ;;
        esac
    done
done
