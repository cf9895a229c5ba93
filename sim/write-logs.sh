#!/usr/bin/env bash
# Fills a simulated suite's log folders with a few hundred realistic lines each.
# Usage: sim/write-logs.sh ROOT UPDATER_LAST_RUN_SECONDS_AGO   (called by make-suite.sh)
set -euo pipefail
root=$1
updater_ago=${2:-420}
export TZ=UTC
RANDOM=7
now=$(date +%s)

services="$root/Library/Logs/Varnel"
support="$root/Library/Application Support/Varnel/logs"
updater="$root/var/log/ostrel/varnel-endpoint"
esc=$'\e'
hosts=(api.github.com slack.com login.microsoftonline.com registry.npmjs.org s3.amazonaws.com
    pypi.org www.googleapis.com update.code.visualstudio.com)

# stamp SECONDS_AGO FORMAT: sets $ts, with milliseconds where the format has %ms.
stamp() {
    local ms
    printf -v ms '%03d' $((RANDOM % 1000))
    printf -v ts "%(${2/\%ms/$ms})T" $((now - $1))
}

agent_stdout() {
    local i t host
    for ((i = 240; i > 0; i--)); do
        t=$((i * 29)) host=${hosts[RANDOM % ${#hosts[@]}]}
        case $((i % 6)) in
        0) stamp $t '%Y-%m-%dT%H:%M:%S.%msZ'
           printf '{"timestamp":"%s","level":"info","target":"varnel_agent::policy","message":"policy bundle refreshed","fields":{"rules":%d,"etag":"W/\\"%x\\""}}\n' \
               "$ts" $((140 + i % 9)) $((RANDOM * 977)) ;;
        1) stamp $t '%Y-%m-%dT%H:%M:%S.%msZ'
           printf '{"ts":"%s","lvl":"debug","module":"proxy.tls","msg":"handshake complete","host":"%s","alpn":"h2","ms":%d}\n' \
               "$ts" "$host" $((RANDOM % 90 + 3)) ;;
        2) printf '{"time":%d,"severity":"notice","logger":"discovery","body":"resolved endpoint manifest","channel":"stable"}\n' \
               $((now - t)) ;;
        3) stamp $t '%Y-%m-%dT%H:%M:%S%z'
           printf '{"@timestamp":"%s","level":"WARNING","name":"ipc","fields":{"message":"client %d slow to drain queue (%d pending)"}}\n' \
               "$ts" $((RANDOM % 40 + 2)) $((RANDOM % 300 + 20)) ;;
        4) stamp $t '%Y-%m-%dT%H:%M:%S.%msZ'
           printf '{"timestamp":"%s","level":"info","target":"varnel_agent::proxy","message":"CONNECT %s:443 intercepted\\nupstream tls1.3"}\n' \
               "$ts" "$host" ;;
        5) stamp $t '%Y-%m-%dT%H:%M:%S.%msZ'
           if ((i % 4 == 1)); then
               printf '{"timestamp":"%s","level":"error","target":"varnel_agent::watch","message":"websocket closed: connection reset by peer","retry_in_ms":%d}\n' \
                   "$ts" $((RANDOM % 5000 + 500))
           else
               printf '{"timestamp":"%s","level":"trace","target":"varnel_agent::metrics","message":"heartbeat","rss_kb":%d}\n' \
                   "$ts" $((RANDOM % 20000 + 48000))
           fi ;;
        esac
    done
}

agent_stderr() {
    local i t
    for ((i = 60; i > 0; i--)); do
        t=$((i * 113))
        stamp $t '%Y-%m-%dT%H:%M:%S.%msZ'
        case $((i % 5)) in
        0) printf '%s[2m%s%s[0m %s[33m WARN%s[0m varnel_agent::ipc: peer %d sent a frame larger than 1 MiB; dropped\n' \
               "$esc" "$ts" "$esc" "$esc" "$esc" $((RANDOM % 60 + 1)) ;;
        1) printf '%s[2m%s%s[0m %s[31mERROR%s[0m varnel_agent::watch: session ended unexpectedly\n' \
               "$esc" "$ts" "$esc" "$esc" "$esc"
           printf 'Error: connection reset by peer (os error 54)\n'
           printf '    at varnel_agent::watch::Session::read_frame (src/watch/session.rs:212)\n'
           printf '    at varnel_agent::watch::Session::run (src/watch/session.rs:148)\n'
           printf '    at tokio::runtime::task::harness::poll (harness.rs:473)\n' ;;
        *) printf '%s[2m%s%s[0m %s[32m INFO%s[0m varnel_agent::runtime: worker %d parked\n' \
               "$esc" "$ts" "$esc" "$esc" "$esc" $((RANDOM % 8)) ;;
        esac
    done
}

