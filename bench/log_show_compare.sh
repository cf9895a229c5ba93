#!/usr/bin/env bash
# Whole processes on the same generated logs, in one run: `varnelctl logs show
# --search X` against `grep -c X` and lnav's `-n -c ':filter-in X'`, and against
# its own start-up (the same command on an empty log), every row printed against
# the filtered run, and `logs parse` on a large file (time and
# peak memory at two sizes). CPU is task-clock, start-up included; the commands
# take turns, round after round, so that whatever else the machine does weighs
# on all of them alike, and each figure is the median of its rounds. With
# --instructions each is counted in instructions instead (valgrind), which
# noise does not move. With --before, an older varnelctl is measured in the
# same run and every output of both is compared byte for byte on odd files
# (bad UTF-8, marks, UTF-16, CR LF, controls) as well as on the generated one.
# Usage: bench/log_show_compare.sh [--before OLD_VARNELCTL] [--runs N] [--big] [--instructions]
#   (after a build into build/; --big adds the 400 MB parse, some 30 s)
set -euo pipefail
cd "$(dirname "$0")/.."
ctl=$PWD/build/src/cli/varnelctl
gen=$PWD/build/bench/make_log
before=
runs=11
big=
instructions=
while [ $# -gt 0 ]; do
    case $1 in
        --before) before=$(realpath "$2"); shift 2 ;;
        --runs) runs=$2; shift 2 ;;
        --big) big=1; shift ;;
        --instructions) instructions=1; shift ;;
        *) echo "usage: $0 [--before OLD_VARNELCTL] [--runs N] [--big] [--instructions]" >&2
           exit 64 ;;
    esac
done
[ -x "$ctl" ] && [ -x "$gen" ] || { echo "build varnelctl and make_log first" >&2; exit 1; }
perf stat -e task-clock true >/dev/null 2>&1 || { echo "needs perf (linux-perf)" >&2; exit 1; }
[ -z "$instructions" ] || command -v valgrind >/dev/null || { echo "needs valgrind" >&2; exit 1; }
have_lnav=$(command -v lnav || true)

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
root=$work/root
log=/Library/Logs/Varnel/agent.log
file=$root$log
mkdir -p "$root/Library/Logs/Varnel" "$work/home/.lnav/formats/installed"
cp bench/lnav/varnel_log.json "$work/home/.lnav/formats/installed/"
# A little over the tail, so every load reads exactly the last 4,000,000 bytes.
"$gen" 4200000 42 >"$file"
export VARNEL_ROOT=$root

names=()
commands=()
add() {
    names+=("$1")
    shift
    commands+=("$(printf '%q ' "$@")")
}

# Medians of task-clock (ms) and page faults per command over the rounds.
medians() {
    python3 - "$1" <<'EOF'
import collections, statistics, sys
clock, faults = collections.defaultdict(list), collections.defaultdict(list)
for line in open(sys.argv[1]):
    parts = line.strip().split(",")
    if len(parts) > 3 and parts[3] == "task-clock":
        clock[int(parts[0])].append(float(parts[1]))
    elif len(parts) > 3 and parts[3] == "page-faults":
        faults[int(parts[0])].append(int(parts[1]))
for i in sorted(clock):
    print(i, f"{statistics.median(clock[i]):.2f}", int(statistics.median(faults[i])))
EOF
}

declare -A ms
measure_all() {
    local i clock fault
    : >"$work/perf"
    for _ in $(seq "$runs"); do
        for i in "${!commands[@]}"; do
            eval "perf stat -x, -e task-clock,page-faults -o '$work/perf.1' -- ${commands[i]}" \
                >/dev/null 2>&1 || true
            sed "s/^/$i,/" "$work/perf.1" >>"$work/perf"
        done
    done
    while read -r i clock fault; do
        if [ -n "$instructions" ]; then
            # Children too (env starts lnav), every process summed.
            eval "valgrind --tool=callgrind --trace-children=yes" \
                "--callgrind-out-file='$work/cg.%p' -- ${commands[i]}" >/dev/null 2>"$work/cg.err" ||
                true
            clock=$(sed -n 's/.*Collected : \([0-9]*\)/\1/p' "$work/cg.err" | paste -sd+ | bc)
            printf '  %-34s %12d instructions\n' "${names[i]}" "$clock"
        else
            printf '  %-34s %8.2f ms  %6d page faults\n' "${names[i]}" "$clock" "$fault"
        fi
        ms[${names[i]}]=$clock
    done < <(medians "$work/perf")
}
ratio() { python3 -c "print(f'{$1 / $2:.2f}x')"; }

