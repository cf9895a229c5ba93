#!/usr/bin/env bash
# Keeps a simulated suite's logs moving for the demo: appends a realistic line
# every one or two seconds to the agent's output log and the proxy log until killed.
# Usage: sim/log-writer.sh ROOT
set -euo pipefail
root=${1:?usage: $0 ROOT}
agent="$root/Library/Logs/Varnel/agent.stdout.log"
proxy="$root/Library/Application Support/Varnel/logs/proxy.log"
[ -d "${agent%/*}" ] && [ -d "${proxy%/*}" ] || { echo "$0: no simulated suite at $root" >&2; exit 1; }
export TZ=UTC
hosts=(api.github.com slack.com login.microsoftonline.com registry.npmjs.org pypi.org
    s3.amazonaws.com www.googleapis.com)
seq=0
while :; do
    printf -v ms '%03d' $((RANDOM % 1000))
    printf -v ts "%(%Y-%m-%dT%H:%M:%S)T.${ms}Z" -1
    host=${hosts[RANDOM % ${#hosts[@]}]}
    seq=$((seq + 1))
    case $((RANDOM % 8)) in
    0) printf '{"timestamp":"%s","level":"warn","target":"varnel_agent::ipc","message":"client slow to drain queue","pending":%d}\n' \
           "$ts" $((RANDOM % 200 + 20)) >>"$agent" ;;
    1) printf '{"timestamp":"%s","level":"error","target":"varnel_agent::watch","message":"websocket closed: connection reset by peer"}\n' \
           "$ts" >>"$agent" ;;
    *) printf '{"ts":"%s","lvl":"debug","module":"proxy.tls","msg":"handshake complete","host":"%s","seq":%d}\n' \
           "$ts" "$host" "$seq" >>"$agent" ;;
    esac
    printf '%s INFO proxy: CONNECT %s:443 intercepted (tls1.3) %dms\n' "$ts" "$host" \
        $((RANDOM % 120 + 4)) >>"$proxy"
    sleep "1.$((RANDOM % 10))"
done
