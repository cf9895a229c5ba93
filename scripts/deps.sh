#!/usr/bin/env bash
# Installs the Debian packages a task needs, only those that are missing.
# Usage: scripts/deps.sh build|test|demo|fuzz|lint ...
set -euo pipefail

build=(cmake ninja-build g++ pkg-config qt6-base-dev qt6-qpa-plugins libgl1-mesa-dev
       libxkbcommon-dev zlib1g-dev)
# prometheus brings promtool; it and the client's parser read varnelctl's metrics
# in the tests, shellcheck and python3 the examples of docs/fleet.md.
test=(libgtest-dev libgmock-dev libbenchmark-dev openssl fonts-dejavu-core python3
      prometheus python3-prometheus-client shellcheck)
demo=(xvfb xauth trayer xdotool imagemagick)
fuzz=(clang libclang-rt-14-dev)
lint=(clang-format clang-tidy git shellcheck clang libgnustep-gui-dev libobjc-12-dev)

wanted=()
for group in "$@"; do
    case "$group" in
        build) wanted+=("${build[@]}") ;;
        test) wanted+=("${build[@]}" "${test[@]}") ;;
        demo) wanted+=("${build[@]}" "${test[@]}" "${demo[@]}") ;;
        fuzz) wanted+=("${fuzz[@]}") ;;
        lint) wanted+=("${lint[@]}") ;;
        *) echo "deps.sh: unknown group '$group'" >&2; exit 2 ;;
    esac
done

missing=()
for pkg in "${wanted[@]}"; do
    dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed" ||
        missing+=("$pkg")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=()
[ "$(id -u)" -eq 0 ] || sudo=(sudo)
echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
# Only promtool is wanted from the prometheus package, never a server left running.
if [[ " ${missing[*]} " == *" prometheus "* ]] && [ -d /run/systemd/system ]; then
    "${sudo[@]}" systemctl disable --now prometheus >/dev/null 2>&1 || true
fi
