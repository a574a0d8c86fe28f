#!/usr/bin/env bash
# Quick start, first command: set up, build, and run the driver through the
# command-line host, which loads the plug-in the way the panel does.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
WITH_ARMHF=0 "$root/scripts/setup.sh"
mkdir -p "$root/build"
"$root/scripts/build.sh" "$root/build/native"
"$root/build/native/host/teco-cli" info
