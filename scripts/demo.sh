#!/usr/bin/env bash
# Quick start, first command: set up, build, and run a short session of the
# command-line host against the simulated drive. teco-cli loads the driver
# plug-in the way the panel does, and without --port it starts the simulated
# drive (stations 1, 2 and 3) on a pseudo-terminal and talks to it through
# the real serial link.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
WITH_ARMHF=0 "$root/scripts/setup.sh"
mkdir -p "$root/build"
"$root/scripts/build.sh" "$root/build/native"
cli=$root/build/native/host/teco-cli

"$cli" --timeout 300 batch 2>&1 <<'SESSION'
# The driver, as the panel sees it
info
# Reading every data type: words, a double word (SW: high word first), bytes, bits
read HR100 --count 4
read HR104SW
read IR1 --type byte --count 4
read HR110.0 --count 8
read DI1 --count 4
# Writing: registers with function 16 and 6 (FN6HR), coils with 15 and 5 (FN5DO)
write HR102 250
write FN6HR103 180
read HR102 --count 2
write HR104SW 123456
read HR104SW
write DO1 1
write FN5DO3 1
read DO1 --count 4
write HR110.15 1
read HR110
# The relay window: stations 2 and 3 in the list (HR60000..HR60002),
# read back from station 3 (HR60009); HR60010 relays to HR1300 of both
write HR60000 2 2 3
write HR60009 3
write HR60010 4321
read HR1300 --station 2
read HR1300 --station 3
read HR60000 --count 11
# An injected fault: station 1 misses one request, the driver sends it again
fault noreply:station=1,at=HR100,times=1
trace on
read HR100
trace off
# Polling three tags, and scanning the line for stations
poll HR100 IR1:2 DI1:bit:4 --cycles 10 --interval 50
scan --to 5
SESSION

echo
echo "More: $cli --help"
