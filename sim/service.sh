#!/usr/bin/env bash
# Stops or starts one service of a simulated suite (sim/make-suite.sh), as a
# crash or a restart would: the tray application sees it at its next refresh.
# Usage: sim/service.sh ROOT stop|start KEY
# KEY: agent, proxy, sysext, monitor, templates, ipc, diagnostics or watcher.
set -euo pipefail
usage() {
    echo "usage: $0 ROOT stop|start agent|proxy|sysext|monitor|templates|ipc|diagnostics|watcher" >&2
    exit 64
}
[ $# -eq 3 ] || usage
root=$1 action=$2 key=$3
sim=$root/.sim
[ -d "$sim" ] || { echo "$0: $root holds no simulated suite" >&2; exit 1; }
case $action in stop | start) ;; *) usage ;; esac

next_pid() {
    local pid
    pid=$(cat "$sim/next-pid")
    echo $((pid + 1)) >"$sim/next-pid"
    echo "$pid"
}

process() {
    if [ "$action" = stop ]; then rm -f "$sim/procs/$1"; else next_pid >"$sim/procs/$1"; fi
}

# A daemon that stops stays loaded, as launchd keeps a job whose program exited.
job() {
    if [ "$action" = stop ]; then
        echo stopped >"$sim/jobs/$1"
    else
        echo "running $(next_pid)" >"$sim/jobs/$1"
    fi
}

case $key in
agent) job com.varnel.agent; process varnel ;;
watcher) job com.varnel.endpoint.watcher ;;
proxy) process varnel-proxy ;;
monitor) process varnel-monitor-v2 ;;
templates) process template-engine ;;
ipc) process ipc-light-broker ;;
diagnostics) process varnel-diagnostics ;;
sysext)
    # Unloaded, the extension leaves the list; started, it is the one enabled copy.
    if [ "$action" = stop ]; then
        rm -f "$sim/sysext"
    else
        printf '%s\n' "com.apple.system_extension.network_extension|*|*|7QX4PL2M9A|ai.ostrel.agent.sentinel.extension (1.9.0/1.9.0)|Varnel Network Extension|activated enabled" >"$sim/sysext"
    fi
    ;;
*) usage ;;
esac
if [ "$action" = stop ]; then echo "$key stopped"; else echo "$key started"; fi
