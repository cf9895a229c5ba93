#!/usr/bin/env bash
# Lays out a simulated Varnel endpoint suite under ROOT for VARNEL_ROOT=ROOT:
# the system tools the programs call, the scenario state those tools answer from
# (ROOT/.sim, described in sim/README.md), and the suite's own files and logs.
#
# Usage: sim/make-suite.sh ROOT [demo|healthy|empty]   (default: demo)
# ROOT must be missing, empty, or an earlier simulated suite (which is replaced).
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
usage() { echo "usage: $0 ROOT [demo|healthy|empty]" >&2; exit 64; }
[ $# -ge 1 ] && [ $# -le 2 ] && [ -n "$1" ] || usage
root=$1
scenario=${2:-demo}
case $scenario in demo | healthy | empty) ;; *) usage ;; esac

if [ -e "$root" ]; then
    if [ -d "$root/.sim" ]; then
        find "$root" -mindepth 1 -delete
    elif [ -n "$(ls -A "$root")" ]; then
        echo "$0: $root is not empty and holds no simulated suite; not touching it" >&2
        exit 1
    fi
fi
mkdir -p "$root"
root=$(cd "$root" && pwd)
sim=$root/.sim

# --- system tools ---------------------------------------------------------
install -D -m 755 "$here/tools/launchctl" "$root/bin/launchctl"
for tool in pgrep systemextensionsctl security osascript open; do
    install -D -m 755 "$here/tools/$tool" "$root/usr/bin/$tool"
done

# --- scenario state -------------------------------------------------------
mkdir -p "$sim/jobs" "$sim/procs" "$sim/trusted" "$sim/calls"
: >"$sim/calls/launchctl"; : >"$sim/calls/osascript"; : >"$sim/calls/open"; : >"$sim/calls/security"
printf '%s\n' "$scenario" >"$sim/scenario"
printf 'approve\n' >"$sim/osascript"
printf '2400\n' >"$sim/next-pid"

job() { printf '%s %s\n' "$2" "${3:-}" >"$sim/jobs/$1"; }
proc() { printf '%s\n' "$2" >"$sim/procs/$1"; }
trust() { : >"$sim/trusted/$1"; }
extension() { printf '%s\n' "$1" >>"$sim/sysext"; }

ne=com.apple.system_extension.network_extension
ext_row="7QX4PL2M9A|ai.ostrel.agent.sentinel.extension"

case $scenario in
demo)
    job com.varnel.agent running 812
    job com.varnel.endpoint.updater stopped
    job com.varnel.endpoint.watcher stopped
    proc varnel 812; proc varnel-proxy 845; proc template-engine 1203
    proc ipc-light-broker 1190; proc varnel-diagnostics 1311
    # An upgrade waits for the user's approval while the old copy still filters.
    extension "$ne||*|$ext_row (1.9.0/1.9.0)|Varnel Network Extension|activated waiting for user"
    extension "$ne|*|*|$ext_row (1.8.2/1.8.2)|Varnel Network Extension|activated enabled"
    trust varnel-root-ca.pem; trust varnel-intermediate-ca.pem
    installed=1.8.2 latest=1.9.0 updater_ran=$((7 * 60))
    ;;
healthy)
    job com.varnel.agent running 812
    job com.varnel.endpoint.updater stopped
    job com.varnel.endpoint.watcher running 1388
    proc varnel 812; proc varnel-proxy 845; proc varnel-monitor-v2 901
    proc template-engine 1203; proc ipc-light-broker 1190; proc varnel-diagnostics 1311
    extension "$ne|*|*|$ext_row (1.9.0/1.9.0)|Varnel Network Extension|activated enabled"
    trust varnel-root-ca.pem; trust varnel-intermediate-ca.pem; trust varnel-proxy-ca.pem
    installed=1.9.0 latest=1.9.0 updater_ran=$((3 * 3600 + 12 * 60))
    ;;
empty)
    exit 0
    ;;
esac

# --- the suite's files ----------------------------------------------------
support="$root/Library/Application Support/Varnel"
mkdir -p "$support/logs" "$support/bin" "$support/VarnelStatus.app/Contents/MacOS" \
    "$root/Applications/VarnelProxy.app/Contents/MacOS" "$root/Library/Logs/Varnel" \
    "$root/var/log/ostrel/varnel-endpoint"
printf '#!/bin/sh\nexit 0\n' >"$support/VarnelStatus.app/Contents/MacOS/VarnelStatus"
printf '#!/bin/sh\nexit 0\n' >"$root/Applications/VarnelProxy.app/Contents/MacOS/varnel"
chmod +x "$support/VarnelStatus.app/Contents/MacOS/VarnelStatus" \
    "$root/Applications/VarnelProxy.app/Contents/MacOS/varnel"

printf '%s\n' "$installed" >"$support/.installed_version"
cat >"$support/.discovery-state.json" <<JSON
{
  "schema": 3,
  "channel": "stable",
  "last_checked": "$(date -u +%Y-%m-%dT%H:%M:%SZ)",
  "last_resolved": {
    "agent_version_mac": "$latest",
    "agent_version_win": "$latest",
    "agent_version_linux": "$latest",
    "manifest_url": "https://downloads.varnel.io/endpoint/$latest/manifest.json",
    "sha256": "9f2c41d7a1e0b8c35e6f4d2a7b9c0e1f3a5b7c9d2e4f6a8b0c1d3e5f7a9b2c4d"
  },
  "push": {"connected": true, "session": "ws-7f3a92"}
}
JSON
for pem in varnel-root-ca varnel-intermediate-ca varnel-proxy-ca varnel-device varnel-proxy-pubkey \
    ca-bundle; do
    cp "$here/fixtures/$pem.pem" "$support/$pem.pem"
done

# --- logs -------------------------------------------------------------------
"$here/write-logs.sh" "$root" "$updater_ran"
