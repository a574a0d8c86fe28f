#!/usr/bin/env bash
# Starts teco-monitor: installs what is missing, builds the window and the
# plug-in (only those), and opens it connected to the simulated drive.
# Arguments go to teco-monitor, such as --tags docs/teco-monitor.tags.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
WITH_ARMHF=0 "$root/scripts/setup.sh"
build=$root/build/native
mkdir -p "$root/build"
if [ ! -f "$build/CMakeCache.txt" ]; then
  cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >"$build.configure.log" 2>&1 \
    || { cat "$build.configure.log"; exit 1; }
fi
cmake --build "$build" --target teco-monitor teco_servo -j"$(nproc)" -- --no-print-directory >"$build.monitor.log" 2>&1 \
  || { grep -E 'error|Error' -A3 "$build.monitor.log" | head -n 80; exit 1; }
exec "$build/host/monitor/teco-monitor" "$@"
