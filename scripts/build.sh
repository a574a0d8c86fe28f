#!/usr/bin/env bash
# Configures and builds one variant. Usage: build.sh DIR [cmake options...]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dir=$1; shift
# The logs lie beside DIR: its parent (build/ on a fresh clone) may not exist yet.
mkdir -p "$(dirname "$dir")"
cmake -S "$root" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >"$dir.configure.log" 2>&1 \
  || { cat "$dir.configure.log"; exit 1; }
cmake --build "$dir" -j"$(nproc)" -- --no-print-directory >"$dir.build.log" 2>&1 \
  || { grep -E 'error|Error' -A3 "$dir.build.log" | head -n 80; exit 1; }