needle=NOMATCH
echo "4 MB tail ($(wc -l <"$file") lines), search \"$needle\", $runs rounds, medians:"
add "grep -c" grep -c "$needle" "$file"
add "varnelctl show --search" "$ctl" logs show --search "$needle" "$log"
# What varnelctl costs before it reads a byte: loading Qt and the libraries it
# needs, which no change to the pipeline can take away.
: >"$root/Library/Logs/Varnel/empty.log"
add "varnelctl, empty log" "$ctl" logs show --search "$needle" /Library/Logs/Varnel/empty.log
add "varnelctl show (every row)" "$ctl" logs show "$log"
add "varnelctl show --json" "$ctl" logs show --json "$log"
if [ -n "$have_lnav" ]; then
    add "lnav -n filter-in" env HOME="$work/home" lnav -n -c ":filter-in $needle" "$file"
fi
if [ -n "$before" ]; then
    add "before: show --search" "$before" logs show --search "$needle" "$log"
    add "before: show (every row)" "$before" logs show "$log"
    add "before: show --json" "$before" logs show --json "$log"
fi
measure_all
echo "Ratios$([ -n "$instructions" ] && echo ', of instructions'):"
echo "  varnelctl / grep:               $(ratio "${ms[varnelctl show --search]}" "${ms[grep -c]}")"
echo "  of which start-up / grep:       $(ratio "${ms[varnelctl, empty log]}" "${ms[grep -c]}")"
[ -n "$have_lnav" ] &&
    echo "  lnav / varnelctl:               $(ratio "${ms[lnav -n filter-in]}" "${ms[varnelctl show --search]}")"
echo "  every row / filtered:           $(ratio "${ms[varnelctl show (every row)]}" "${ms[varnelctl show --search]}")"
echo "  --json / filtered:              $(ratio "${ms[varnelctl show --json]}" "${ms[varnelctl show --search]}")"
if [ -n "$before" ]; then
    echo "  before / now, --search:         $(ratio "${ms[before: show --search]}" "${ms[varnelctl show --search]}")"
    echo "  before / now, every row:        $(ratio "${ms[before: show (every row)]}" "${ms[varnelctl show (every row)]}")"
    echo "  before: every row / filtered:   $(ratio "${ms[before: show (every row)]}" "${ms[before: show --search]}")"
fi

if [ -n "$before" ]; then
    # Files that take every odd path: bytes that are not UTF-8, marks inside
    # lines, UTF-16 both ways, CR LF, terminal controls, folds, JSON escapes.
    odd=$root/Library/Logs/Varnel
    {
        printf '\xef\xbb\xbf2024-05-01 10:00:00 INFO first \xe2\x82\n'
        printf '2024-05-01 10:00:01 WARN bad \xff\xfe byte\r\n    at frame(x:1)\r\n'
        printf 'in loop \xef\xbb\xbf mark\n\x1b[31m2024-05-01 10:00:02 ERROR red\x1b[0m \xc2\x9b2J\x7f\n'
        printf '{"level":"warning","msg":"tab\\there \\u00e9 \\ud83d\\ude00 \\udc00","ts":1e3}\n'
        printf '{"lvl":"err","message":"a\\nb","target":"x"}\n\t\n \xc2\xa0\n[svc] K\xe2\x84\xaaelvin \xc4\xb0\n'
        head -c 300000 "$file"
    } >"$odd/odd.log"
    python3 - "$odd" <<'EOF'
import sys
folder = sys.argv[1]
text = open(f"{folder}/odd.log", "rb").read().decode("utf-8", "replace")
open(f"{folder}/le.log", "wb").write(b"\xff\xfe" + text.encode("utf-16-le"))
open(f"{folder}/be.log", "wb").write(b"\xfe\xff" + text.encode("utf-16-be"))
open(f"{folder}/lone.log", "wb").write(b"\xff\xfe" + "x\ud800y\n".encode("utf-16-le", "surrogatepass"))
EOF
    same=0
    differ=0
    # Both programs, standard output and error in one file each.
    both() {
        "$before" "$@" >"$work/out.before" 2>&1 || true
        "$ctl" "$@" >"$work/out.now" 2>&1 || true
        if cmp -s "$work/out.before" "$work/out.now"; then
            same=$((same + 1))
        else
            differ=$((differ + 1))
            echo "  DIFFERS: $*"
        fi
    }
    for name in agent odd le be lone; do
        path=/Library/Logs/Varnel/$name.log
        both logs show "$path"
        both logs show --json "$path"
        both logs show --search e "$path"
        both logs show --search FAILED --level error "$path"
        both logs show --search é "$path"
        both logs show --level warn --json "$path"
        both logs parse "$root$path"
    done
    echo "Outputs before and now: $same identical, $differ different"
fi

if [ -n "$big" ]; then
    echo "logs parse, streaming (elapsed, CPU, peak resident memory):"
    for size in 40000000 400000000; do
        "$gen" "$size" 7 >"$work/big.log"
        for bin in "$ctl" ${before:+"$before"}; do
            label=$([ "$bin" = "$ctl" ] && echo now || echo before)
            /usr/bin/time -f '%e s elapsed, %U+%S s CPU, %M KB peak' -o "$work/time" \
                "$bin" logs parse "$work/big.log" >/dev/null
            printf '  %-6s %4d MB: %s\n' "$label" "$((size / 1000000))" "$(cat "$work/time")"
        done
    done
fi
