#!/usr/bin/env bash
# How well teco-cli sniff sees a bus: a master (teco-cli batch) and the
# simulated drive with about 10 % mixed faults talk through teco-tap, a
# paced line; sniff listens on the tap's third terminal. The requests the
# master's trace shows and the answers teco-sim's log shows are the truth
# that sniff's JSON lines are checked against.
# Usage: bench/sniff.sh [BAUD [TRANSACTIONS]]   (default 9600 10000; 10000 at
#        9600 baud take about ten minutes)
# Environment: BUILD (default build/native), OUT_DIR (kept; default a temporary one).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD:-$root/build/native}
baud=${1:-9600}
count=${2:-10000}
out=${OUT_DIR:-$(mktemp -d)}
mkdir -p "$out"
link="RS485,$baud,NONE,8,2"
pids=()
cleanup() { for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done; }
trap cleanup EXIT

"$build/bench/teco-tap" -b "$baud" >"$out/tap.txt" &
pids+=($!)
for _ in $(seq 50); do [ "$(wc -l <"$out/tap.txt")" -ge 3 ] && break; sleep 0.1; done
mapfile -t pty <"$out/tap.txt"

# About 10 % of the answers spoiled, each kind alike; a late answer still
# comes within the master's time-out (200 ms), where no request collides with it.
faults=()
for f in noreply: corrupt: truncate: late:ms=150, exception: wrongstation: noise:; do
  faults+=(--fault "${f}rate=1.5%")
done
"$build/host/teco-sim" --device "${pty[0]}" --link "$link" "${faults[@]}" >/dev/null 2>"$out/sim.log" &
pids+=($!)
"$build/host/teco-cli" sniff --port "${pty[2]}" --link "$link" --json --timeout 200 --log "$out/sniff.jsonl" \
  >/dev/null 2>"$out/sniff.err" &
sniff=$!
pids+=($sniff)
sleep 0.5

# Reads and writes of every function the driver sends, to three stations.
lines=("read HR1 --station 1" "write FN6HR101 9 --station 3" "read HR10 --count 20 --station 2"
  "write HR200 1 2 3 --station 1" "read DO1 --count 10 --station 2" "read IR401 --count 2 --station 3")
for ((i = 0; i < count; i++)); do echo "${lines[i % ${#lines[@]}]}"; done >"$out/batch.txt"
start=$(date +%s.%N)
"$build/host/teco-cli" --port "${pty[1]}" --link "$link" --timeout 200 --retry 0 --quiet \
  --trace "$out/cli.trace" batch "$out/batch.txt" >/dev/null 2>&1 || true
end=$(date +%s.%N)
sleep 0.5
kill -TERM "$sniff"
wait "$sniff" || true

# The truth: requests in the master's trace, answers in teco-sim's log.
awk '$2 == "TX" { s = ""; for (i = 3; i <= NF && $i ~ /^[0-9A-F][0-9A-F]$/; i++) s = s (s ? " " : "") $i; print s }' \
  "$out/cli.trace" >"$out/sent.txt"
grep -o '"request":"[^"]*"' "$out/sniff.jsonl" | cut -d'"' -f4 >"$out/seen.txt" || true
answered=$(grep -c ': answered ' "$out/sim.log" || true)
spoiled=$(grep -c -E 'answered .*\[(corrupt|truncate) injected\]' "$out/sim.log" || true)
noise=$(grep -c 'answered .*\[noise injected\]' "$out/sim.log" || true)
replies=$(grep -c '"reply":' "$out/sniff.jsonl" || true)
bad=$(grep -c -E '"event":"(crc-bad|truncated)"' "$out/sniff.jsonl" || true)
garbage=$(grep -o '"garbageBytes":[0-9]*' "$out/sniff.jsonl" | cut -d: -f2)
missed=$(diff "$out/sent.txt" "$out/seen.txt" | grep -c '^[<>]' || true)
printf 'sniff at %s baud, %s transactions in %.0f s (%s)\n' "$baud" "$count" "$(echo "$end - $start" | bc)" "$out"
printf '  requests: %s sent, %s seen, %s lost or misframed\n' "$(wc -l <"$out/sent.txt")" \
  "$(wc -l <"$out/seen.txt")" "$missed"
printf '  good answers: %s sent, %s seen\n' "$((answered - spoiled))" "$replies"
printf '  spoiled answers (corrupt, truncate): %s sent, %s reported as bad frames\n' "$spoiled" "$bad"
printf '  garbage: %s bytes of noise sent, %s bytes reported as garbage\n' "$((noise * 4))" "$garbage"