proxy_log() { # SECONDS_OFFSET LINES
    local i t host verdict
    for ((i = $2; i > 0; i--)); do
        t=$(($1 + i * 17)) host=${hosts[RANDOM % ${#hosts[@]}]}
        stamp $t '%Y-%m-%dT%H:%M:%S.%ms+00:00'
        case $((RANDOM % 10)) in
        0) printf '%s WARN proxy: upstream %s:443 certificate pinned; passing through\n' "$ts" "$host" ;;
        1) printf '%s ERROR proxy: upstream %s:443 timed out after 10000ms\n' "$ts" "$host" ;;
        *) verdict=intercepted
           ((RANDOM % 3 == 0)) && verdict=bypassed
           printf '%s INFO proxy: CONNECT %s:443 %s (tls1.3) %dms\n' "$ts" "$host" "$verdict" \
               $((RANDOM % 120 + 4)) ;;
        esac
    done
}

endpoint_log() {
    local i t
    for ((i = 150; i > 0; i--)); do
        t=$((i * 41))
        stamp $t '%Y-%m-%d %H:%M:%S'
        case $((i % 7)) in
        0) printf '[%s] [watcher] WARN push channel silent for %ds; sending ping\n' "$ts" $((RANDOM % 30 + 30)) ;;
        1) printf '[%s] [discovery] INFO resolved agent_version_mac=1.9.0 (etag %x)\n' "$ts" $((RANDOM * 31)) ;;
        *) printf '[%s] [watcher] DEBUG frame received: {"type":"heartbeat","seq":%d}\n' "$ts" $((9000 + i)) ;;
        esac
    done
}

templating_log() {
    local i t
    for ((i = 120; i > 0; i--)); do
        t=$((i * 53))
        stamp $t '%Y-%m-%d %H:%M:%S'
        if ((i % 9 == 0)); then
            printf '%s ERROR renderer: template "profiles/wifi.mobileconfig.j2" failed: undefined variable '"'"'ssid'"'"'\n' "$ts"
        else
            printf '%s INFO renderer: rendered %d templates in %dms\n' "$ts" $((RANDOM % 12 + 1)) $((RANDOM % 80 + 2))
        fi
    done
}

watcher_logs() {
    local i t
    for ((i = 80; i > 0; i--)); do
        t=$((i * 67))
        stamp $t '%Y-%m-%dT%H:%M:%SZ'
        printf '%s INFO ws: recv heartbeat seq=%d rtt=%dms\n' "$ts" $((4000 + i)) $((RANDOM % 70 + 10))
    done >"$support/varnel_endpoint.watcher.log"
    for ((i = 40; i > 0; i--)); do
        t=$((i * 131))
        stamp $t '%Y-%m-%dT%H:%M:%SZ'
        printf '%s watcher: subscribed to channel stable/mac\n' "$ts"
    done >"$support/varnel_endpoint.watcher.stdout.log"
    for ((i = 12; i > 0; i--)); do
        t=$((i * 977))
        stamp $t '%Y-%m-%dT%H:%M:%SZ'
        printf '%s ERROR ws: handshake failed: 503 Service Unavailable; retrying in %ds\n' "$ts" $((i * 2))
    done >"$support/varnel_endpoint.watcher.stderr.log"
}

updater_logs() {
    local i t
    for ((i = 30; i > 0; i--)); do
        t=$((updater_ago + i * 3600))
        stamp $t '%Y-%m-%dT%H:%M:%SZ'
        printf '%s INFO updater: checking https://downloads.varnel.io/endpoint/stable/manifest.json\n' "$ts"
        printf '%s INFO updater: installed 1.8.2, latest 1.9.0; staged for next window\n' "$ts"
    done >"$updater/varnel_endpoint.stdout.log"
    stamp $((updater_ago + 7200)) '%Y-%m-%dT%H:%M:%SZ'
    printf '%s ERROR updater: download interrupted (curl: (18) transfer closed with 1048576 bytes remaining)\n' \
        "$ts" >"$updater/varnel_endpoint.stderr.log"
    # The updater's age comes from this file's modification time.
    touch -d "@$((now - updater_ago))" "$updater/varnel_endpoint.stdout.log"
}

postinstall_log() {
    local step=0 t=$((9 * 86400))
    for line in "Installing Varnel endpoint suite 1.8.2" "Stopping running services" \
        "Copying payload to /Applications/VarnelProxy.app" "Deploying CA certificates" \
        "Registering network extension ai.ostrel.agent.sentinel.extension" \
        "Loading launch daemons" "WARNING: network extension needs user approval" "Done"; do
        stamp $((t - step * 3)) '%Y-%m-%d %H:%M:%S'
        printf '%s postinstall[%d]: %s\n' "$ts" 611 "$line"
        step=$((step + 1))
    done
}

agent_stdout >"$services/agent.stdout.log"
agent_stderr >"$services/agent.stderr.log"
proxy_log 0 300 >"$support/proxy.log"
proxy_log 5200 200 >"$support/proxy.log.1"
proxy_log 8800 150 | gzip -n >"$support/proxy.log.2.gz"
# Rotated copies are older than the live log, each as old as its last line.
touch -d "@$((now - 5200 - 17))" "$support/proxy.log.1"
touch -d "@$((now - 8800 - 17))" "$support/proxy.log.2.gz"
endpoint_log >"$support/varnel-endpoint.log"
templating_log >"$support/templating-engine.log"
postinstall_log >"$support/postinstall-bootstrap.log"
watcher_logs
updater_logs
postinstall_log >"$root/var/log/ostrel/varnel-postinstall.log"
