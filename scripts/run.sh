#!/usr/bin/env bash
# Builds the tray application and starts it on a live simulated suite (sim/):
# services in mixed states, certificates, an update waiting, logs that keep
# growing, and the log window open. Ctrl-C stops it and everything it started.
# `healthy` shows every service running and the suite up to date. `empty` shows
# a machine the suite was uninstalled from: the app finds its own executable
# gone and, at its second refresh ten seconds in, removes its login job and quits.
# While it runs, `sim/service.sh build/sim-suite stop proxy` stops a service: a
# notification says so two refreshes later.
# Usage: scripts/run.sh [demo|healthy|empty]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh demo >&2
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release -DVARNEL_WERROR=ON >/dev/null
cmake --build build --target VarnelStatus varnelctl >&2

scenario=${1:-demo}
suite=build/sim-suite
sim/make-suite.sh "$suite" "$scenario"
suite=$(cd "$suite" && pwd)
status() { VARNEL_ROOT=$suite build/src/cli/varnelctl status || true; }

children=()
stop() {
    trap - EXIT
    for pid in "${children[@]}"; do kill "$pid" 2>/dev/null || true; done
    wait 2>/dev/null || true
}
trap stop EXIT
trap 'exit 130' INT TERM

if [ -z "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; then
    echo "There is no display here, so no menu bar for the status item. This is what it shows:" >&2
    status
    exit 0
fi

if [ "$scenario" = empty ]; then
    echo "Scenario 'empty': the suite is not installed, so Varnel Status removes its own login job" \
        "and quits at its second refresh, about ten seconds from now." >&2
else
    sim/log-writer.sh "$suite" &
    children+=($!)
fi
errors=$suite/.sim/app.stderr
VARNEL_ROOT=$suite build/src/tray/VarnelStatus --open-logs 2> >(tee "$errors" >&2) &
app=$!
children+=("$app")
sleep 2
if grep -q "no system tray" "$errors"; then
    echo "This display has no system tray, so the status item cannot be shown. This is what it shows:" >&2
    status
    exit 0
fi
echo "Varnel Status is running on the simulated suite in $suite. Ctrl-C stops it." >&2
if [ "$scenario" != empty ]; then
    echo "To see a notification, stop a core service from another terminal:" \
        "sim/service.sh $suite stop proxy (start proxy brings it back). It appears two refreshes" \
        "later, within 20 seconds; VARNEL_ROOT=$suite build/src/cli/varnelctl history lists" \
        "every change." >&2
fi
wait "$app" || true
if grep -q bootout "$suite/.sim/calls/launchctl"; then
    echo "Varnel Status found itself uninstalled, asked launchd to remove its login job" \
        "($(grep bootout "$suite/.sim/calls/launchctl" | head -n 1)) and quit." >&2
fi
