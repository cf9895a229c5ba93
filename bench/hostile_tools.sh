#!/usr/bin/env bash
# What hostile system tools cost one `varnelctl status` on the simulated demo suite:
#   flood    systemextensionsctl, then launchctl as well, print /dev/zero: the
#            wall time and the peak resident memory of one status;
#   linger   systemextensionsctl leaves a child that closed its output, then waits
#            for its time-out: the processes left after PROBES statuses (default
#            100, 20 at a time).
# Usage: bench/hostile_tools.sh [flood|linger]... [--varnelctl PATH] [--probes N]
# The flood run is capped at 12 GB of address space, so that a runner without a
# limit on captured output ends in std::bad_alloc instead of starving the machine.
set -euo pipefail
cd "$(dirname "$0")/.."
varnelctl=build/src/cli/varnelctl
probes=100
steps=()
while [ $# -gt 0 ]; do
    case $1 in
    --varnelctl) varnelctl=$2; shift ;;
    --probes) probes=$2; shift ;;
    flood | linger) steps+=("$1") ;;
    *) echo "usage: $0 [flood|linger]... [--varnelctl PATH] [--probes N]" >&2; exit 64 ;;
    esac
    shift
done
[ ${#steps[@]} -gt 0 ] || steps=(flood linger)
[ -x "$varnelctl" ] || { echo "build varnelctl first (scripts/test.sh)" >&2; exit 1; }

root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
sim/make-suite.sh "$root" demo >/dev/null

tool() { printf '#!/bin/sh\n%s\n' "$2" >"$root/$1"; chmod 755 "$root/$1"; }

measure() {
    (
        ulimit -v 12000000
        VARNEL_ROOT=$root /usr/bin/time -f "  %e s wall, %U s user, %S s sys, peak %M KB" \
            "$varnelctl" status >/dev/null 2>"$root/.err" || true
    ) 2>&1
    grep -h -e 'bad_alloc' -e ' wall, ' "$root/.err" | sed 's/^terminate called.*: /  ended by /'
}

flood() {
    tool usr/bin/systemextensionsctl 'exec cat /dev/zero'
    echo "status, systemextensionsctl floods:"
    measure
    tool bin/launchctl 'exec cat /dev/zero'
    echo "status, systemextensionsctl and launchctl flood:"
    measure
    sim/make-suite.sh "$root" demo >/dev/null
}

linger() {
    # A copy of sleep under a name of its own, so that what is left can be counted.
    marker=vlinger$$  # within the 15 characters of a process name
    cp "$(command -v sleep)" "$root/$marker"
    tool usr/bin/systemextensionsctl "\"$root/$marker\" 600 </dev/null >/dev/null 2>&1 &
exec sleep 60"
    local started=$SECONDS
    for ((i = 0; i < probes; i += 20)); do
        for ((j = i; j < i + 20 && j < probes; j++)); do
            VARNEL_ROOT=$root "$varnelctl" status >/dev/null &
        done
        wait
    done
    # Killed children become zombies of init until it reaps them: dead, not left.
    local left
    left=$(ps -o stat= -C "$marker" | grep -vc '^Z' || true)
    echo "linger: $left processes left after $probes statuses ($((SECONDS - started)) s)"
    pgrep -x "$marker" | xargs -r kill
}

for step in "${steps[@]}"; do "$step"; done
