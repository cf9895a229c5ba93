#!/usr/bin/env bash
# The tray app's footprint while it sits in the menu bar: the app on the simulated
# demo suite, offscreen, log viewer never opened, for SECONDS (default 180).
# Reports its average CPU (alone, and with the tools it started), its resident
# memory, and the processes one refresh starts.
# Usage: bench/idle_footprint.sh [SECONDS]   (after a build into build/)
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-180}
app=build/src/tray/VarnelStatus
[ -x "$app" ] || { echo "build VarnelStatus first (scripts/test.sh or scripts/run.sh)" >&2; exit 1; }

root=$(mktemp -d)
trap 'kill "$pid" 2>/dev/null || true; rm -rf "$root"' EXIT
sim/make-suite.sh "$root" demo
# Count every tool start: each tool becomes a wrapper that notes the start and
# then runs the real script in the same process (so no start is added).
for tool in bin/launchctl usr/bin/pgrep usr/bin/systemextensionsctl usr/bin/security; do
    mv "$root/$tool" "$root/$tool.real"
    printf '#!/bin/sh\necho >>"%s/.sim/starts"\n. "$0.real"\n' "$root" >"$root/$tool"
    chmod 755 "$root/$tool"
done
: >"$root/.sim/starts"

ticks=$(getconf CLK_TCK)
cpu() { awk -v t="$ticks" '{ print ($14 + $15) / t, ($16 + $17) / t }' "/proc/$1/stat"; }

VARNEL_ROOT=$root QT_QPA_PLATFORM=offscreen "$app" 2>/dev/null &
pid=$!
sleep 5  # start-up and the first refresh are not idling
read -r own0 kids0 < <(cpu "$pid")
starts0=$(wc -l <"$root/.sim/starts")
t0=$(date +%s.%N)
rss_max=0
for ((i = 0; i < seconds; i++)); do
    sleep 1
    rss=$(awk '/^VmRSS/ { print $2 }' "/proc/$pid/status")
    ((rss > rss_max)) && rss_max=$rss
done
read -r own1 kids1 < <(cpu "$pid")
t1=$(date +%s.%N)
starts1=$(wc -l <"$root/.sim/starts")

awk -v o0="$own0" -v o1="$own1" -v k0="$kids0" -v k1="$kids1" -v t0="$t0" -v t1="$t1" \
    -v rss="$rss" -v max="$rss_max" -v s0="$starts0" -v s1="$starts1" 'BEGIN {
    wall = t1 - t0; refreshes = wall / 10
    printf "idle for %.0f s, %.1f refreshes\n", wall, refreshes
    printf "CPU, the app alone:             %.3f %%\n", 100 * (o1 - o0) / wall
    printf "CPU, with the tools it started: %.3f %%\n", 100 * (o1 - o0 + k1 - k0) / wall
    printf "resident memory: %.1f MB now, %.1f MB at most\n", rss / 1024, max / 1024
    printf "tool processes per refresh: %.1f\n", (s1 - s0) / refreshes
}'
