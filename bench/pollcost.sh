#!/usr/bin/env bash
# What teco-cli poll costs the machine on a paced line (the peer harness's
# line.c) at line rate: the process's CPU time (rusage) over SECONDS, and its
# system calls per read (strace -c -f over a shorter run).
# The poll: 10 one-register tags (HR1..HR10), each read on its own, back to
# back (--interval 0).
# Usage: bench/pollcost.sh [SECONDS]   (default 60)
# Environment: BUILD (default build/native), PEERS (default ../shared/peers),
# BAUD (default 115200), SLAVE=libmodbus to answer with the harness's slave.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD:-$root/build/native}
peers=${PEERS:-$root/../shared/peers}
seconds=${1:-60}
baud=${BAUD:-115200}
work=$(mktemp -d)
pids=()
cleanup() { for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done; rm -rf "$work"; }
trap cleanup EXIT
gcc -O2 -o "$work/line" "$peers/line.c"
"$work/line" -b "$baud" -c 11 >"$work/line.out" &
pids+=($!)
for _ in $(seq 50); do [ -s "$work/line.out" ] && break; sleep 0.1; done
a=$(awk '$1 == "A" { print $2 }' "$work/line.out"); b=$(awk '$1 == "B" { print $2 }' "$work/line.out")
if [ "${SLAVE:-}" = libmodbus ]; then
  gcc -O2 -o "$work/slave" "$peers/slave.c" $(pkg-config --cflags --libs libmodbus)
  "$work/slave" -d "$a" -b "$baud" -p N -S 2 1 >/dev/null 2>&1 &
else
  "$build/host/teco-sim" --quiet --device "$a" --link "RS485,$baud,NONE,8,2" >/dev/null &
fi
pids+=($!)
sleep 0.5
poll=("$build/host/teco-cli" --quiet --json --port "$b" --link "RS485,$baud,NONE,8,2" poll
  HR1 HR2 HR3 HR4 HR5 HR6 HR7 HR8 HR9 HR10 ${NO_MERGE---no-merge} --interval 0)
# CPU: user and system seconds of the process (GNU time's rusage).
/usr/bin/time -f "%U %S" -o "$work/time" "${poll[@]}" --duration "$seconds" >"$work/cpu.json" || true
python3 - "$work/cpu.json" "$work/time" "$seconds" <<'PY'
import json, sys
s = json.load(open(sys.argv[1])); user, system = map(float, open(sys.argv[2]).read().split()[-2:])
reads = s["link"]["1"]["requests"]
print(f"cpu: {user + system:.2f} s in {s['seconds']:.1f} s ({100 * (user + system) / s['seconds']:.2f} % of a core; "
      f"user {user:.2f}, system {system:.2f}); {reads / s['seconds']:.1f} reads/s, p50 {s['latencyMs']['p50']:.2f} ms")
PY
strace -c -f -o "$work/strace" "${poll[@]}" --duration 10 >"$work/strace.json" || true
reads=$(python3 -c 'import json,sys; print(json.load(open(sys.argv[1]))["link"]["1"]["requests"])' "$work/strace.json")
awk -v reads="$reads" '$NF ~ /^[a-z_0-9]+$/ && $4 ~ /^[0-9]+$/ && $NF != "total" {
    calls = $4; errs = (NF == 6) ? $5 : 0; t += calls; if (calls / reads < 0.05) next
    printf "  %-16s %7.2f per read%s\n", $NF, calls / reads, errs ? sprintf(" (%.2f failed)", errs / reads) : "" }
  END { printf "system calls: %.2f per read (%d reads under strace)\n", t / reads, reads }' "$work/strace"
