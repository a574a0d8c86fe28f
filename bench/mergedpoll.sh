#!/usr/bin/env bash
# Samples per second of teco-cli poll with neighbouring tags joined into one
# read against tag by tag, on a paced line (the peer harness's line.c: each
# byte delivered when its last bit would have left the wire), and the line's
# busy share: the wire time of every frame over the time elapsed.
# The map: 50 one-register tags in 5 clusters of 10 neighbours on station 1.
# Usage: bench/mergedpoll.sh [SECONDS]   (default 10 per run; 4 runs per baud)
# With GAPS (such as "0 4 8 16 32"), for each gap G also 10 pairs of tags G
# registers apart, read joined (--merge-gap G) against the pair read apart:
# what reading a gap along costs against one more transaction.
# Environment: BUILD (default build/native), PEERS (the harness, default
# ../shared/peers), BAUDS (default "9600 115200"), SLAVE=libmodbus to answer
# with the harness's libmodbus slave instead of teco-sim (it answers the
# moment it has a request), GAPS.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD:-$root/build/native}
peers=${PEERS:-$root/../shared/peers}
seconds=${1:-10}
work=$(mktemp -d)
pids=()
cleanup() { for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done; rm -rf "$work"; }
trap cleanup EXIT
gcc -O2 -o "$work/line" "$peers/line.c"
if [ "${SLAVE:-}" = libmodbus ]; then
  gcc -O2 -o "$work/slave" "$peers/slave.c" $(pkg-config --cflags --libs libmodbus)
fi
tags=()
for c in 1 2 3 4 5; do for r in $(seq 0 9); do tags+=("HR$((c * 1000 + r))"); done; done

# One run: prints "reads/s samples/s busy% p50ms".
run() { # baud b options... -- tags...
  local baud=$1 b=$2; shift 2
  "$build/host/teco-cli" --quiet --json --port "$b" --link "RS485,$baud,NONE,8,2" --timeout 500 poll \
    "$@" --interval 0 --duration "$seconds" >"$work/out.json" || true
  python3 - "$work/out.json" "$baud" <<'PY'
import json, sys
s = json.load(open(sys.argv[1])); baud = int(sys.argv[2])
link = s["link"]["1"]; secs = s["seconds"]; reads = link["requests"]
samples = s["commands"]
# Frames on the wire: 8-byte requests; answers of 5 + 2 x registers bytes.
regs = samples / reads if reads else 0
wire = reads * (8 + 5 + 2 * regs) * 11 / baud
print(f"{reads / secs:.1f} {samples / secs:.1f} {100 * wire / secs:.1f} {s['latencyMs']['p50']:.2f} {s['errors']}")
PY
}

for baud in ${BAUDS:-9600 115200}; do
  "$work/line" -b "$baud" -c 11 >"$work/line.out" &
  pids+=($!)
  for _ in $(seq 50); do [ -s "$work/line.out" ] && break; sleep 0.1; done
  a=$(awk '$1 == "A" { print $2 }' "$work/line.out"); b=$(awk '$1 == "B" { print $2 }' "$work/line.out")
  if [ "${SLAVE:-}" = libmodbus ]; then
    "$work/slave" -d "$a" -b "$baud" -p N -S 2 1 >/dev/null 2>&1 &
  else
    "$build/host/teco-sim" --quiet --device "$a" --link "RS485,$baud,NONE,8,2" >/dev/null &
  fi
  pids+=($!)
  sleep 0.5
  # What the wire allows a merged read of 10 registers: request and answer
  # and the RTU silence before the request (3.5 characters, 1.75 ms above
  # 19200 baud).
  allowed=$(awk -v b="$baud" 'BEGIN { c = 11 / b; s = b <= 19200 ? 3.5 * c : 0.00175;
    printf "%.1f", 10 / ((8 + 25) * c + s) }')
  echo "baud $baud: wire and silences allow $allowed samples/s merged"
  printf '%-14s %9s %10s %6s %8s %s\n' mode reads/s samples/s busy% p50_ms errors
  for mode in "--no-merge" "--merge-gap 8"; do
    # shellcheck disable=SC2086
    read -r rps sps busy p50 errs < <(run "$baud" "$b" $mode "${tags[@]}")
    printf '%-14s %9s %10s %6s %8s %s\n' "${mode#--}" "$rps" "$sps" "$busy" "$p50" "$errs"
  done
  for g in ${GAPS:-}; do
    pairs=()
    for k in $(seq 10); do pairs+=("HR$((k * 1000))" "HR$((k * 1000 + g + 1))"); done
    read -r _ apart _ _ _ < <(run "$baud" "$b" --no-merge "${pairs[@]}")
    read -r _ joined _ _ _ < <(run "$baud" "$b" --merge-gap "$g" "${pairs[@]}")
    echo "pairs $g apart: $apart samples/s read apart, $joined joined"
  done
  kill "${pids[@]}" 2>/dev/null || true
  wait 2>/dev/null || true
  pids=()
done
