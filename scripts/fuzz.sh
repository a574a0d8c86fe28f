#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (in build/fuzz) and runs each one
# for a bounded time over its seed corpus. Any crash, time-out or broken
# oracle fails the run; the input that did it is left in build/fuzz/artifacts.
#
# Usage: fuzz.sh [TARGET...]       (default: every target under fuzz/)
#   TECO_FUZZ_SECONDS   time per target (default 20)
#   TECO_FUZZ_JOBS      targets run at once (default: the number of cores)
# New inputs go to build/fuzz/fuzz/corpus_<name>; the seeds stay as they are.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dir=$root/build/fuzz
seconds=${TECO_FUZZ_SECONDS:-20}
jobs=${TECO_FUZZ_JOBS:-$(nproc)}
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for source in "$root"/fuzz/fuzz_*.cpp; do
    name=$(basename "$source" .cpp)
    targets+=("${name#fuzz_}")
  done
fi

mkdir -p "$dir" "$dir/artifacts"
echo "== fuzz: build ${targets[*]}"
cmake -S "$root" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang \
  -DCMAKE_CXX_COMPILER=clang++ -DTECO_QMAKE_TEST=OFF >"$dir.configure.log" 2>&1 \
  || { cat "$dir.configure.log"; exit 1; }
cmake --build "$dir" -j"$(nproc)" --target "${targets[@]/#/fuzz_}" -- --no-print-directory \
  >"$dir.build.log" 2>&1 || { grep -E 'error|Error' -A3 "$dir.build.log" | head -n 80; exit 1; }

run_target() {
  local name=$1 dict=()
  [ -f "$root/fuzz/$name.dict" ] && dict=(-dict="$root/fuzz/$name.dict")
  mkdir -p "$dir/fuzz/corpus_$name"
  "$dir/fuzz/fuzz_$name" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
    -print_final_stats=1 -artifact_prefix="$dir/artifacts/$name-" "${dict[@]}" \
    "$dir/fuzz/corpus_$name" "$root/fuzz/corpus/$name" >"$dir/fuzz_$name.log" 2>&1
}

echo "== fuzz: run each target for $seconds s, $jobs at a time"
declare -A pid
running=()
for name in "${targets[@]}"; do
  if [ ${#running[@]} -ge "$jobs" ]; then
    wait "${pid[${running[0]}]}" && echo ok >"$dir/fuzz_${running[0]}.status" || echo failed >"$dir/fuzz_${running[0]}.status"
    running=("${running[@]:1}")
  fi
  run_target "$name" &
  pid[$name]=$!
  running+=("$name")
done
for name in "${running[@]}"; do
  wait "${pid[$name]}" && echo ok >"$dir/fuzz_$name.status" || echo failed >"$dir/fuzz_$name.status"
done

status=0
for name in "${targets[@]}"; do
  log=$dir/fuzz_$name.log
  if [ "$(cat "$dir/fuzz_$name.status")" = ok ]; then
    done_line=$(grep -a 'DONE' "$log" | tail -n 1 || true)
    echo "fuzz_$name: ok; ${done_line#*DONE}"
  else
    status=1
    echo "fuzz_$name: FAILED"
    # What broke (the oracle's sentence, or the sanitizer's report), then how.
    grep -a -v -E '^#[0-9]+.*(NEW|REDUCE|pulse)' "$log" | grep -a -B8 -m1 -E 'ERROR|runtime error' || true
    grep -a -v -E '^#[0-9]+.*(NEW|REDUCE|pulse)' "$log" | tail -n 20
    echo "(full log: $log; reproduce with: $dir/fuzz/fuzz_$name $dir/artifacts/$name-*)"
  fi
done
exit $status
