#!/usr/bin/env bash
# `varnelctl logs show --follow --json` against a writer that numbers its lines,
# in three runs: rename-and-create rotations, copytruncate rotations, and 50 MB
# appended in one burst between two polls. Each run reports the numbered lines
# the follower printed, lost and printed twice, and the follower's peak memory.
# Usage: bench/log_follow_cli.sh [rename|copytruncate|burst ...]  (after a build into build/)
set -euo pipefail
cd "$(dirname "$0")/.."
ctl=build/src/cli/varnelctl
[ -x "$ctl" ] || { echo "build varnelctl first (scripts/test.sh)" >&2; exit 1; }
runs=("$@")
[ ${#runs[@]} -gt 0 ] || runs=(rename copytruncate burst)

root=$(mktemp -d)
pid=
trap '[ -n "$pid" ] && kill "$pid" 2>/dev/null; rm -rf "$root"' EXIT
log=/Library/Logs/Varnel/agent.log
mkdir -p "$root/Library/Logs/Varnel"

for run in "${runs[@]}"; do
    host=$root$log
    rm -f "$host" "$host.1"
    echo "2024-05-01 10:00:00.000 INFO seq=0 start" >"$host"
    VARNEL_ROOT=$root "$ctl" logs show --follow --json "$log" >"$root/out" 2>"$root/err" &
    pid=$!
    sleep 1.5
    # The writer runs alone between rotations, as logrotate and a logger do not
    # interleave: what it wrote is all there is to find, in one file or another.
    last=$(python3 - "$host" "$run" <<'EOF'
import os, shutil, sys, time
path, run = sys.argv[1], sys.argv[2]
seq = 0
out = open(path, "a")
def write(n, pad=40):
    global seq
    for _ in range(n):
        seq += 1
        out.write(f"2024-05-01 10:00:01.000 INFO seq={seq} {'x' * pad}\n")
    out.flush()
if run == "burst":
    write(10)
    time.sleep(1.2)
    write(50_000_000 // 75, pad=40)  # about 50 MB at once
    write(10)
else:
    for round in range(6):
        for _ in range(40):
            write(25)
            time.sleep(0.04)
        if run == "rename":
            out.close()
            os.rename(path, path + ".1")
            out = open(path, "a")
        else:
            shutil.copyfile(path, path + ".1")
            os.truncate(path, 0)
        time.sleep(0.3)
    write(10)
out.close()
print(seq)
EOF
)
    # Caught up when the last line is out; then stop it as a person would.
    for _ in $(seq 1 120); do
        grep -q "seq=$last " "$root/out" && break
        sleep 0.5
    done
    peak=$(awk '/^VmHWM/ { print $2 }' "/proc/$pid/status")
    kill -TERM "$pid"
    wait "$pid" || true
    pid=
    python3 - "$root/out" "$last" "$run" "$peak" <<'EOF'
import collections, json, re, sys
out, last, run, peak = sys.argv[1], int(sys.argv[2]), sys.argv[3], int(sys.argv[4])
seen = collections.Counter()
for line in open(out, encoding="utf-8", errors="replace"):
    try:
        message = json.loads(line)["message"]
    except (ValueError, KeyError):
        continue
    for m in re.finditer(r"seq=(\d+) ", message):
        seen[int(m.group(1))] += 1
lost = sum(1 for n in range(1, last + 1) if seen[n] == 0)
twice = sum(1 for n in range(1, last + 1) if seen[n] > 1)
print(f"{run:13s} written {last:7d}  lost {lost:7d}  printed twice {twice:5d}  "
      f"peak memory {peak / 1024:.1f} MB")
EOF
    sed 's/^/    stderr: /' "$root/err" | sort | uniq -c | sort -rn | head -3
done
