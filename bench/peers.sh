#!/usr/bin/env bash
# Runs the peer measurement harness (../shared/peers) with our driver as two
# more masters, then compares time per transaction with the peers:
#   ours        the plug-in through our serial link, RTU silence kept (the default)
#   ours-nosil  the same with the silence switched off (--no-silence), for
#               point-to-point lines
# Usage: bench/peers.sh [run.sh options...]   (a manual step, about 5 minutes)
#        bench/peers.sh --table RESULTS         (the comparison of an earlier run's results.txt)
# Environment: BUILD (our build, default build/native), PEERS (the harness),
# PEERS_BUILD (where the harness builds, default build/peers), OUT_DIR.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bench_table() {
  awk '
  function get(k,   i, kv) { for (i = 2; i <= NF; i++) { split($i, kv, "="); if (kv[1] == k) return kv[2] } return "" }
  {
    n = get("n") + 0; if (n == 0) next
    key = get("mode") SUBSEP get("regs")
    t[key, get("name")] = get("median_ms") + 0
    baud[key] = get("line_baud") + 0; bits[key] = get("bits") + 0
    if (!(key in seen)) { seen[key] = 1; order[++count] = key }
  }
  END {
    printf "| line | R | libmodbus | Qt SerialBus | pymodbus | ours | ours, no silence | limit | met |\n"
    printf "| --- | ---: | ---: | ---: | ---: | ---: | ---: | ---: | --- |\n"
    for (i = 1; i <= count; i++) {
      key = order[i]; split(key, part, SUBSEP)
      lm = t[key, "libmodbus"]; us = t[key, "ours"]; nosil = t[key, "ours-nosil"]
      if (baud[key] > 0) {
        silence = baud[key] <= 19200 ? 3.5 * bits[key] / baud[key] * 1000 : 1.75
        limit = lm + silence + 0.1
        met = (us <= limit && us <= t[key, "qtserialbus"] && us <= t[key, "pymodbus"]) ? "yes" : "no"
        what = sprintf("%.3f", limit)
      } else {
        limit = 1.5 * lm
        met = nosil <= limit ? "yes" : "no"
        what = sprintf("%.3f (no silence)", limit)
      }
      printf "| %s | %d | %.3f | %.3f | %.3f | %.3f | %.3f | %s | %s |\n", part[1], part[2], lm,
             t[key, "qtserialbus"], t[key, "pymodbus"], us, nosil, what, met
    }
  }' "$1"
}
if [ "${1:-}" = --table ]; then
  bench_table "$2"
  exit 0
fi
build=${BUILD:-$root/build/native}
peers=${PEERS:-$root/../shared/peers}
master=$build/bench/teco-bench-master
[ -x "$master" ] || { echo "peers.sh: $master is not built" >&2; exit 1; }
out=${OUT_DIR:-$(mktemp -d)}
mkdir -p "$out" "${PEERS_BUILD:-$root/build/peers}"
BUILD_DIR=${PEERS_BUILD:-$root/build/peers} OUT_DIR=$out "$peers/run.sh" \
  --extra ours="$master" --extra ours-nosil="$master --no-silence --name ours-nosil" "$@"
echo
bench_table "$out/results.txt"
echo
echo "Median ms per transaction (reads run back to back). Paced lines: limit = libmodbus + the silence it skips + 0.1 ms,"
echo "and ours must also be at or below Qt SerialBus and pymodbus. Direct: limit = 1.5 x libmodbus, for"
echo "ours without silence (masters configured for 115200, so ours with silence waits 1.75 ms)."
